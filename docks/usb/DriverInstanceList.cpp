#include "docks/usb/DriverInstanceList.h"

DriverInstanceList::DriverInstanceList(std::shared_ptr<DockPlatform> p) : platform(std::move(p)) {}

DriverInstanceList::~DriverInstanceList()
{
    releaseServices();
}

int DriverInstanceList::findDevicesByDriverName(const char* driverName)
{
    // A fresh scan: a dock plugged into another port since the last one must
    // not keep a stale record ahead of it.
    releaseServices();

    juce::Array<DockPlatform::Entry> services;
    const auto result = platform->matchServicesByName(driverName, services);
    if (result != DockPlatform::success)
    {
        juce::Logger::writeToLog(juce::String::formatted("IOServicesGetMatchingServices returned 0x%08x\n\n", (unsigned) result));
        for (auto service : services)
            platform->release(service);
        return 0;
    }

    bool scanning = true;
    for (auto service : services)
    {
        if (!scanning)
        {
            platform->release(service);
            continue;
        }

        // The location lives on the USB device, which may be an ancestor of
        // the driver's service.
        const auto location = platform->searchProperty(service, "locationID");
        if (!(location.isInt() || location.isInt64()))
        {
            juce::Logger::writeToLog("Device locationID could not be found.");
            platform->release(service);
            scanning = false;
            continue;
        }

        const auto locationID = (int32_t) static_cast<juce::int64>(location);
        // A dock can show one driver service per interface; it is one device.
        if (containsLocation(locationID))
        {
            platform->release(service);
            continue;
        }

        auto* instance = instances.add(new DriverInstance());
        instance->service = service;
        instance->locationID = locationID;
        getAncestorStringProperty(service, "USB Serial Number", instance->serialNumber);
    }
    return instances.size();
}

bool DriverInstanceList::getAncestorStringProperty(DockPlatform::Entry entry, const char* key, juce::String& text)
{
    const auto value = platform->searchProperty(entry, key);
    if (!value.isString())
    {
        juce::Logger::writeToLog("Property '" + juce::String(key) + "' could not be found.");
        text.clear();
        return false;
    }
    text = value.toString();
    return true;
}

void DriverInstanceList::releaseServices()
{
    for (auto* instance : instances)
        platform->release(instance->service);
    instances.clear();
}

bool DriverInstanceList::containsLocation(int32_t locationID) const
{
    for (auto* instance : instances)
        if (instance->locationID == locationID)
            return true;
    return false;
}
