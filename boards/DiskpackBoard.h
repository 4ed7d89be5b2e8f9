#pragma once

#include "link/ControlBoard.h"

/** Events of the controller board inside a removable diskpack. */
class DiskpackBoardEventListener : public HardwareBoardEventListener
{
public:
    static constexpr uint32_t buttonEventBit = 1;
    static constexpr uint32_t temperatureEventBit = 2;
    static constexpr uint32_t ledEventBit = 4;
    static constexpr uint32_t allEvents = buttonEventBit | temperatureEventBit | ledEventBit;

    explicit DiskpackBoardEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    /** A temperature report in signed degrees Celsius. */
    virtual void diskpackTemperatureEvent(int degrees) = 0;
    /** A button or key code as the board reported it. */
    virtual void diskpackButtonEvent(int code) = 0;
    virtual void diskpackLedEvent(bool on) = 0;
};

/** The controller board inside a removable diskpack: status LED, write
    protect, front display and stored text pages, battery, temperatures,
    operating hours, identity and backplane rails. It keeps no state of its
    own; every operation is one or two commands. */
class DiskpackBoard : public ControlBoard
{
public:
    static constexpr int maxDisplayTextLength = 40;
    static constexpr int numTextPageSlots = 24;

    DiskpackBoard() = default;
    ~DiskpackBoard() override;

    const char* boardIdString() const override { return "Diskpack board"; }
    void closingBoard() override {}
    void eventReceived(const juce::String& line) override;

    /** Each field is clamped to 0..3. */
    bool setLed(int red, int green, int blue, int flash);
    bool monitorDiskActivity(bool on);
    bool setWriteProtect(bool on);
    bool getWriteProtect(bool& on);
    /** Refused when the text is longer than the display's 40 bytes. */
    bool setDisplayText(const char* text);
    /** Level 0..15 spreads over the display's usable drive range; 16 or more is full. */
    bool setDisplayBrightness(int level);
    bool setScsiIdMsb(bool on);
    bool getBatteryVoltage(int& mV);
    bool getBatteryVoltageRange(int& minMv, int& maxMv) const;
    bool enableTemperatureEvents(bool on);
    /** Selects the page, then writes it; refused for a text over 40 bytes
        or a page outside 0..maxTextPages. */
    bool writeText(int page, const char* text);
    bool readText(int page, juce::String& text);
    /** The highest text page number, and the most pages setNumTextPages takes. */
    static constexpr int maxTextPages = 23;
    int getMaxTextPages() const { return maxTextPages; }
    bool setNumTextPages(int n);
    bool getOperatingHours(int& hours);
    bool getMinMaxTemperatures(int& minDegrees, int& maxDegrees);
    bool getGuid(juce::String& guid);
    bool prepareClosedown();
    bool getParallelScsiType(bool& parallel);
    bool getSasAddr(int port, juce::String& addr);
    bool resetEeprom();
    bool getBackplaneVoltageRail(int group, int rail, int& value);

    /** Splits a min/max temperature reply (min in the high byte, max in the
        low byte, each a signed 8-bit value). Shared with the transfer boards,
        whose firmware reports the same way. */
    static void splitMinMaxTemperatures(int raw, int& minDegrees, int& maxDegrees);

private:
    JUCE_DECLARE_NON_COPYABLE(DiskpackBoard)
};
