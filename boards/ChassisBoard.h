#pragma once

#include "link/ControlBoard.h"

/** Events of the chassis controller of a multi-bay enclosure. */
class ChassisBoardEventListener : public HardwareBoardEventListener
{
public:
    /** Bay events use one bit per bay: bayEventBit(0) .. bayEventBit(3). */
    static constexpr uint32_t bayEventBit(int bay) { return 1u << bay; }
    static constexpr uint32_t dvdEjectEventBit = 16;
    static constexpr uint32_t volumeEventBit = 32;
    static constexpr uint32_t brightnessEventBit = 64;
    static constexpr uint32_t shuttleEventBit = 128;
    static constexpr uint32_t buttonEventBit = 256;
    static constexpr uint32_t allEvents = 511;

    explicit ChassisBoardEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    virtual void bayEvent(int bay, bool present, bool locked) = 0;
    virtual void dvdEjectEvent() = 0;
    virtual void volumeEvent(int volume) = 0;
    virtual void brightnessEvent(int brightness) = 0;
    /** Signed shuttle position. */
    virtual void shuttleEvent(int position) = 0;
    virtual void buttonEvent(int code) = 0;
};

/** The chassis controller of a four-bay enclosure.

    Each bay has one control byte on the board (fan speed in bits 0-5, locked
    in bit 6, powered in bit 7) which can only be written whole, so the last
    value sent is kept here and the whole byte goes out whenever a field
    changes. A pack must be locked before it is powered and powered down before
    it is unlocked; the setters refuse anything else. */
class ChassisBoard : public ControlBoard
{
public:
    static constexpr int numBays = 4;
    static constexpr int bayFanMask = 0x3F;
    static constexpr int bayLockedBit = 0x40;
    static constexpr int bayPoweredBit = 0x80;

    ChassisBoard() = default;
    ~ChassisBoard() override;

    const char* boardIdString() const override { return "Chassis board"; }
    /** Commits the settings to the board's EEPROM. */
    void closingBoard() override;
    void eventReceived(const juce::String& line) override;

    /** Clamped to 0..31. */
    bool setVolume(int volume);
    int getMaxVolume() const { return 31; }
    /** Clamped to 0..15. */
    bool setBrightness(int brightness);
    int getMaxBrightness() const { return 15; }
    bool setInverter(bool on);

    /** Sends the stored control byte of a bay. */
    bool updateDiskBayCtrl(int bay);
    bool setDiskPackLock(int bay, bool lock);
    bool setDiskPackPower(int bay, bool on);
    /** Clamped to 0..63; nothing is sent when the speed is unchanged. */
    bool setDiskPackFanSpeed(int bay, int speed);
    int getMaxFanSpeed() const { return 63; }
    /** Below this the bay fans may not start from standstill. */
    int getMinFanStartSpeed() const { return 20; }
    int getMaxDiskBays() const { return numBays; }

    bool setLedState(int state);
    /** Fields are masked to two bits each. Firmware "V1.00" has no colour
        control; the call then succeeds without sending. */
    bool setColour(int red, int green, int blue, int mode);
    bool setAmbientMode(bool on);
    bool setScreenSaverEnable(bool on);
    bool resetShuttle();
    /** Only bays 0 and 1 can be asked. Firmware before "V2.5" cannot tell and
        has only bay 0 wired. */
    bool checkBayConnected(int bay, bool& connected);

    /** The command letter of a bay's control byte: A, B, C, D for bays 0..3,
        and A for any other number. */
    static char bayLetter(int bay);

private:
    bool isFirstFirmware() const;
    bool hasBayConnectionQuery() const;
    static bool validBay(int bay) { return bay >= 0 && bay < numBays; }
    /** Sends an all-off byte the first time a bay is touched, so the board and
        this object agree before any field is changed. */
    void initialiseBay(int bay);
    bool changeBayBits(int bay, int clearMask, int setBits);

    // Guards bayControl. Re-entrant, so a setter may hold it across its send.
    juce::CriticalSection bayLock;
    int bayControl[numBays] = { -1, -1, -1, -1 };

    JUCE_DECLARE_NON_COPYABLE(ChassisBoard)
};
