#pragma once

#include "link/ControlBoard.h"

#include <deque>
#include <vector>

/** Wraps a board class so that its transport records every command line and
    answers from a script instead of a serial port. With nothing scripted a
    command succeeds with "OK" (or an empty "R" response when one is wanted). */
template <class Board>
class Scripted : public Board
{
public:
    struct Reply
    {
        bool ok;
        juce::String line;
    };

    /** Queues the reply line for the next command. */
    void willReply(const juce::String& line, bool ok = true) { replies.push_back({ ok, line }); }
    /** Queues a transport failure for the next command. */
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
        auto next = replies.front();
        replies.pop_front();
        reply = next.line;
        return next.ok;
    }

    /** The one line sent since the last call (fails the test if not exactly one). */
    juce::String lastSent() const { return sent.isEmpty() ? juce::String() : sent[sent.size() - 1]; }
    void clearSent()
    {
        sent.clear();
        expected.clear();
    }

    juce::StringArray sent;
    juce::Array<bool> expected;
    std::deque<Reply> replies;
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

    /** Stretches the event thread's idle pause (set before the board opens),
        to see what ends it early. */
    int pauseMs = 0;

    /** Event lines delivered so far, in order. */
    juce::StringArray events() const;
    /** Waits until at least n events arrived (false on timeout). */
    bool waitForEvents(int n, int timeoutMs = 10000) const;

    /** The listeners an event with `bit` would reach, in the order it reaches them. */
    std::vector<HardwareBoardEventListener*> listenersFor(uint32_t bit)
    {
        std::vector<HardwareBoardEventListener*> reached;
        forEachListener(bit, [&](HardwareBoardEventListener& l) { reached.push_back(&l); });
        return reached;
    }

    using ControlBoard::pendingEvents;

private:
    const char* idString;
    int baudRate;
    bool usbPort;
    mutable juce::CriticalSection eventLock;
    juce::StringArray received;
};

using ScriptedTestBoard = Scripted<TestBoard>;
