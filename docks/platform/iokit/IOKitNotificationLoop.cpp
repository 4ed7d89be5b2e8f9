#include "docks/platform/iokit/IOKitNotificationLoop.h"

#include "docks/platform/iokit/IOKitNotificationPort.h"

#include <algorithm>

namespace
{
// Length of one run of the run loop: the longest a stop() that falls between
// two runs, when there is no run for CFRunLoopStop to end, waits to be seen.
constexpr CFTimeInterval sliceSeconds = 0.25;
constexpr int sliceMilliseconds = 250;
} // namespace

void IOKitNotificationLoop::addPort(DockPlatform::NotificationPort& port)
{
    auto* kitPort = dynamic_cast<IOKitNotificationPort*>(&port);
    if (kitPort == nullptr || !kitPort->isValid())
        return;
    auto* source = kitPort->runLoopSource();
    if (source != nullptr && std::find(sources.begin(), sources.end(), source) == sources.end())
        sources.push_back(source);
}

void IOKitNotificationLoop::run()
{
    {
        std::lock_guard<std::mutex> guard(loopLock);
        if (stopped.load())
            return;
        runLoop = CFRunLoopGetCurrent();
        for (auto* source : sources)
            CFRunLoopAddSource(runLoop, source, kCFRunLoopDefaultMode);
    }

    while (!stopped.load())
    {
        // A run loop with no source in the mode returns at once; without the
        // wait that would spin.
        if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, sliceSeconds, false) == kCFRunLoopRunFinished)
            idle.wait(sliceMilliseconds);
    }

    // The run loop belongs to this thread and may go with it: stop() must no
    // longer reach it once run() has returned.
    std::lock_guard<std::mutex> guard(loopLock);
    runLoop = nullptr;
}

void IOKitNotificationLoop::stop()
{
    std::lock_guard<std::mutex> guard(loopLock);
    stopped = true;
    if (runLoop != nullptr)
        CFRunLoopStop(runLoop);
    idle.signal();
}
