#include "support/PtyPeer.h"
#include "support/TestBoard.h"

#include "boards/RemoteBoard.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace
{
struct Recorder : RemoteBoardEventListener
{
    using RemoteBoardEventListener::RemoteBoardEventListener;
    void keyEvent(int keys) override { calls.push_back("key " + std::to_string(keys)); }
    void rotorEvent(int rotor) override { calls.push_back("rotor " + std::to_string(rotor)); }
    void encoderEvent(int delta) override { calls.push_back("encoder " + std::to_string(delta)); }
    void debugEvent(const char* text) override { calls.push_back(std::string("debug ") + text); }
    void signalEvent(const unsigned short* v) override { calls.push_back("sig" + words(v)); }
    void referenceEvent(const unsigned short* v) override { calls.push_back("ref" + words(v)); }

    static std::string words(const unsigned short* v)
    {
        std::string s;
        for (int i = 0; i < numTouchValues; ++i)
            s += " " + std::to_string(v[i]);
        return s;
    }
    std::vector<std::string> calls;
};

using Calls = std::vector<std::string>;

struct Remote : ::testing::Test
{
    Scripted<RemoteBoard> board;
    LogCapture log;
};
} // namespace

TEST_F(Remote, SettersPutTheirArgumentOnTheWire)
{
    board.setContrast(9);
    board.setContrast(0x1C); // one digit: the high nibble is dropped
    board.setRingBright(15);
    board.setColour(1, 2, 3, 2);
    board.setColour(4, 5, 6, 7); // masked to two bits each
    board.setAmbientMode(true);
    board.enableQtEvents(false);
    board.bootMessage("Starting up");

    const unsigned char bytes[] = { 0x0A, 0xFF, 0x00 };
    EXPECT_TRUE(board.graphicsCommand(3, bytes));
    EXPECT_EQ(board.sent,
              (juce::StringArray { "C9", "CC", "RF", "F9B", "FC6", "P1", "Q0", "MStarting up", "G0AFF00" }));

    int v = 0;
    board.willReply("RA");
    EXPECT_TRUE(board.getContrast(v));
    EXPECT_EQ(v, 10);
    board.willReply("R3");
    EXPECT_TRUE(board.getRingBright(v));
    EXPECT_EQ(v, 3);
    EXPECT_EQ(board.lastSent(), "I");
}

TEST_F(Remote, PollIsReadyOnlyOnZero)
{
    board.willReply("R0");
    EXPECT_TRUE(board.poll());
    board.willReply("R1");
    EXPECT_FALSE(board.poll());
    board.willFail();
    EXPECT_FALSE(board.poll());
    board.willReply("R00"); // two digits where one is due
    EXPECT_FALSE(board.poll());
    EXPECT_EQ(board.sent, (juce::StringArray { "@", "@", "@", "@" }));
}

TEST_F(Remote, TwoGraphicsFailuresSilencePoll)
{
    const unsigned char byte = 0x42;
    board.willFail();
    EXPECT_FALSE(board.graphicsCommand(1, &byte));
    board.willReply("R0");
    EXPECT_TRUE(board.poll()) << "one failure is not enough";
    EXPECT_TRUE(board.graphicsCommand(1, &byte));
    board.willFail();
    EXPECT_FALSE(board.graphicsCommand(1, &byte));
    EXPECT_EQ(board.getGraphicsFailureCount(), 2);
    board.clearSent();

    EXPECT_FALSE(board.poll());
    EXPECT_TRUE(board.sent.isEmpty());
}

TEST_F(Remote, EventsAreDecodedPerKind)
{
    Recorder all;
    board.registerListener(&all);

    board.eventReceived("k0102");
    board.eventReceived("r7F");
    board.eventReceived("eFF");
    board.eventReceived("e05");
    board.eventReceived("dBoot ok: v1");
    board.eventReceived("q000100020003000400050006000700080009000A000B");
    board.eventReceived("f00100020003"); // the incomplete third group is dropped

    EXPECT_EQ(all.calls, (Calls { "key 258", "rotor 127", "encoder -1", "encoder 5", "debug Boot ok: v1",
                                  "sig 1 2 3 4 5 6 7 8 9 10", "ref 16 32 0 0 0 0 0 0 0 0" }));
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Remote, MasksAndUnknownLetters)
{
    Recorder keys(RemoteBoardEventListener::keyEventBit | RemoteBoardEventListener::encoderEventBit);
    Recorder touch(RemoteBoardEventListener::signalEventBit | RemoteBoardEventListener::referenceEventBit);
    board.registerListener(&keys);
    board.registerListener(&touch);

    for (auto* line : { "k1", "r2", "e3", "dx", "q0001", "f0002" })
        board.eventReceived(line);
    EXPECT_EQ(keys.calls, (Calls { "key 1", "encoder 3" }));
    EXPECT_EQ(touch.calls, (Calls { "sig 1 0 0 0 0 0 0 0 0 0", "ref 2 0 0 0 0 0 0 0 0 0" }));

    juce::StringArray expected;
    for (char c : std::string("ghijlmnop"))
    {
        board.eventReceived(juce::String::charToString(c) + "12");
        expected.add(juce::String("RemoteBoardEventListener: received unknown event '") + c + "'");
    }
    EXPECT_EQ(log.lines(), expected);
    EXPECT_EQ(keys.calls.size(), 2u);
    EXPECT_EQ(touch.calls.size(), 2u);
}
