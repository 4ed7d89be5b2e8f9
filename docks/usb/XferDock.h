#pragma once

#include "docks/usb/USBDockBoard.h"
#include "docks/usb/XferDockEventListener.h"
#include "docks/usb/XferDockVoltageRail.h"

#include <initializer_list>

/** The USB 3.0 transfer dock with one diskpack bay: its command set over the
    USB dock link, and its status changes turned into listener events. */
class XferDock : public USBDockBoard
{
public:
    static constexpr int statusLength = 13;
    static constexpr int eepromSize = 512;
    static constexpr int eepromPageSize = 32;
    static constexpr int eepromWriteChunk = 11;
    /** The command block carries an EEPROM address in two bytes. */
    static constexpr int eepromAddressSpace = 0x10000;

    /** True when each of the `count` bytes from `address` on has an address
        the command block can carry; a span of no bytes always has. Safe for
        any ints. */
    static bool eepromSpanAddressable(int address, int count) noexcept
    {
        return count < 1 || (address >= 0 && count <= eepromAddressSpace - address);
    }

    explicit XferDock(std::shared_ptr<DockPlatform> platform, int statusPeriodMs = StatusPoller::defaultPeriodMs);
    ~XferDock() override;

    const char* boardIdString() const override { return "USB 3.0 Dock"; }

    bool getStatusUpdate() override;
    bool getFirmwareRevision(juce::String& revision) override;

    bool setDiskpackPower(bool on);
    bool setDiskpackLed(int red, int green, int blue, bool flash, bool activity);
    /** Leaves the dock's reply held by the link. */
    bool getDriveLED();
    bool getDiskpackGuid(juce::String& guid);
    bool getDiskpackWriteProtect(bool& writeProtected);
    bool setDiskpackWriteProtect(bool protect);
    bool getDiskpackTemp(int& degrees);
    /** A span past byte 512 is reported and written all the same; one the
        command block cannot address is reported and refused. */
    bool writeDiskpackEeprom(int address, int count, const unsigned char* data);
    /** Refuses a span the command block cannot address. */
    bool readDiskpackEeprom(int address, int count, unsigned char* data);
    bool getDiskpackId(int& id);
    bool getDiskSerialNumber(int index, juce::String& serial);
    bool getVoltageRail(XferDockVoltageRail rail, int& millivolts);
    bool setDockLed(bool automatic, int red, int green, int blue, bool flash);
    bool beginFirmwareUpgrade();

    /** The write protection last reported by a status change. */
    bool storedWriteProtect() const noexcept { return writeProtected; }

private:
    /** Sends subcode with `args` from block byte 2 on and takes the reply. */
    USBDockReply exchange(uint8_t subcode, std::initializer_list<int> args, unsigned int replyLength = 16,
                          bool suppressFailure = false);
    void dispatchEvents();

    // The poller and the console (syncState) both update the status; one
    // update, with its dispatch, runs at a time.
    juce::CriticalSection statusLock;
    uint8_t statusCache[statusLength] = {};
    uint32_t changeMask = 0;
    std::atomic<bool> writeProtected { false };

    JUCE_DECLARE_NON_COPYABLE(XferDock)
};
