#pragma once

#include "boards/SasPhyConnectSpeed.h"
#include "link/ControlBoard.h"

#include <cstdint>

/** Events of the dual SAS transfer board. `which` is the diskpack, 0 or 1, as
    the board reports it (not range-checked). */
class XferDualBoardEventListener : public HardwareBoardEventListener
{
public:
    static constexpr uint32_t systemTemperatureBit = 1;
    static constexpr uint32_t diskpackTemperatureBit = 2;
    static constexpr uint32_t diskpackBit = 4;
    static constexpr uint32_t ejectButtonBit = 8;
    static constexpr uint32_t diskpackLedBit = 16;
    static constexpr uint32_t debugBit = 32;
    static constexpr uint32_t diskFanSpeedBit = 64;
    static constexpr uint32_t allEvents = 127;

    explicit XferDualBoardEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    // Listeners built against this interface call the operations by position:
    // keep their order, and add new ones after the last.
    virtual void systemTemperatureEvent(int boardDegrees, int sasDegrees) = 0;
    virtual void diskpackTemperatureEvent(int which, int degrees) = 0;
    virtual void diskpackEvent(int which, bool present, bool fault) = 0;
    virtual void ejectButtonEvent(int which, bool down) = 0;
    virtual void diskpackLedEvent(int which, bool on) = 0;
    virtual void diskFanSpeedEvent(int which, int speed) = 0;
    virtual void debugEvent(const juce::String& text) = 0;
};

/** The controller of a two-diskpack SAS transfer drive, with a SAS expander
    reached through the pass-through command E using 32-bit register addresses.
    Keeps no state of its own. */
class XferDualBoard : public ControlBoard
{
public:
    static constexpr int minFanSpeed = 85;
    static constexpr int maxFanSpeed = 255;
    static constexpr int maxEepromTransfer = 32;
    static constexpr int numPhys = 36;
    static constexpr int numPorts = 4;

    XferDualBoard() = default;
    ~XferDualBoard() override;

    const char* boardIdString() const override;
    void closingBoard() override;
    void eventReceived(const juce::String& line) override;

    bool resetEeprom();
    /** Rails 0..4 are 1V0, 1V8, 3V3, 5V and 12V; the value is in millivolts. */
    bool getVoltageRail(int rail, int& value);
    bool getOperatingHours(int& hours);
    /** Zone 0 and 1 are the diskpacks, 2 the system. */
    bool getMinMaxTemperatures(int zone, int& min, int& max);
    bool enableSysTemperatureEvents(bool enable);

    /** 0 stops the fan, 85..255 set it; 1..84 and above 255 are refused. */
    bool setFanSpeed(int speed);
    int getMinFanSpeed() const { return minFanSpeed; }
    int getMaxFanSpeed() const { return maxFanSpeed; }
    bool setFanAuto(bool autoMode);
    bool setLedId(int id);

    bool getDiskpackId(int which, int& id);
    bool getDiskpackGuid(int which, juce::String& guid);
    bool enableDiskpackTemperatureEvents(int which, bool enable);
    /** Colours are 0..3 and clamped into that range. */
    bool setDiskpackLed(int which, int red, int green, int blue, bool flash, bool activity);
    bool setDiskpackPower(int which, bool on);
    bool setDiskpackWriteProtect(int which, bool protect);
    bool getDiskpackWriteProtect(int which, bool& isProtected);

    /** The board always answers with a whole 32-byte page, so `buffer` must
        hold 32 bytes whatever `count` is. Counts above 32 are refused. */
    bool readDiskpackEeprom(int which, int addr, int count, unsigned char* buffer);
    bool writeDiskpackEeprom(int which, int addr, int count, const unsigned char* data);
    bool setDiskFanSpeed(int which, bool autoMode, int speed);

    bool sasGetExpanderAddr(juce::String& addr);
    /** `which` is the diskpack and `disk` the disk within it, each 0 or 1.
        An empty slot reads as sixteen zeros. */
    bool sasGetDiskAddr(int which, int disk, juce::String& addr);
    bool sasReset(bool enableUart);
    bool sasGetPhyErrorCount(int phy, int& count);
    bool sasClearErrorCounts();
    bool sasSetPhyMinMaxSpeed(int port, SasPhyConnectSpeed min, SasPhyConnectSpeed max);
    bool sasResetPhy(int port);

private:
    /** A per-diskpack command, `which` packed above its value; refused when
        a `which` out of all reason leaves no int to carry it. */
    bool sendForDiskpack(char letter, long long argument, int digits);
    bool readRegister(uint32_t reg, uint32_t& value);
    bool writeRegister(uint32_t reg, uint32_t value);
    bool readSasAddress(uint32_t reg, juce::String& addr);

    JUCE_DECLARE_NON_COPYABLE(XferDualBoard)
};
