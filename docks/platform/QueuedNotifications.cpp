#include "docks/platform/QueuedNotifications.h"

void QueuedNotificationPort::post(std::function<void()> delivery)
{
    std::shared_ptr<juce::WaitableEvent> toWake;
    {
        std::lock_guard<std::mutex> guard(mutex);
        pending.push_back(std::move(delivery));
        toWake = wake;
    }
    if (toWake != nullptr)
        toWake->signal();
}

void QueuedNotificationPort::attach(std::shared_ptr<juce::WaitableEvent> wakeEvent)
{
    std::lock_guard<std::mutex> guard(mutex);
    wake = std::move(wakeEvent);
    if (!pending.empty())
        wake->signal();
}

bool QueuedNotificationPort::deliverPending()
{
    std::deque<std::function<void()>> batch;
    {
        std::lock_guard<std::mutex> guard(mutex);
        batch.swap(pending);
    }
    // Delivered outside the lock: a completion may start the next call, which
    // can post to this same port.
    for (auto& delivery : batch)
        delivery();
    return !batch.empty();
}

void QueuedNotificationLoop::addPort(DockPlatform::NotificationPort& port)
{
    // Only ports of this family can be driven by this loop.
    if (auto* queued = dynamic_cast<QueuedNotificationPort*>(&port))
    {
        queued->attach(wake);
        ports.addIfNotAlreadyThere(queued);
    }
}

void QueuedNotificationLoop::run()
{
    while (!stopped.load())
    {
        bool delivered = false;
        for (auto* port : ports)
            delivered = port->deliverPending() || delivered;
        if (!delivered)
            wake->wait(100);
    }
}

void QueuedNotificationLoop::stop()
{
    stopped = true;
    wake->signal();
}
