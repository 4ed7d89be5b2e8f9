#pragma once

#include "link/ControlBoard.h"

#include <deque>
#include <vector>

/** A board whose transport records each command line and answers from a script
    ("OK", or an empty "R" when a response is wanted, once the script runs out). */
template <class Board>
class Scripted : public Board
{
public:
    void willReply(const juce::String& line, bool ok = true) { replies.push_back({ ok, line }); }
    void willFail() { replies.push_back({ false, {} }); }

    bool sendCommandInternal(const juce::String& command, juce::String& reply, bool expectResponse) override
    {
        sent.add(command);
        expected.add(expectResponse);
        if (replies.empty())
        {
            reply = expectResponse ? "R" : "OK";
            return true;
        }
        auto [ok, line] = replies.front();
        replies.pop_front();
        reply = line;
        return ok;
    }

    juce::String lastSent() const { return sent.isEmpty() ? juce::String() : sent[sent.size() - 1]; }
    void clearSent()
    {
        sent.clear();
        expected.clear();
    }

    juce::StringArray sent;
    juce::Array<bool> expected;
    std::deque<std::pair<bool, juce::String>> replies;
};

/** A minimal serial board for exercising the link itself. */
class TestBoard : public ControlBoard
{
public:
    explicit TestBoard(const char* id = "Test board", int baud = 19200, bool usb = true)
        : idString(id), baudRate(baud), usbPort(usb)
    {
    }
    ~TestBoard() override { closeBoard(false); }

    const char* boardIdString() const override { return idString; }
    int getBaudRate() const override { return baudRate; }
    bool isUsb() const override { return usbPort; }
    void eventReceived(const juce::String& line) override;
    int idlePauseMs() const override { return pauseMs > 0 ? pauseMs : ControlBoard::idlePauseMs(); }

    /** Stretches the idle pause (set before opening) to see what ends it early. */
    int pauseMs = 0;

    juce::StringArray events() const;
    bool waitForEvents(int n, int timeoutMs = 10000) const;

    /** The listeners an event with `bit` would reach, in the order it reaches them. */
    std::vector<HardwareBoardEventListener*> listenersFor(uint32_t bit)
    {
        std::vector<HardwareBoardEventListener*> reached;
        forEachListener(bit, [&](HardwareBoardEventListener& l) { reached.push_back(&l); });
        return reached;
    }

private:
    const char* idString;
    int baudRate;
    bool usbPort;
    mutable juce::CriticalSection eventLock;
    juce::StringArray received;
};

using ScriptedTestBoard = Scripted<TestBoard>;
