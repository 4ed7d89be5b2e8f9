#include "support/TestBoard.h"

void TestBoard::eventReceived(const juce::String& line)
{
    const juce::ScopedLock sl(eventLock);
    received.add(line);
}

juce::StringArray TestBoard::events() const
{
    const juce::ScopedLock sl(eventLock);
    return received;
}

bool TestBoard::waitForEvents(int n, int timeoutMs) const
{
    const auto deadline = juce::Time::getMillisecondCounter() + (juce::uint32) timeoutMs;
    while (juce::Time::getMillisecondCounter() < deadline)
    {
        if (events().size() >= n)
            return true;
        juce::Thread::sleep(5);
    }
    return events().size() >= n;
}
