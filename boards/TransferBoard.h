#pragma once

#include "boards/DiskpackLedMode.h"
#include "link/ControlBoard.h"

/** Events of the transfer station controller. */
class TransferBoardEventListener : public HardwareBoardEventListener
{
public:
    static constexpr uint32_t diskpackTemperatureEventBit = 1;
    static constexpr uint32_t doorEventBit = 2;
    static constexpr uint32_t diskpackEventBit = 4;
    static constexpr uint32_t ledEventBit = 8;
    static constexpr uint32_t allEvents = 15;

    explicit TransferBoardEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    /** Signed degrees Celsius. */
    virtual void diskpackTemperatureEvent(int degrees) = 0;
    virtual void doorEvent(bool open) = 0;
    /** A diskpack was inserted (true) or removed (false). */
    virtual void diskpackEvent(bool present) = 0;
    virtual void ledEvent(int state) = 0;
};

/** The transfer station controller: one diskpack slot, internal disks and an
    optional tape drive, a fan, a battery, temperatures and SAS addresses.

    The board's LED and power controls are write-only whole values, so the
    last values sent are kept here and a single field is changed by sending
    the whole value again. */
class TransferBoard : public ControlBoard
{
public:
    static constexpr int powerDiskpackBit = 1;
    static constexpr int powerInternalDisksBit = 2;
    static constexpr int powerTapeDriveBit = 4;
    static constexpr int sasAddressLength = 16;

    TransferBoard() = default;
    ~TransferBoard() override;

    const char* boardIdString() const override { return "Transfer Station board"; }
    void eventReceived(const juce::String& line) override;

    bool resetEeprom();
    bool getBatteryVoltage(int& mV);
    bool getBatteryCapacity(int& percent);
    /** 65535 is passed on unchanged: the board has no current reading. */
    bool getBatteryCurrent(int& mA);
    /** Clamped to 0..255. */
    bool setFanSpeed(int speed);
    int getMaxFanSpeed() const { return 255; }
    /** Below this the fan may not start from standstill. */
    int getMinFanStartSpeed() const { return 50; }
    /** Index 0..5 selects 904, 226, 113, 56 (the board's default), 28 or 7 Hz. */
    bool setFanPwmFreq(int index);
    bool getDiskpackId(int& id);
    bool getDiskpackGuid(juce::String& guid);
    bool setDiskpackWriteProtect(bool on);
    bool getDiskpackWriteProtect(bool& on);
    bool setInternalDisksWriteProtect(bool on);
    bool getInternalDisksWriteProtect(bool& on);
    bool enableDiskpackTemperatureEvents(bool enable);
    bool getOperatingHours(int& hours);
    bool getMinMaxTemperatures(int& minDegrees, int& maxDegrees);
    /** `which` 0 is LED 0, anything else LED 1. Sent only on a change. */
    bool setDiskpackLed(int which, DiskpackLedMode mode);
    bool setDiskpackPower(bool on);
    bool setInternalDiskPower(bool on);
    bool setTapeDrivePower(bool on);
    bool getSasAddr(int port, juce::String& addr);
    /** An empty address gives the port back its own address; anything other
        than 16 bytes is refused. */
    bool setSasAddr(int port, const juce::String& addr);
    /** 0 when the board cannot be asked. */
    int getNumInternalDisks();
    /** false when the board cannot be asked. */
    bool getTapeDriveFitted();
    bool setDevicesFitted(int numDisks, bool tape);

private:
    bool setPowerBit(int bit, bool on);
    bool getFittedDevices(int& value);

    juce::CriticalSection stateLock;
    int ledState = 0;
    int powerState = 0;

    JUCE_DECLARE_NON_COPYABLE(TransferBoard)
};
