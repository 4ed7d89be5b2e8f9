#include "support/BoardTestKit.h"

using namespace boardtest;
using Remote = ScriptedBoardTest<Scripted<RemoteBoard>>;

// The plain calls are checked by the console's key rows, touch events against the emulator.
TEST_F(Remote, SettersPollAndTwoGraphicsFailuresSilencingIt)
{
    const unsigned char byte = 0x42;
    board.setContrast(0x1C); // one digit: the high nibble is dropped
    board.setColour(4, 5, 6, 7); // masked to two bits each
    board.enableQtEvents(false);
    // A poll is ready only on a zero.
    board.willFail();
    EXPECT_FALSE(board.poll());
    board.willReply("R00"); // two digits where one is due
    EXPECT_FALSE(board.poll());
    board.willReply("R1"); // busy
    EXPECT_FALSE(board.poll());
    board.willFail();
    EXPECT_FALSE(board.graphicsCommand(1, &byte));
    board.willReply("R0");
    EXPECT_TRUE(board.poll()) << "one failure is not enough";
    EXPECT_TRUE(board.graphicsCommand(1, &byte));
    board.willFail();
    EXPECT_FALSE(board.graphicsCommand(1, &byte));
    EXPECT_EQ(board.getGraphicsFailureCount(), 2);
    EXPECT_FALSE(board.poll());
    EXPECT_EQ(board.sent, (juce::StringArray { "CC", "FC6", "Q0", "@", "@", "@", "G42", "@", "G42", "G42" }));
}

TEST_F(Remote, EventsAreDecodedAndFilteredByMask)
{
    // The console's event lines check most of the decoding; here the masks and the touch lines' groups.
    RemoteHeard keys(RemoteBoardEventListener::keyEventBit | RemoteBoardEventListener::encoderEventBit),
        touch(RemoteBoardEventListener::signalEventBit | RemoteBoardEventListener::referenceEventBit);
    board.registerListener(&keys);
    board.registerListener(&touch);

    // In the reference line the incomplete third group is dropped.
    feed({ "k0102", "r7F", "eFF", "dBoot ok: v1", "q000100020003000400050006000700080009000A000B",
           "f00100020003", "g12" });

    EXPECT_EQ(keys.calls(), (Calls { "key 258", "encoder -1" }));
    EXPECT_EQ(touch.calls(), (Calls { "sig 1 2 3 4 5 6 7 8 9 10", "ref 16 32 0 0 0 0 0 0 0 0" }));
    EXPECT_EQ(log.lines(), unknownEvents("RemoteBoardEventListener", "g"));
}
