#include "docks/thunderbolt/TbtDockBoard.h"

#include "boards/DiskpackBoard.h"
#include "firmware/XBoot2FWUpdater.h"

#include <algorithm>
#include <array>

namespace
{
int clampColour(int v)
{
    return juce::jlimit(0, 3, v);
}

/** One registry reference, given back to the platform when dropped. */
class HeldEntry
{
public:
    HeldEntry(DockPlatform& p, DockPlatform::Entry e) : platform(p), entry(e) {}
    ~HeldEntry() { reset(0); }

    void reset(DockPlatform::Entry e)
    {
        if (entry != 0)
            platform.release(entry);
        entry = e;
    }
    DockPlatform::Entry get() const noexcept { return entry; }
    explicit operator bool() const noexcept { return entry != 0; }

private:
    DockPlatform& platform;
    DockPlatform::Entry entry;

    JUCE_DECLARE_NON_COPYABLE(HeldEntry)
};

/** The child at `index`, or 0; the references to the other children are
    given back at once. */
DockPlatform::Entry childAt(DockPlatform& platform, DockPlatform::Entry parent, int index)
{
    juce::Array<DockPlatform::Entry> children;
    if (parent == 0 || !platform.getChildren(parent, children))
        return 0;
    DockPlatform::Entry kept = 0;
    for (int i = 0; i < children.size(); ++i)
    {
        if (i == index)
            kept = children[i];
        else
            platform.release(children[i]);
    }
    return kept;
}

// The disk's branch is a handful of entries deep; the bound only keeps a
// registry that loops (an emulator gone wrong) from holding the console.
constexpr int maxDiskBranchDepth = 64;
} // namespace

HardwareBoardFWUpdater* TbtDockBoard::getFWUpdater()
{
    return new XBoot2FWUpdater(this);
}

//==============================================================================
bool TbtDockBoard::resetEeprom()
{
    return sendCommand('Z', -1, 2);
}

bool TbtDockBoard::getDiskpackId(int& id)
{
    return sendCommandGetIntResponse('I', 1, id);
}

bool TbtDockBoard::getDiskpackGuid(juce::String& guid)
{
    return sendCommandGetStringResponse('U', guid);
}

bool TbtDockBoard::getVoltageRail(int rail, int& value)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('G', 4, raw, rail, 1))
        return false;
    value = raw >= 0x8000 ? raw - 0x10000 : raw;
    return true;
}

bool TbtDockBoard::setDiskpackWriteProtect(bool on)
{
    return sendCommand('X', on);
}

bool TbtDockBoard::getDiskpackWriteProtect(bool& on)
{
    int value = 0;
    if (!sendCommandGetIntResponse('Y', 1, value, 0, 1))
        return false;
    on = value != 0;
    return true;
}

bool TbtDockBoard::enableDockTemperatureEvents(bool on)
{
    return sendCommand('T', on);
}

bool TbtDockBoard::enableDiskpackTemperatureEvents(bool on)
{
    return sendCommand('P', on);
}

bool TbtDockBoard::getOperatingHours(int& hours)
{
    return sendCommandGetIntResponse('O', 4, hours);
}

bool TbtDockBoard::getMinMaxTemperatures(int zone, int& minDegrees, int& maxDegrees)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('M', 4, raw, zone, 1))
        return false;
    DiskpackBoard::splitMinMaxTemperatures(raw, minDegrees, maxDegrees);
    return true;
}

bool TbtDockBoard::sendDiskpackLed(int red, int green, int blue, bool flash, bool activity)
{
    const int byte = (activity ? 0x80 : 0) | (flash ? 0x40 : 0) | (clampColour(red) << 4)
                     | (clampColour(green) << 2) | clampColour(blue);
    return sendCommand('L', byte, 2);
}

bool TbtDockBoard::setDiskpackPower(bool on)
{
    return sendCommand('D', on);
}

bool TbtDockBoard::readDiskpackEeprom(int address, int count, unsigned char* data)
{
    if (count < 0 || count > maxEepromTransfer)
        return false;
    // "0", three digits of address, two of count: six digits in all.
    const int value = ((address & 0xFFF) << 8) | (count & 0xFF);
    return sendCommandGetArrayResponse('R', value, 6, data, maxEepromTransfer);
}

bool TbtDockBoard::writeDiskpackEeprom(int address, int count, unsigned char* data)
{
    if (count > maxEepromTransfer || count < 0 || (count > 0 && data == nullptr))
        return false;
    std::array<unsigned char, 3 + maxEepromTransfer> line {};
    line[0] = (unsigned char) ((address >> 8) & 0x0F);
    line[1] = (unsigned char) (address & 0xFF);
    line[2] = (unsigned char) count;
    std::copy(data, data + count, line.begin() + 3);
    return sendCommand('W', line.data(), 3 + count);
}

bool TbtDockBoard::setDiskpackTypeId(int typeId)
{
    return sendCommand('t', typeId, 1);
}

bool TbtDockBoard::setSerialNumber(int serial)
{
    return sendCommand('S', serial, 4);
}

bool TbtDockBoard::getSerialNumber(int& serial)
{
    return sendCommandGetIntResponse('E', 4, serial);
}

//==============================================================================
bool TbtDockBoard::getDiskSerialNumber(int index, juce::String& serial)
{
    serial.clear();
    if (!boardIsOpen())
        return true;

    auto& platform = getPlatform();
    // The dock's service, its parent, the parent's first child: the disks
    // hang below that, one branch each.
    HeldEntry dock(platform, platform.entryForPath(getServicePath()));
    if (!dock)
        return true;
    HeldEntry parent(platform, platform.getParent(dock.get()));
    HeldEntry bus(platform, childAt(platform, parent.get(), 0));
    HeldEntry at(platform, childAt(platform, bus.get(), index));

    for (int depth = 0; at && depth < maxDiskBranchDepth; ++depth)
    {
        juce::var properties;
        if (platform.getProperties(at.get(), properties))
        {
            const auto characteristics = properties.getProperty("Device Characteristics", {});
            if (characteristics.isObject())
            {
                const auto number = characteristics.getProperty("Serial Number", {});
                if (number.isString())
                    serial = number.toString();
                break;
            }
        }
        at.reset(childAt(platform, at.get(), 0));
    }
    return true;
}

bool TbtDockBoard::getUID(juce::String& uid)
{
    if (!boardIsOpen())
        return false;

    auto& platform = getPlatform();
    HeldEntry dock(platform, platform.entryForPath(getServicePath()));
    if (!dock)
        return false;
    const auto tbtPath = platform.searchProperty(dock.get(), "Thunderbolt Path");
    if (!tbtPath.isString())
        return false;
    HeldEntry port(platform, platform.entryForPath(tbtPath.toString()));
    if (!port)
        return false;
    HeldEntry portParent(platform, platform.getParent(port.get()));
    juce::var properties;
    if (!portParent || !platform.getProperties(portParent.get(), properties))
        return false;
    const auto number = properties.getProperty("UID", {});
    if (!number.isInt() && !number.isInt64())
        return false;
    uid = juce::String::formatted("%016llx", (unsigned long long) (juce::int64) number);
    return true;
}
