#include "support/BoardTestKit.h"

using namespace boardtest;

namespace
{
struct VersionedChassis : Scripted<ChassisBoard>
{
    using HardwareBoard::setVersionString;
};
using Chassis = ScriptedBoardTest<VersionedChassis>;
} // namespace

TEST_F(Chassis, SettersClampClosingCommitsAndFirmwareDecidesColourAndBayQuery)
{
    EXPECT_TRUE(board.setVolume(-3) && board.setVolume(32) && board.setBrightness(16) && board.setBrightness(-1)
                && board.setLedState(0x3F)); // only five LED bits exist
    board.willFail();
    board.closingBoard();
    EXPECT_EQ(log.lines(), (juce::StringArray { "ChassisBoard: failed to update EEPROM contents" }));

    // The firmware version decides the colour controls and the bay query.
    bool connected = true;
    board.setVersionString("V1.00");
    EXPECT_TRUE(board.setColour(1, 2, 3, 1) && board.setAmbientMode(true) && board.setScreenSaverEnable(true))
        << "the first firmware has no colour controls, and takes their absence as success";

    board.setVersionString("V2.4");
    EXPECT_FALSE(board.checkBayConnected(2, connected) || board.checkBayConnected(-1, connected));
    EXPECT_TRUE(read(board, &ChassisBoard::checkBayConnected, 0));
    EXPECT_TRUE(board.checkBayConnected(1, connected));
    EXPECT_FALSE(connected);
    // Only four characters are compared, so 2.10 is older than 2.5.
    board.setVersionString("V2.10");
    EXPECT_TRUE(board.checkBayConnected(1, connected));
    EXPECT_TRUE(board.setColour(5, 6, 7, 4)); // masked, not clamped
    EXPECT_TRUE(board.setScreenSaverEnable(false));

    board.setVersionString("V3.01");
    board.willFail();
    connected = true;
    EXPECT_FALSE(board.checkBayConnected(0, connected));
    EXPECT_FALSE(connected);
    EXPECT_EQ(board.sent, (juce::StringArray { "V00", "V1F", "R0F", "R00", "L1F", "W", "F1B", "S0", "H0" }));
}

TEST_F(Chassis, BayBytePowerNeedsALockAndUnlockNeedsPowerOff)
{
    // A fresh bay is first put in a known all-off state; a refusal is logged.
    EXPECT_FALSE(board.setDiskPackPower(2, true));
    EXPECT_TRUE(log.contains("ChassisBoard: Attempt to power up unlocked disk pack!!\n"));
    // A failed send still updates the stored byte; the next change sends it whole.
    board.willFail();
    EXPECT_FALSE(board.setDiskPackLock(2, true));
    EXPECT_TRUE(board.setDiskPackLock(2, true) && board.setDiskPackPower(2, true) && board.setDiskPackLock(1, true)
                && board.setDiskPackPower(1, true));
    EXPECT_FALSE(board.setDiskPackLock(1, false));
    EXPECT_TRUE(log.contains("ChassisBoard: Attempt to unlock powered up disk pack!!\n"));
    // Repeats of a state already held send nothing.
    EXPECT_TRUE(board.setDiskPackLock(1, true) && board.setDiskPackPower(1, true) && board.setDiskPackPower(1, false)
                && board.setDiskPackLock(1, false));
    EXPECT_EQ(board.sent, (juce::StringArray { "C00", "C40", "CC0", "B00", "B40", "BC0", "B40", "B00" }));

    // Bays the enclosure lacks are refused; the fan speed shares the byte, clamped to six bits.
    board.clearSent();
    EXPECT_FALSE(board.setDiskPackLock(4, true) || board.setDiskPackPower(-1, false)
                 || board.setDiskPackFanSpeed(7, 10) || board.updateDiskBayCtrl(4));
    EXPECT_TRUE(board.setDiskPackFanSpeed(0, 100) && board.setDiskPackFanSpeed(0, 100));
    EXPECT_TRUE(board.setDiskPackLock(0, true) && board.setDiskPackPower(0, true) && board.setDiskPackFanSpeed(0, -5)
                && board.setDiskPackFanSpeed(3, 20));
    EXPECT_EQ(board.sent, (juce::StringArray { "A00", "A3F", "A7F", "AFF", "AC0", "D00", "D14" }));
}

TEST_F(Chassis, EventsReachListenersByMask)
{
    // The console checks the decoding; here the masks and bay 1, which it does not show.
    ChassisHeard bays(ChassisBoardEventListener::bayEventBit(1) | ChassisBoardEventListener::bayEventBit(2)),
        knobs(ChassisBoardEventListener::volumeEventBit | ChassisBoardEventListener::shuttleEventBit);
    board.registerListener(&bays);
    board.registerListener(&knobs);

    // A shuttle value wider than a byte is read by its low byte.
    feed({ "b3", "c1", "d2", "a0", "e", "v1F", "r0A", "s1FE", "s05", "t42", "f1", "q", "u7" });

    EXPECT_EQ(bays.calls(), (Calls { "bay 1 present locked", "bay 2 present unlocked" }));
    EXPECT_EQ(knobs.calls(), (Calls { "volume 31", "shuttle -2", "shuttle 5" }));
    EXPECT_EQ(log.lines(), unknownEvents("ChassisBoardEventListener", "fqu"));
}
