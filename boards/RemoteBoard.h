#pragma once

#include "link/ControlBoard.h"

#include <atomic>

/** Events of the remote control: keys, rotor, encoder, debug text and the
    touch sensor's signal and reference values. */
class RemoteBoardEventListener : public HardwareBoardEventListener
{
public:
    static constexpr int numTouchValues = 10;

    static constexpr uint32_t keyEventBit = 1;
    static constexpr uint32_t rotorEventBit = 2;
    static constexpr uint32_t debugEventBit = 4;
    static constexpr uint32_t signalEventBit = 8;
    static constexpr uint32_t referenceEventBit = 16;
    static constexpr uint32_t encoderEventBit = 32;
    static constexpr uint32_t allEvents = 63;

    explicit RemoteBoardEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    virtual void keyEvent(int keys) = 0;
    virtual void rotorEvent(int rotor) = 0;
    /** Signed steps since the last report. */
    virtual void encoderEvent(int delta) = 0;
    /** The text is valid for the duration of the call only. */
    virtual void debugEvent(const char* text) = 0;
    /** numTouchValues words, valid for the duration of the call only; words
        the board did not send are 0. */
    virtual void signalEvent(const unsigned short* values) = 0;
    /** As signalEvent, for the reference values. */
    virtual void referenceEvent(const unsigned short* values) = 0;
};

/** The hand-held remote control: a graphic display driven with raw graphics
    commands, contrast, ring brightness and colour, a boot message, a
    readiness poll, and key, rotor, encoder, touch and debug events. */
class RemoteBoard : public ControlBoard
{
public:
    RemoteBoard() = default;
    ~RemoteBoard() override;

    const char* boardIdString() const override { return "Remote Control AVR board"; }
    bool isUsb() const override { return true; }
    int firstSearchPort() const override { return 0; }
    int numSearchPorts() const override { return 9; }
    int getBaudRate() const override { return 115200; }
    void eventReceived(const juce::String& line) override;

    bool setContrast(int contrast);
    bool getContrast(int& contrast);
    bool setRingBright(int brightness);
    bool getRingBright(int& brightness);
    /** Fields are masked to two bits each. */
    bool setColour(int red, int green, int blue, int mode);
    bool setAmbientMode(bool on);
    /** Switches the touch sensor's signal and reference events on or off. */
    bool enableQtEvents(bool on);
    /** Forwards drawing bytes to the display; their meaning is the caller's. */
    bool graphicsCommand(int length, const unsigned char* data);
    bool bootMessage(const char* text);
    /** True when the board reports itself ready. Once two graphics commands
        have failed the display is taken to be gone and this stays false
        without asking. */
    bool poll();

    int getGraphicsFailureCount() const noexcept { return graphicsFailures.load(); }

private:
    std::atomic<int> graphicsFailures { 0 };

    JUCE_DECLARE_NON_COPYABLE(RemoteBoard)
};
