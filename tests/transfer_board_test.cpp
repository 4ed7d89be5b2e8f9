#include "support/BoardTestKit.h"

using namespace boardtest;
using Transfer = ScriptedBoardTest<Scripted<TransferBoard>>;

TEST_F(Transfer, CommandsPutTheirArgumentOnTheWireAndDecodeTheReply)
{
    EXPECT_TRUE(board.setFanSpeed(300));
    EXPECT_TRUE(board.setFanSpeed(-1));
    EXPECT_FALSE(board.setFanPwmFreq(6) || board.setFanPwmFreq(-1));
    EXPECT_TRUE(board.setFanPwmFreq(0));
    board.setDiskpackWriteProtect(true);
    board.setDiskpackWriteProtect(false);
    board.setInternalDisksWriteProtect(false);
    EXPECT_TRUE(board.setSasAddr(1, ""));
    EXPECT_FALSE(board.setSasAddr(2, "5000C5001234567") || board.setSasAddr(2, "5000C500123456789"));
    board.setDevicesFitted(2, true);
    board.setDevicesFitted(4, false);
    EXPECT_TRUE(board.resetEeprom());
    EXPECT_EQ(board.sent, (juce::StringArray { "FFF", "F00", "W0", "X01", "X00", "X10", "S1", "R12", "R04", "Z" }));

    // The LED state is sent only on a change, the power state always whole.
    board.clearSent();
    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow));
    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow));
    EXPECT_TRUE(board.setDiskpackLed(0, diskpackLedOn));
    EXPECT_TRUE(board.setDiskpackLed(7, diskpackLedOff)); // any LED other than 0 is LED 1
    EXPECT_TRUE(board.setDiskpackLed(0, diskpackLedFlashFast));
    // An out-of-range mode is passed on unmasked: state 0x17 keeps one digit, a negative one none.
    EXPECT_TRUE(board.setDiskpackLed(1, (DiskpackLedMode) 5));
    EXPECT_TRUE(board.setDiskpackLed(0, (DiskpackLedMode) -1));
    board.setDiskpackPower(true);
    board.setTapeDrivePower(true);
    board.setDiskpackPower(true);
    board.setInternalDiskPower(true);
    board.setDiskpackPower(false);
    board.setTapeDrivePower(false);
    EXPECT_EQ(board.sent, (juce::StringArray { "L8", "L9", "L1", "L3", "L7", "L", "D1", "D5", "D5", "D7", "D6",
                                               "D2" }));
    board.clearSent();

    bool wp = true;
    board.willReply("R0");
    EXPECT_TRUE(board.getInternalDisksWriteProtect(wp));
    EXPECT_FALSE(wp);
    EXPECT_TRUE(replied(board, "R1", &TransferBoard::getDiskpackWriteProtect));
    EXPECT_EQ(replied(board, "R0010", &TransferBoard::getBatteryCurrent), 160);
    EXPECT_EQ(replied(board, "R3C", &TransferBoard::getBatteryVoltage), 12000);
    EXPECT_EQ(replied(board, "R64", &TransferBoard::getBatteryCapacity), 100);
    EXPECT_EQ(repliedPair(board, "R80FF", &TransferBoard::getMinMaxTemperatures), std::make_pair(-128, -1));
    EXPECT_EQ(replied(board, "R0100", &TransferBoard::getOperatingHours), 256);
    EXPECT_EQ(replied(board, "R0123-4567", &TransferBoard::getDiskpackGuid), "0123-4567");
    // The fitted devices share one reply; a failed or short one reads as nothing fitted.
    board.willReply("R0F");
    EXPECT_FALSE(board.getTapeDriveFitted());
    board.willFail();
    EXPECT_EQ(board.getNumInternalDisks(), 0);
    board.willReply("R1");
    EXPECT_FALSE(board.getTapeDriveFitted());
    EXPECT_EQ(board.sent, (juce::StringArray { "Y1", "Y0", "C", "V", "B", "M", "O", "U", "N", "N", "N" }));
}

TEST_F(Transfer, EventsReachListenersByMask)
{
    TransferHeard all, door(TransferBoardEventListener::doorEventBit | TransferBoardEventListener::ledEventBit);
    board.registerListener(&all);
    board.registerListener(&door);

    feed(board, { "pF0", "p1F", "d1", "d0", "i1", "i0", "l9", "t20" });

    EXPECT_EQ(all.calls(),
              (Calls { "temp -16", "temp 31", "door open", "door closed", "pack in", "pack out", "led 9" }));
    EXPECT_EQ(door.calls(), (Calls { "door open", "door closed", "led 9" }));
    EXPECT_EQ(log.lines(), unknownEvents("TransferBoardEventListener", "t"));
}
