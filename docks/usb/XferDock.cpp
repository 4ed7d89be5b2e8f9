#include "docks/usb/XferDock.h"

#include <algorithm>

namespace
{
constexpr uint8_t statusSubcode = 0x00;
constexpr uint8_t powerSubcode = 0x01;
constexpr uint8_t diskpackLedSubcode = 0x02;
constexpr uint8_t driveLedSubcode = 0x03;
constexpr uint8_t guidSubcode = 0x04;
constexpr uint8_t firmwareRevisionSubcode = 0x05;
constexpr uint8_t getWriteProtectSubcode = 0x06;
constexpr uint8_t setWriteProtectSubcode = 0x07;
constexpr uint8_t temperatureSubcode = 0x0A;
constexpr uint8_t eepromWriteSubcode = 0x0B;
constexpr uint8_t eepromReadSubcode = 0x0C;
constexpr uint8_t diskpackIdSubcode = 0x0D;
constexpr uint8_t diskSerialSubcode = 0x0E;
constexpr uint8_t voltageRailSubcode = 0x0F;
constexpr uint8_t dockLedSubcode = 0x10;

constexpr unsigned int statusReplyLength = 128;
constexpr unsigned int longReplyLength = 32;
constexpr unsigned int eepromReadReplyLength = 48;
constexpr int eepromDataOffset = 5; // block byte where written data starts
constexpr int numDisks = 2;

/** Which status bytes raise which change bits when they differ from the cache.
    Bit 2 of byte 1 (write protection alone) raises nothing. */
struct StatusField
{
    int first, last;
    uint8_t compared;
    uint32_t changeBits;
};

constexpr StatusField statusFields[] = {
    { 1, 1, 0xFB, XferDockEventListener::diskpackEventBit },
    { 3, 3, 0xFF, XferDockEventListener::diskpackEventBit | XferDockEventListener::ejectButtonEventBit },
    { 7, 12, 0xFF, XferDockEventListener::faultEventBit },
    { 5, 6, 0xFF, XferDockEventListener::temperatureEventBit },
};

/** What each change bit tells the listeners, in the order they hear it. */
struct StatusEvent
{
    uint32_t changeBit;
    bool (*applies)(const uint8_t* status);
    void (*deliver)(XferDockEventListener& listener, const uint8_t* status);
};

bool always(const uint8_t*)
{
    return true;
}

bool diskpackPresent(const uint8_t* status)
{
    return (status[1] & 0x09) == 0x09;
}

bool diskpackWriteProtected(const uint8_t* status)
{
    return (status[1] & 0x04) != 0;
}

const StatusEvent statusEvents[] = {
    { XferDockEventListener::diskpackEventBit, always,
      [](XferDockEventListener& l, const uint8_t* s) { l.diskpackChanged(diskpackPresent(s), diskpackWriteProtected(s)); } },
    // The dock marks a valid temperature reading with 'U' in byte 4.
    { XferDockEventListener::temperatureEventBit, [](const uint8_t* s) { return s[4] == 'U'; },
      [](XferDockEventListener& l, const uint8_t* s) { l.diskpackTemperature(((s[6] << 8) | s[5]) >> 4); } },
    { XferDockEventListener::ejectButtonEventBit, always,
      [](XferDockEventListener& l, const uint8_t* s) { l.ejectButton((s[3] & 0x02) != 0); } },
    { XferDockEventListener::faultEventBit, always,
      [](XferDockEventListener& l, const uint8_t* s) { l.dockFault(s[12] != 0); } },
};
} // namespace

XferDock::XferDock(std::shared_ptr<DockPlatform> platform, int statusPeriodMs)
    : USBDockBoard(std::move(platform), statusPeriodMs)
{
}

XferDock::~XferDock()
{
    shutDown();
}

USBDockReply XferDock::exchange(uint8_t subcode, std::initializer_list<int> args, unsigned int replyLength,
                                bool suppressFailure)
{
    CDB16 cdb;
    cdb.bytes[0] = CDB16::dockCommandOpcode;
    cdb.bytes[1] = subcode;
    int index = 2;
    for (int arg : args)
        cdb.bytes[index++] = (uint8_t) arg;
    if (!sendCommand(&cdb, replyLength, suppressFailure))
        return {};
    return takeReply();
}

//==============================================================================
bool XferDock::getStatusUpdate()
{
    const juce::ScopedLock sl(statusLock);
    changeMask = 0;
    const auto status = exchange(statusSubcode, {}, statusReplyLength);
    if (status.isEmpty())
        return false;

    for (const auto& field : statusFields)
        for (int i = field.first; i <= field.last; ++i)
            if (((status[(size_t) i] ^ statusCache[i]) & field.compared) != 0)
                changeMask |= field.changeBits;

    if (changeMask != 0)
    {
        for (int i = 0; i < statusLength; ++i)
            statusCache[i] = status[(size_t) i];
        dispatchEvents();
    }
    return true;
}

void XferDock::dispatchEvents()
{
    if ((changeMask & XferDockEventListener::diskpackEventBit) != 0)
        writeProtected = diskpackWriteProtected(statusCache);

    // A listener that wants any of the changes hears all of them.
    forEachListener(changeMask, [this](HardwareBoardEventListener& base) {
        auto* listener = dynamic_cast<XferDockEventListener*>(&base);
        if (listener == nullptr)
            return;
        for (const auto& event : statusEvents)
            if ((changeMask & event.changeBit) != 0 && event.applies(statusCache))
                event.deliver(*listener, statusCache);
    });
}

//==============================================================================
bool XferDock::getFirmwareRevision(juce::String& revision)
{
    const auto reply = exchange(firmwareRevisionSubcode, {}, longReplyLength);
    if (reply.isEmpty())
        return false;
    revision = juce::String::formatted("%d.%d.%d", reply[1], reply[2], reply[3]);
    return true;
}

bool XferDock::setDiskpackPower(bool on)
{
    // Switching off drops the diskpack and can reset the dock's bus.
    return !exchange(powerSubcode, { on ? 1 : 0 }, 16, !on).isEmpty();
}

bool XferDock::setDiskpackLed(int red, int green, int blue, bool flash, bool activity)
{
    return exchange(diskpackLedSubcode, { red, green, blue, flash ? 1 : 0, activity ? 1 : 0 }).statusU();
}

bool XferDock::getDriveLED()
{
    CDB16 cdb;
    cdb.bytes[0] = CDB16::dockCommandOpcode;
    cdb.bytes[1] = driveLedSubcode;
    return sendCommand(&cdb, 16, false);
}

bool XferDock::getDiskpackGuid(juce::String& guid)
{
    const auto reply = exchange(guidSubcode, {});
    if (reply.isEmpty())
        return false;
    uint8_t bytes[8];
    for (size_t i = 0; i < sizeof(bytes); ++i)
        bytes[i] = reply[1 + i];
    guid = juce::String::toHexString(bytes, (int) sizeof(bytes), 0);
    return true;
}

bool XferDock::getDiskpackWriteProtect(bool& isProtected)
{
    const auto reply = exchange(getWriteProtectSubcode, {});
    if (!reply.statusU())
    {
        logLine("Diskpack write protection cannot be determined.");
        return false;
    }
    isProtected = reply[2] != 0;
    return true;
}

bool XferDock::setDiskpackWriteProtect(bool protect)
{
    if (!exchange(setWriteProtectSubcode, { protect ? 1 : 0 }).statusU())
    {
        logLine("Diskpack write protection cannot be set.");
        return false;
    }
    return true;
}

bool XferDock::getDiskpackTemp(int& degrees)
{
    const auto reply = exchange(temperatureSubcode, {});
    if (reply.isEmpty())
        return false;
    degrees = reply.littleEndian16(1) >> 4;
    return true;
}

bool XferDock::writeDiskpackEeprom(int address, int count, const unsigned char* data)
{
    // Reported, then written all the same: the dock's own checks decide. Not
    // so a span the block cannot address: its address would wrap onto other
    // bytes (and the arithmetic below overflow), so it is refused.
    const bool addressable = eepromSpanAddressable(address, count);
    if (count < 0 || !addressable || address + count > eepromSize)
        logLine("Invalid params");
    if (count < 1)
        return true;
    if (!addressable)
        return false;

    int chunk = std::min(count, eepromWriteChunk);
    int remaining = count;
    while (remaining > 0)
    {
        // Only writes that cross a page are cut at the page end, judged by
        // the whole count rather than what is left: a last chunk can run past
        // the count. Those extra bytes go as zeros; there is no data for them.
        const int offset = address % eepromPageSize;
        if (offset + count >= eepromPageSize)
            chunk = offset + eepromWriteChunk < eepromPageSize ? eepromWriteChunk : eepromPageSize - offset;

        CDB16 cdb;
        cdb.bytes[0] = CDB16::dockCommandOpcode;
        cdb.bytes[1] = eepromWriteSubcode;
        cdb.bytes[2] = (uint8_t) address;
        cdb.bytes[3] = (uint8_t) (address >> 8);
        cdb.bytes[4] = (uint8_t) chunk;
        for (int i = 0; i < std::min(chunk, remaining); ++i)
            cdb.bytes[eepromDataOffset + i] = data[i];
        if (!sendCommand(&cdb, 16, false) || !takeReply().statusU())
            return false;

        address += chunk;
        data += std::min(chunk, remaining);
        remaining -= chunk;
    }
    return true;
}

bool XferDock::readDiskpackEeprom(int address, int count, unsigned char* data)
{
    if (!eepromSpanAddressable(address, count))
        return false;
    int remaining = count;
    while (remaining > 0)
    {
        const int chunk = std::min(eepromPageSize - address % eepromPageSize, remaining);
        const auto reply = exchange(eepromReadSubcode, { address, address >> 8, chunk }, eepromReadReplyLength);
        if (reply.isEmpty())
            return false;
        // A page the dock could not read leaves its bytes as they were.
        if (reply.statusU())
            for (int i = 0; i < chunk; ++i)
                data[i] = reply[(size_t) (2 + i)];
        address += chunk;
        data += chunk;
        remaining -= chunk;
    }
    return true;
}

bool XferDock::getDiskpackId(int& id)
{
    const auto reply = exchange(diskpackIdSubcode, {});
    if (!reply.statusU())
    {
        logLine("Diskpack ID is invalid.");
        return false;
    }
    id = reply[2];
    return true;
}

bool XferDock::getDiskSerialNumber(int index, juce::String& serial)
{
    if (index >= numDisks)
    {
        logLine("Disk ID cannot be grerater than 1.");
        return false;
    }
    const auto reply = exchange(diskSerialSubcode, { index }, longReplyLength);
    const int length = reply[3];
    if (reply.isEmpty() || reply[1] != (uint8_t) index || reply[2] != 'U' || length == 0)
    {
        logLine("Error in serial number");
        return false;
    }
    serial.clear();
    for (int i = 0; i < length && reply[(size_t) (4 + i)] != 0; ++i)
        serial << (juce::juce_wchar) reply[(size_t) (4 + i)];
    return true;
}

bool XferDock::getVoltageRail(XferDockVoltageRail rail, int& millivolts)
{
    const auto reply = exchange(voltageRailSubcode, { static_cast<int>(rail) });
    if (!reply.statusU())
        return false;
    millivolts = reply.littleEndian16(2);
    return true;
}

bool XferDock::setDockLed(bool automatic, int red, int green, int blue, bool flash)
{
    return exchange(dockLedSubcode, { automatic ? 1 : 0, red, green, blue, flash ? 1 : 0 }).statusU();
}

bool XferDock::beginFirmwareUpgrade()
{
    // The dock restarts into its loader and leaves the bus.
    CDB16 cdb;
    cdb.bytes[0] = CDB16::firmwareUpgradeOpcode;
    cdb.bytes[1] = 0x00;
    cdb.bytes[2] = 0x40;
    cdb.bytes[3] = 0xC0;
    if (!sendCommand(&cdb, 16, true))
        return false;
    takeReply();
    return true;
}
