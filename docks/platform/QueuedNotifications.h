#pragma once

#include "docks/platform/DockPlatform.h"

#include <atomic>
#include <deque>
#include <functional>
#include <mutex>

/** A notification port and loop for backends whose completions are produced in
    the process (the emulator's socket reader, the platform with no docks, test
    doubles): a completion is posted to its port from any thread and runs on the
    thread that runs the loop holding the port. */
class QueuedNotificationPort : public DockPlatform::NotificationPort
{
public:
    explicit QueuedNotificationPort(unsigned long number = 0) : number(number) {}

    unsigned long machPort() const override { return number; }

    /** Queues `delivery` to run on the loop's thread. */
    void post(std::function<void()> delivery);

private:
    friend class QueuedNotificationLoop;
    void attach(std::shared_ptr<juce::WaitableEvent> wakeEvent);
    bool deliverPending();

    const unsigned long number;
    std::mutex mutex;
    std::deque<std::function<void()>> pending;
    std::shared_ptr<juce::WaitableEvent> wake;
};

class QueuedNotificationLoop : public DockPlatform::NotificationLoop
{
public:
    void addPort(DockPlatform::NotificationPort& port) override;
    void run() override;
    void stop() override;

private:
    std::shared_ptr<juce::WaitableEvent> wake = std::make_shared<juce::WaitableEvent>();
    juce::Array<QueuedNotificationPort*> ports;
    std::atomic<bool> stopped { false };
};
