#pragma once

#include <juce_core/juce_core.h>

class USBDockBoard;

/** Asks the dock for its status once a period, so that the dock's changes
    reach the listeners as events. A failed request ends the polling until the
    board is opened again. */
class StatusPoller : public juce::Thread
{
public:
    static constexpr int defaultPeriodMs = 1000;
    static constexpr int threadStopTimeoutMs = 2000;

    StatusPoller(USBDockBoard& board, int periodMs = defaultPeriodMs);
    ~StatusPoller() override;

    void run() override;

private:
    USBDockBoard& board;
    const int periodMs;

    JUCE_DECLARE_NON_COPYABLE(StatusPoller)
};
