#include "docks/platform/iokit/IOKitNotificationPort.h"

#include "docks/platform/iokit/IOKitMainPort.h"

IOKitNotificationPort::IOKitNotificationPort() : port(IONotificationPortCreate(IOKitMainPort::get()))
{
    if (port == nullptr)
        juce::Logger::writeToLog("IOKitNotificationPort: IONotificationPortCreate failed");
}

IOKitNotificationPort::~IOKitNotificationPort()
{
    // Also takes the run-loop source out of every run loop it was added to.
    if (port != nullptr)
        IONotificationPortDestroy(port);
}

unsigned long IOKitNotificationPort::machPort() const
{
    return wakePort();
}

mach_port_t IOKitNotificationPort::wakePort() const
{
    return port != nullptr ? IONotificationPortGetMachPort(port) : 0u;
}

CFRunLoopSourceRef IOKitNotificationPort::runLoopSource() const
{
    return port != nullptr ? IONotificationPortGetRunLoopSource(port) : nullptr;
}
