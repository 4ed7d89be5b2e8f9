#pragma once

#include "docks/usb/CDB16.h"
#include "docks/usb/DriverInstanceList.h"
#include "docks/usb/StatusPoller.h"
#include "docks/usb/USBDockReply.h"
#include "docks/usb/USBDockSCSIDeviceHandler.h"
#include "link/HardwareBoard.h"

#include <atomic>
#include <memory>
#include <mutex>

/** The board link for a dock behind the USB dock driver: one command block at
    a time, each waiting for its reply; a watch on the board's own thread that
    closes the board once the dock has gone; and a status poll that the dock
    class turns into events.

    Dock classes must call shutDown() first thing in their own destructor: the
    poll and the replies call into the dock class, which is gone by the time
    this destructor runs. */
class USBDockBoard : public HardwareBoard
{
public:
    static constexpr const char* driverName = "com_tarvoworks_driver_usbDockDriver";
    static constexpr int replyTimeoutMs = 1000;
    static constexpr int removalCheckMs = 500;
    static constexpr int removalRecheckMs = 20;
    static constexpr int threadStopTimeoutMs = 2000;

    explicit USBDockBoard(std::shared_ptr<DockPlatform> platform, int statusPeriodMs = StatusPoller::defaultPeriodMs);
    ~USBDockBoard() override;

    void run() override;
    /** Opens the `boardId`th dock in discovery order. */
    bool findAndOpen(int boardId) override;
    bool syncState() override;
    /** Only marks the board closed; its threads run on until it is destroyed. */
    void closeBoard(bool fromOwnThread) override;

    // --- further slots, in this order ---
    /** A command's outcome, on the callback thread; takes `buffer`. */
    virtual void callbackWithBuffer(bool ok, unsigned char* buffer, unsigned long long length);
    virtual bool getStatusUpdate() = 0;
    virtual bool getFirmwareRevision(juce::String& revision) = 0;

    /** Sends one block and waits for its reply, which on success stays held
        for the caller to take. `suppressFailure` marks a command after which
        the dock may drop off the bus; from then on until the next open,
        failures go unreported. */
    bool sendCommand(CDB16* cdb, unsigned int replyLength, bool suppressFailure);

    bool isAvailableForCallback() const noexcept { return !closing; }

    /** Where the driver's completions end up: the board, when it still exists. */
    static void commandCallback(void* context, bool ok, unsigned char* buffer, unsigned long long length);

    /** True once a failed command showed the dock gone (or nothing was opened). */
    bool deviceRemoved();
    bool isStatusPolling() const { return poller->isThreadRunning(); }
    juce::String getSerialNumber() const { return serialNumber; }
    int32_t getLocationID() const noexcept { return locationID; }

protected:
    /** The held reply, now the caller's. Empty when none is held. */
    USBDockReply takeReply();
    /** Stops everything that could call into the dock class; safe to repeat. */
    void shutDown();

private:
    void stopThreads();
    bool handlerRemoved();

    std::shared_ptr<DockPlatform> platform;
    std::unique_ptr<USBDockSCSIDeviceHandler> handler;
    juce::WaitableEvent replyArrived; // auto-reset
    std::unique_ptr<DriverInstanceList> drivers;
    std::unique_ptr<StatusPoller> poller;

    // Written by the callback thread, taken by the waiting command. Not
    // cleared before a command: a reply left in place is judged by the next
    // command that gets none of its own.
    std::mutex replyLock;
    std::unique_ptr<unsigned char[]> reply;
    unsigned long long replyLength = 0;

    juce::String serialNumber;
    int32_t locationID = 0;
    std::atomic<bool> suppressFailure { false };
    std::atomic<bool> closing { false };

    JUCE_DECLARE_NON_COPYABLE(USBDockBoard)
};
