#pragma once

// Listeners that write each call down as text, a scripted board with its log, and ways to feed and read.

#include "support/PtyPeer.h"
#include "support/SimProcess.h"
#include "support/TestBoard.h"

#include "boards/ChassisBoard.h"
#include "boards/DesktopBoard.h"
#include "boards/DiskpackBoard.h"
#include "boards/RemoteBoard.h"
#include "boards/TransferBoard.h"
#include "boards/XferDualBoard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <memory>
#include <mutex>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace boardtest
{
using Calls = std::vector<std::string>;

/** The calls a listener received, as text; written on the board's thread, read by the test. */
class Heard
{
public:
    void add(const std::string& call)
    {
        const std::lock_guard<std::mutex> g(m);
        list.push_back(call);
    }
    Calls calls() const
    {
        const std::lock_guard<std::mutex> g(m);
        return list;
    }
    /** Waits for a call that `matches`; on a timeout the message lists what did arrive. */
    template <class Match>
    ::testing::AssertionResult waitFor(const std::string& what, Match matches) const
    {
        const auto arrived = [&] {
            const auto now = calls();
            return std::any_of(now.begin(), now.end(), matches);
        };
        if (waitUntil(arrived, 15000))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "no " << what << " among " << ::testing::PrintToString(calls());
    }
    ::testing::AssertionResult waitFor(const std::string& call) const
    {
        return waitFor("'" + call + "'", [&](const std::string& c) { return c == call; });
    }

private:
    mutable std::mutex m;
    Calls list;
};

inline std::string onOff(bool on, const char* yes, const char* no) { return on ? yes : no; }

struct DiskpackHeard : DiskpackBoardEventListener, Heard
{
    using DiskpackBoardEventListener::DiskpackBoardEventListener;
    void diskpackTemperatureEvent(int degrees) override { add("temp " + std::to_string(degrees)); }
    void diskpackButtonEvent(int code) override { add("button " + std::to_string(code)); }
    void diskpackLedEvent(bool on) override { add(onOff(on, "led on", "led off")); }
};

struct ChassisHeard : ChassisBoardEventListener, Heard
{
    using ChassisBoardEventListener::ChassisBoardEventListener;
    void bayEvent(int bay, bool present, bool locked) override
    {
        add("bay " + std::to_string(bay) + onOff(present, " present", " absent") + onOff(locked, " locked", " unlocked"));
    }
    void dvdEjectEvent() override { add("eject"); }
    void volumeEvent(int v) override { add("volume " + std::to_string(v)); }
    void brightnessEvent(int v) override { add("brightness " + std::to_string(v)); }
    void shuttleEvent(int v) override { add("shuttle " + std::to_string(v)); }
    void buttonEvent(int v) override { add("button " + std::to_string(v)); }
};

struct TransferHeard : TransferBoardEventListener, Heard
{
    using TransferBoardEventListener::TransferBoardEventListener;
    void diskpackTemperatureEvent(int d) override { add("temp " + std::to_string(d)); }
    void doorEvent(bool open) override { add(onOff(open, "door open", "door closed")); }
    void diskpackEvent(bool present) override { add(onOff(present, "pack in", "pack out")); }
    void ledEvent(int state) override { add("led " + std::to_string(state)); }
};

struct RemoteHeard : RemoteBoardEventListener, Heard
{
    using RemoteBoardEventListener::RemoteBoardEventListener;
    void keyEvent(int keys) override { add("key " + std::to_string(keys)); }
    void rotorEvent(int rotor) override { add("rotor " + std::to_string(rotor)); }
    void encoderEvent(int delta) override { add("encoder " + std::to_string(delta)); }
    void debugEvent(const char* text) override { add(std::string("debug ") + text); }
    void signalEvent(const unsigned short* v) override { add("sig" + values(v)); }
    void referenceEvent(const unsigned short* v) override { add("ref" + values(v)); }

    static std::string values(const unsigned short* v)
    {
        std::string s;
        for (int i = 0; i < numTouchValues; ++i)
            s += " " + std::to_string(v[i]);
        return s;
    }
};

struct DesktopHeard : DesktopBoardEventListener, Heard
{
    using DesktopBoardEventListener::DesktopBoardEventListener;
    void debugEvent(const juce::String& t) override { add("debug " + t.toStdString()); }
    void diskpackTemperatureEvent(int d) override { add("temp " + std::to_string(d)); }
    void leverEvent(bool open) override { add(onOff(open, "lever open", "lever closed")); }
    void diskpackEvent(bool present) override { add(onOff(present, "present", "absent")); }
    void ledEvent(int s) override { add("led " + std::to_string(s)); }
};

struct XferDualHeard : XferDualBoardEventListener, Heard
{
    using XferDualBoardEventListener::XferDualBoardEventListener;
    static std::string arg(int v) { return " " + std::to_string(v); }
    void systemTemperatureEvent(int b, int s) override { add("sys" + arg(b) + arg(s)); }
    void diskpackTemperatureEvent(int w, int d) override { add("temp" + arg(w) + arg(d)); }
    void diskpackEvent(int w, bool p, bool f) override
    {
        add("pack" + arg(w) + onOff(p, " present", " absent") + onOff(f, " fault", ""));
    }
    void ejectButtonEvent(int w, bool down) override { add("eject" + arg(w) + onOff(down, " down", " up")); }
    void diskpackLedEvent(int w, bool on) override { add("led" + arg(w) + onOff(on, " on", " off")); }
    void diskFanSpeedEvent(int w, int s) override { add("fan" + arg(w) + arg(s)); }
    void debugEvent(const juce::String& t) override { add("debug " + t.toStdString()); }
};

template <class Board>
struct ScriptedBoardTest : ::testing::Test
{
    Board board;
    LogCapture log;

    void feed(std::initializer_list<const char*> lines)
    {
        for (auto* line : lines)
            board.eventReceived(line);
    }
};

/** What a listener logs for each event letter it does not know. */
inline juce::StringArray unknownEvents(const char* listener, const std::string& letters)
{
    juce::StringArray lines;
    for (char c : letters)
        lines.add(juce::String(listener) + ": received unknown event '" + c + "'");
    return lines;
}

/** The type a getter such as bool get(int which, int& value) reads into: its last parameter's. */
template <class Get>
struct ReadInto;
template <class C, class... P>
struct ReadInto<bool (C::*)(P...)>
{
    using type = std::decay_t<std::tuple_element_t<sizeof...(P) - 1, std::tuple<P...>>>;
};

/** A value a getter must overwrite, which no test expects (a bool has none: expect only true). */
template <class T>
T unread()
{
    if constexpr (std::is_same_v<T, int>)
        return std::numeric_limits<int>::min();
    else if constexpr (std::is_same_v<T, juce::String>)
        return "(unread)";
    else
        return T {};
}

/** Calls a getter, expecting it to succeed, and returns what it read. */
template <class Board, class Get, class... Args>
typename ReadInto<Get>::type read(Board& board, Get get, Args... args)
{
    auto value = unread<typename ReadInto<Get>::type>();
    EXPECT_TRUE((board.*get)(args..., value));
    return value;
}

/** The same, for a scripted board that answers with `reply`. */
template <class Board, class Get, class... Args>
typename ReadInto<Get>::type replied(Board& board, const juce::String& reply, Get get, Args... args)
{
    board.willReply(reply);
    SCOPED_TRACE("reply " + reply.toStdString());
    return read(board, get, args...);
}

/** Calls a getter that reads two ints, such as a lowest and a highest. */
template <class Board, class Get, class... Args>
std::pair<int, int> readPair(Board& board, Get get, Args... args)
{
    std::pair<int, int> values { unread<int>(), unread<int>() };
    EXPECT_TRUE((board.*get)(args..., values.first, values.second));
    return values;
}

/** A private device directory with the emulator publishing boards in it. */
struct SimTest : ::testing::Test
{
    TempDevDir dev;
    std::unique_ptr<SimProcess> sim;

    void start(const std::vector<std::string>& args)
    {
        sim = std::make_unique<SimProcess>(dev.path(), args);
        ASSERT_TRUE(sim->isReady());
    }
    ::testing::AssertionResult control(const std::string& line)
    {
        const auto answer = sim->control(line);
        if (answer == "ok")
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << line << ": " << answer;
    }
};
} // namespace boardtest
