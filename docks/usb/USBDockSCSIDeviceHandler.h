#pragma once

#include "docks/usb/CDB16.h"
#include "docks/usb/CallbackThreadRunner.h"
#include "docks/usb/DriverInstance.h"

#include <atomic>
#include <memory>
#include <mutex>
#include <vector>

/** The connection to one dock driver's user client: opens and closes it,
    sends command blocks whose replies arrive on the handler's own callback
    thread, and remembers when a failure showed that the dock has gone. */
class USBDockSCSIDeviceHandler
{
public:
    /** The user client's method selectors. */
    enum USBDockCommand : uint32_t
    {
        openCommand = 0,
        closeCommand = 1,
        execCommand = 2,
        presentCommand = 3
    };

    /** Where a command's outcome goes, on the callback thread. On success the
        receiver owns `buffer` (allocated with new[]); on failure it is null. */
    using ClientCallback = void (*)(void* context, bool success, unsigned char* buffer, unsigned long long length);

    explicit USBDockSCSIDeviceHandler(std::shared_ptr<DockPlatform> platform);
    /** Stops the callback thread before anything a completion could touch goes. */
    ~USBDockSCSIDeviceHandler();

    bool openService(DriverInstance* instance);
    bool openUserClient();
    bool closeUserClient();

    void attachCallback(ClientCallback callback, void* context);

    /** Sends a dock command block; its reply of at most `replyLength` bytes
        comes through the attached callback. With `abortExpected` (a command
        after which the dock drops off the bus) a detach is no failure; the
        flag then stays set for the life of the connection. */
    bool execTarvoCommand(CDB16* cdb, unsigned int replyLength, bool abortExpected);
    /** Lends the driver a zeroed reply buffer and starts the call; returns
        the driver's result (success: a completion will follow). */
    DockPlatform::Result sendCDB(USBDockCommand selector, CDB16* cdb, DockPlatform::AsyncCallback callback,
                                 unsigned int replyLength);

    static void tarvoCommandCallback(void* refcon, DockPlatform::Result result, void** args, uint32_t numArgs);

    void noticeRemoval() noexcept { removedFlag = true; }
    /** True once a failed command showed the device gone. */
    bool removed();

private:
    struct CompletionRecord
    {
        ClientCallback callback = nullptr;
        USBDockSCSIDeviceHandler* handler = nullptr;
        void* context = nullptr;
        std::atomic<bool> abortExpected { false };
    };

    void complete(bool success, unsigned char* buffer, unsigned long long length);
    /** Frees a reply buffer the driver has given back; false when it is not one of ours. */
    bool reclaimDriverBuffer(unsigned char* buffer);

    std::shared_ptr<DockPlatform> platform;
    CompletionRecord completion;
    std::unique_ptr<CallbackThreadRunner> runner;
    std::unique_ptr<DockPlatform::NotificationPort> notificationPort;
    DockPlatform::Connection connection = 0;
    std::atomic<bool> removedFlag { false };

    // Reply buffers lent to the driver. A completion that never comes would
    // leave its buffer out for good; they are all freed when the handler goes.
    std::mutex driverBuffersLock;
    std::vector<std::unique_ptr<unsigned char[]>> driverBuffers;

    JUCE_DECLARE_NON_COPYABLE(USBDockSCSIDeviceHandler)
};
