#pragma once

#include "boards/DiskpackLedMode.h"
#include "boards/SasPhyConnectSpeed.h"
#include "link/ControlBoard.h"

#include <array>
#include <cstdint>

/** Events of the desktop transfer station board. */
class DesktopBoardEventListener : public HardwareBoardEventListener
{
public:
    static constexpr uint32_t diskpackTemperatureBit = 1;
    static constexpr uint32_t leverBit = 2;
    static constexpr uint32_t diskpackBit = 4;
    static constexpr uint32_t ledBit = 8;
    static constexpr uint32_t debugBit = 16;
    static constexpr uint32_t allEvents = 31;

    explicit DesktopBoardEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    // Listeners built against this interface call the operations by position:
    // keep their order, and add new ones after the last.
    /** Free text the firmware prints for its developers. */
    virtual void debugEvent(const juce::String& text) = 0;
    /** Signed degrees Celsius. */
    virtual void diskpackTemperatureEvent(int degrees) = 0;
    virtual void leverEvent(bool open) = 0;
    virtual void diskpackEvent(bool present) = 0;
    /** The LED state as the board reports it (two bits per LED). */
    virtual void ledEvent(int state) = 0;
};

/** The controller of the desktop transfer station: one diskpack slot, a
    battery, temperatures and a 12-PHY SAS expander reached through the
    pass-through command E with 24-bit register addresses. */
class DesktopBoard : public ControlBoard
{
public:
    static constexpr int numPhys = 12;
    static constexpr int firstDiskPhy = 8;   // disks and the rate/reset controls live on PHYs 8..11
    static constexpr int numDisks = 4;
    static constexpr int eepromBlockSize = 32;
    static constexpr int eepromBlocks = 10;
    static constexpr int eepromSize = eepromBlockSize * eepromBlocks;

    /** Result codes of sasProgramEeprom. */
    enum ProgramResult
    {
        programOk = 0,
        programBadSerial = 1,
        programWriteFailed = 2,
        programReadFailed = 3,
        programVerifyFailed = 4
    };

    DesktopBoard() = default;
    ~DesktopBoard() override;

    const char* boardIdString() const override;
    void closingBoard() override;
    void eventReceived(const juce::String& line) override;

    bool resetEeprom();
    bool getBatteryVoltage(int& mV);
    bool getDiskpackId(int& id);
    bool getDiskpackGuid(juce::String& guid);
    bool setDiskpackWriteProtect(bool protect);
    bool getDiskpackWriteProtect(bool& isProtected);
    bool enableDiskpackTemperatureEvents(bool enable);
    bool getOperatingHours(int& hours);
    bool getMinMaxTemperatures(int& min, int& max);
    /** LED 0 for which == 0, LED 1 otherwise. Sent only when the state changes. */
    bool setDiskpackLed(int which, DiskpackLedMode mode);
    bool setDiskpackPower(bool on);
    bool setLedId(int id);

    bool sasGetExpanderAddr(juce::String& addr);
    /** Disk 0..3; an empty bay reads as sixteen zeros. */
    bool sasGetDiskAddr(int disk, juce::String& addr);
    bool sasReset();
    /** Writes the configuration image with this unit's serial (0..4095) into
        the expander's EEPROM block by block, verifying each block, and resets
        the expander. Returns a ProgramResult. */
    int sasProgramEeprom(int serial);
    bool getPhyErrorCount(int phy, int& count);
    bool clearErrorCounts();
    /** PHYs 8..11 only, and 1.5 or 3 Gbit/s only. */
    bool setPhyMinMaxSpeed(int phy, SasPhyConnectSpeed min, SasPhyConnectSpeed max);
    bool resetPhy(int phy);

    /** The LED state as last sent (or as it would have been sent). */
    int getLedState() const noexcept { return ledState; }

    using EepromImage = std::array<unsigned char, eepromSize>;

    /** The expander's configuration EEPROM image. Programming writes the
        serial number and checksums into it, so it always holds what was last
        programmed. */
    const EepromImage& getEepromImage() const noexcept { return eepromImage; }

private:
    bool writeRegister(uint32_t reg, uint32_t value);

    static EepromImage makeFactoryImage();

    EepromImage eepromImage = makeFactoryImage();

    int ledState = 0;

    JUCE_DECLARE_NON_COPYABLE(DesktopBoard)
};
