#include "support/TestBoard.h"

#include "support/PtyPeer.h"

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
    return waitUntil([&] { return events().size() >= n; }, timeoutMs);
}
