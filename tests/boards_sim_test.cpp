// Serial boards against the board emulator: discovery, the expander exchanges it confirms, and events on the
// board's thread. Each command's wire line is checked by the board tests and the console's key rows, and the
// events' decoding by the board tests and the console's event lines.
#include "support/BoardTestKit.h"

using namespace boardtest;
using BoardsBSim = SimTest;
using Sim = SimTest; // one emulated board, number 0

TEST_F(BoardsBSim, DesktopStationThroughTheEmulator)
{
    start({ "--board", "d", "--board", "t", "--id", "2", "--version", "V3.07" });
    DesktopHeard calls;
    DesktopBoard board;
    ASSERT_TRUE(board.findAndOpen(2)) << "the diskpack board in front of it must be passed over";
    board.registerListener(&calls);

    EXPECT_TRUE(control("insert 1 2"));
    EXPECT_TRUE(calls.waitFor("present"));
    EXPECT_TRUE(board.setDiskpackPower(true));
    // Disk 0 is on the last PHY.
    EXPECT_EQ(read(board, &DesktopBoard::sasGetDiskAddr, 0), "5000C500AB000010");

    // Programming puts the serial into the address the expander loads at reset.
    EXPECT_EQ(board.sasProgramEeprom(0x123), DesktopBoard::programOk);
    EXPECT_TRUE(control("check 1 resets 1"));
    EXPECT_EQ(read(board, &DesktopBoard::sasGetExpanderAddr), "500605BCDA10123F");

    EXPECT_TRUE(board.enableDiskpackTemperatureEvents(true));
    EXPECT_TRUE(control("temp 1 -5"));
    EXPECT_TRUE(calls.waitFor("temp -5"));
}

TEST_F(BoardsBSim, XferDualThroughTheEmulator)
{
    start({ "--board", "u" });
    XferDualHeard calls;
    XferDualBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));
    board.registerListener(&calls);

    EXPECT_TRUE(control("insert 0 0"));
    EXPECT_TRUE(board.syncState());
    EXPECT_TRUE(calls.waitFor("pack 0 present"));
    EXPECT_TRUE(calls.waitFor("fan 1 128")) << "synchronisation reports the disk fans";

    // Diskpack 0 powered: its disks answer; diskpack 1's do not.
    EXPECT_TRUE(board.setDiskpackPower(0, true));
    EXPECT_EQ(read(board, &XferDualBoard::sasGetDiskAddr, 0, 1), "5000c500cd000001");
    EXPECT_EQ(read(board, &XferDualBoard::sasGetDiskAddr, 1, 0), "0000000000000000");

    // The emulator refuses a rate write that disturbs the register's upper bits.
    EXPECT_TRUE(board.sasSetPhyMinMaxSpeed(2, sasSpeed3G, sasSpeed6G));
    EXPECT_TRUE(control("check 0 rate.2 0x3C005EA9"));

    EXPECT_TRUE(board.enableSysTemperatureEvents(true));
    EXPECT_TRUE(control("systemp 0 40 -3"));
    EXPECT_TRUE(calls.waitFor("sys 40 -3"));
}

TEST_F(Sim, RemoteBoard)
{
    start({ "--board", "r" });
    RemoteHeard listener;
    RemoteBoard board;
    ASSERT_TRUE(board.findAndOpen(0));
    board.registerListener(&listener);

    EXPECT_TRUE(board.enableQtEvents(true));
    // A touch signal line carries ten values, none of them zero.
    const auto isSignal = [](const std::string& c) {
        return c.rfind("sig ", 0) == 0 && (c + " ").find(" 0 ") == std::string::npos;
    };
    EXPECT_TRUE(listener.waitFor("a touch signal", isSignal));
    EXPECT_TRUE(listener.waitFor("ref 512 528 544 560 576 592 608 624 640 656"));
}
