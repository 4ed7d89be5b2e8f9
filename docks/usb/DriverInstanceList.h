#pragma once

#include "docks/usb/DriverInstance.h"

#include <memory>

/** The dock driver instances present, one record per physical device, in the
    order the registry lists them. */
class DriverInstanceList
{
public:
    explicit DriverInstanceList(std::shared_ptr<DockPlatform> platform);
    ~DriverInstanceList();

    /** Replaces the records with the services named `driverName`; returns how
        many physical devices were found. */
    int findDevicesByDriverName(const char* driverName);

    /** The text property `key` of `entry` or of its nearest ancestor that has
        it. When none has it, logs so, empties `text` and returns false. */
    bool getAncestorStringProperty(DockPlatform::Entry entry, const char* key, juce::String& text);

    /** Gives back the records' services and forgets the records. */
    void releaseServices();

    int size() const noexcept { return instances.size(); }
    DriverInstance* operator[](int index) const noexcept { return instances[index]; }

private:
    bool containsLocation(int32_t locationID) const;

    std::shared_ptr<DockPlatform> platform;
    juce::OwnedArray<DriverInstance> instances;

    JUCE_DECLARE_NON_COPYABLE(DriverInstanceList)
};
