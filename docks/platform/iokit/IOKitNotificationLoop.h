#pragma once

#include "docks/platform/DockPlatform.h"

#include <CoreFoundation/CoreFoundation.h>

#include <atomic>
#include <mutex>
#include <vector>

/** Runs the run loop of the calling thread with the run-loop sources of its
    driver kit notification ports, so that completions are delivered there. */
class IOKitNotificationLoop : public DockPlatform::NotificationLoop
{
public:
    /** Takes ports made by IOKitDockPlatform; any other kind has nothing to run. */
    void addPort(DockPlatform::NotificationPort& port) override;
    void run() override;
    void stop() override;

private:
    std::vector<CFRunLoopSourceRef> sources; // borrowed from their ports
    std::mutex loopLock;                     // guards runLoop between run() and stop()
    CFRunLoopRef runLoop = nullptr;          // the running thread's loop, borrowed, while run() runs
    std::atomic<bool> stopped { false };
    juce::WaitableEvent idle;                // paces run() while the loop has nothing to wait on
};
