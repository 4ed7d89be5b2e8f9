#pragma once

#include "docks/platform/DockPlatform.h"

#include <IOKit/IOKitLib.h>

/** A driver kit notification port: the kit sends the completion of an
    asynchronous call to its mach port, and the port's run-loop source turns
    that message into a call of the completion's callback on whichever thread
    runs a run loop holding the source. */
class IOKitNotificationPort : public DockPlatform::NotificationPort
{
public:
    IOKitNotificationPort();
    ~IOKitNotificationPort() override;

    IOKitNotificationPort(const IOKitNotificationPort&) = delete;
    IOKitNotificationPort& operator=(const IOKitNotificationPort&) = delete;

    unsigned long machPort() const override;

    /** False when the kit could not make the port; nothing can be started on it. */
    bool isValid() const { return port != nullptr; }
    /** Where the kit sends the completions of calls started with this port. */
    mach_port_t wakePort() const;
    /** Borrowed from the port: valid as long as the port is. */
    CFRunLoopSourceRef runLoopSource() const;

private:
    IONotificationPortRef port = nullptr;
};
