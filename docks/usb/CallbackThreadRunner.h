#pragma once

#include "docks/platform/DockPlatform.h"

#include <memory>

/** The thread on which the driver's command completions arrive: it runs a
    notification loop over the ports added before it starts. */
class CallbackThreadRunner : public juce::Thread
{
public:
    static constexpr int threadStopTimeoutMs = 2000;

    explicit CallbackThreadRunner(DockPlatform& platform);
    /** Ends the loop and the thread; no completion runs after this returns. */
    ~CallbackThreadRunner() override;

    /** Adds a port whose completions this thread delivers. Call before
        startThread(); the port must outlive the runner. */
    void addNotificationPort(DockPlatform::NotificationPort& port);

    void run() override;

private:
    juce::Array<DockPlatform::NotificationPort*> ports;
    std::unique_ptr<DockPlatform::NotificationLoop> loop;

    JUCE_DECLARE_NON_COPYABLE(CallbackThreadRunner)
};
