#include "support/BoardTestKit.h"

using namespace boardtest;
using Transfer = ScriptedBoardTest<Scripted<TransferBoard>>;

TEST_F(Transfer, CommandsPutTheirArgumentOnTheWireAndDecodeTheReply)
{
    // The console's key rows send the plain calls; these are the clamps, refusals, off cases and kept state.
    EXPECT_TRUE(board.setFanSpeed(-1));
    EXPECT_FALSE(board.setFanPwmFreq(6) || board.setFanPwmFreq(-1));
    EXPECT_TRUE(board.setFanPwmFreq(5));
    board.setDiskpackWriteProtect(false);
    board.setInternalDisksWriteProtect(false);
    EXPECT_FALSE(board.setSasAddr(2, "5000C5001234567") || board.setSasAddr(2, "5000C500123456789"));
    board.setDevicesFitted(4, false);
    EXPECT_EQ(board.sent, (juce::StringArray { "F00", "W5", "X00", "X10", "R04" }));

    // The LED state is sent only on a change, the power state always whole.
    board.clearSent();
    // Any LED other than 0 is LED 1; a mode out of range goes unmasked: 0x17 keeps one digit, a negative none.
    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow) && board.setDiskpackLed(1, diskpackLedFlashSlow)
                && board.setDiskpackLed(0, diskpackLedOn) && board.setDiskpackLed(7, diskpackLedOff)
                && board.setDiskpackLed(0, diskpackLedFlashFast) && board.setDiskpackLed(1, (DiskpackLedMode) 5)
                && board.setDiskpackLed(0, (DiskpackLedMode) -1));
    EXPECT_TRUE(board.setDiskpackPower(true) && board.setTapeDrivePower(true) && board.setDiskpackPower(true)
                && board.setInternalDiskPower(true) && board.setDiskpackPower(false) && board.setTapeDrivePower(false));
    EXPECT_EQ(board.sent, (juce::StringArray { "L8", "L9", "L1", "L3", "L7", "L", "D1", "D5", "D5", "D7", "D6",
                                               "D2" }));
    board.clearSent();

    // The fitted devices share one reply; a failed or short one reads as nothing fitted.
    board.willReply("R0F");
    EXPECT_FALSE(board.getTapeDriveFitted());
    board.willFail();
    EXPECT_EQ(board.getNumInternalDisks(), 0);
    board.willReply("R1");
    EXPECT_FALSE(board.getTapeDriveFitted());
    EXPECT_EQ(board.sent, (juce::StringArray { "N", "N", "N" }));
}

TEST_F(Transfer, EventsReachListenersByMask)
{
    // The console's event lines check the decoding; here the masks.
    TransferHeard door(TransferBoardEventListener::doorEventBit | TransferBoardEventListener::ledEventBit);
    board.registerListener(&door);
    feed({ "pF0", "d1", "i1", "l9", "t20" });
    EXPECT_EQ(door.calls(), (Calls { "door open", "led 9" }));
    EXPECT_EQ(log.lines(), unknownEvents("TransferBoardEventListener", "t"));
}
