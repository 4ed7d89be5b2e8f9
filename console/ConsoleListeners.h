#pragma once

#include "boards/ChassisBoard.h"
#include "boards/DesktopBoard.h"
#include "boards/DiskpackBoard.h"
#include "boards/RemoteBoard.h"
#include "boards/TransferBoard.h"
#include "boards/XferDualBoard.h"
#include "console/RemoteDisplayDemo.h"

#include <atomic>
#include <cstdint>

// The console's listeners print every event of the open board as one line on
// standard output. They run on the board's event thread and flush at once, so
// an event shows even while a menu prompt waits for its answer.

class AVRDiskpackEventListener : public DiskpackBoardEventListener
{
public:
    explicit AVRDiskpackEventListener(uint32_t mask) : DiskpackBoardEventListener(mask) {}
    void diskpackTemperatureEvent(int degrees) override;
    void diskpackButtonEvent(int code) override;
    void diskpackLedEvent(bool on) override;
};

class AVRChassisEventListener : public ChassisBoardEventListener
{
public:
    explicit AVRChassisEventListener(uint32_t mask) : ChassisBoardEventListener(mask) {}
    void bayEvent(int bay, bool present, bool locked) override;
    void dvdEjectEvent() override;
    void volumeEvent(int volume) override;
    void brightnessEvent(int brightness) override;
    void shuttleEvent(int position) override;
    void buttonEvent(int code) override;
};

/** The events of the one diskpack slot that the desktop and the transfer
    station both have, printed alike. */
template <class Listener>
class DiskpackSlotEventPrinter : public Listener
{
public:
    explicit DiskpackSlotEventPrinter(uint32_t mask) : Listener(mask) {}
    void diskpackTemperatureEvent(int degrees) override;
    void diskpackEvent(bool present) override;
    void ledEvent(int state) override;
};

class AVRTransferEventListener : public DiskpackSlotEventPrinter<TransferBoardEventListener>
{
public:
    explicit AVRTransferEventListener(uint32_t mask) : DiskpackSlotEventPrinter(mask) {}
    void doorEvent(bool open) override;
};

class AVRDesktopEventListener : public DiskpackSlotEventPrinter<DesktopBoardEventListener>
{
public:
    explicit AVRDesktopEventListener(uint32_t mask) : DiskpackSlotEventPrinter(mask) {}
    /** The firmware's developer chatter is of no use at the bench. */
    void debugEvent(const juce::String& text) override;
    void leverEvent(bool open) override;
};

class AVRXferDualEventListener : public XferDualBoardEventListener
{
public:
    explicit AVRXferDualEventListener(uint32_t mask) : XferDualBoardEventListener(mask) {}
    void systemTemperatureEvent(int boardDegrees, int sasDegrees) override;
    void diskpackTemperatureEvent(int which, int degrees) override;
    void diskpackEvent(int which, bool present, bool fault) override;
    void ejectButtonEvent(int which, bool down) override;
    void diskpackLedEvent(int which, bool on) override;
    /** Fan reports come often; they go out with the next flushed line. */
    void diskFanSpeedEvent(int which, int speed) override;
    void debugEvent(const juce::String& text) override;
};

/** Also feeds key, rotor and encoder events to the remote display
    demonstration's menu while it runs. */
class AVRRemoteEventListener : public RemoteBoardEventListener
{
public:
    AVRRemoteEventListener(uint32_t mask, RemoteDisplayDemo& displayDemo)
        : RemoteBoardEventListener(mask), demo(displayDemo)
    {
    }
    void keyEvent(int keys) override;
    void rotorEvent(int rotor) override;
    void encoderEvent(int delta) override;
    void debugEvent(const char* text) override;
    /** Printed without a line end: successive signal reports overwrite each
        other on one terminal line until a reference report ends it. */
    void signalEvent(const unsigned short* values) override;
    void referenceEvent(const unsigned short* values) override;

private:
    RemoteDisplayDemo& demo;
    // Only the board's event thread touches these.
    uint32_t lastKey = 0;
    uint32_t lastRotor = 0;
};
