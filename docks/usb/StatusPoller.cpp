#include "docks/usb/StatusPoller.h"

#include "docks/usb/USBDockBoard.h"

StatusPoller::StatusPoller(USBDockBoard& b, int period) : juce::Thread("StatusPoller"), board(b), periodMs(period) {}

StatusPoller::~StatusPoller()
{
    stopThread(threadStopTimeoutMs);
}

void StatusPoller::run()
{
    while (!threadShouldExit())
    {
        wait(periodMs);
        if (threadShouldExit() || !board.isAvailableForCallback())
            return;
        if (!board.getStatusUpdate())
            return;
    }
}
