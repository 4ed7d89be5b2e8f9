#include "docks/usb/CallbackThreadRunner.h"

CallbackThreadRunner::CallbackThreadRunner(DockPlatform& platform)
    : juce::Thread("CallbackThreadRunner"), loop(platform.createNotificationLoop())
{
}

CallbackThreadRunner::~CallbackThreadRunner()
{
    // A loop stopped before it runs returns at once, so there is no window in
    // which the thread could start the loop after this and never end.
    signalThreadShouldExit();
    if (loop != nullptr)
        loop->stop();
    stopThread(threadStopTimeoutMs);
}

void CallbackThreadRunner::addNotificationPort(DockPlatform::NotificationPort& port)
{
    ports.add(&port);
}

void CallbackThreadRunner::run()
{
    if (loop == nullptr)
        return;
    for (auto* port : ports)
        loop->addPort(*port);
    loop->run();
}
