// The two boards with SAS expanders against the board emulator, which confirms the expander exchanges.
#include "support/BoardTestKit.h"

using namespace boardtest;
using BoardsBSim = SimTest;

TEST_F(BoardsBSim, DesktopStationThroughTheEmulator)
{
    start({ "--board", "d", "--board", "t", "--id", "2", "--version", "V3.07" });
    DesktopHeard calls;
    DesktopBoard board;
    ASSERT_TRUE(board.findAndOpen(2)) << "the diskpack board in front of it must be passed over";
    EXPECT_EQ(board.getVersionString(), "V3.07");
    board.registerListener(&calls);

    EXPECT_TRUE(control("insert 1 2"));
    EXPECT_TRUE(calls.waitFor("present"));
    EXPECT_TRUE(board.setDiskpackPower(true));

    // Two disks on the expander: disk 0 on the last PHY, disk 3 absent.
    EXPECT_EQ(read(board, &DesktopBoard::sasGetDiskAddr, 0), "5000C500AB000010");
    EXPECT_EQ(read(board, &DesktopBoard::sasGetDiskAddr, 3), "0000000000000000");

    EXPECT_TRUE(control("phyerrors 1 9 42"));
    EXPECT_EQ(read(board, &DesktopBoard::getPhyErrorCount, 9), 42);
    EXPECT_TRUE(board.clearErrorCounts());
    EXPECT_EQ(read(board, &DesktopBoard::getPhyErrorCount, 9), 0);

    EXPECT_TRUE(board.setPhyMinMaxSpeed(9, sasSpeed3G, sasSpeed1G5));
    EXPECT_TRUE(control("check 1 rate.9 0x90800000"));
    EXPECT_TRUE(board.resetPhy(10));
    EXPECT_TRUE(control("check 1 held.10 0"));

    // Programming puts the serial into the address the expander loads at reset.
    EXPECT_EQ(board.sasProgramEeprom(0x123), DesktopBoard::programOk);
    EXPECT_TRUE(control("check 1 resets 1"));
    EXPECT_EQ(read(board, &DesktopBoard::sasGetExpanderAddr), "500605BCDA10123F");

    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow));
    EXPECT_TRUE(calls.waitFor("led 8"));
    EXPECT_TRUE(control("check 1 led 8"));

    EXPECT_TRUE(board.enableDiskpackTemperatureEvents(true));
    EXPECT_TRUE(control("temp 1 -5"));
    EXPECT_TRUE(calls.waitFor("temp -5"));
    EXPECT_EQ(readPair(board, &DesktopBoard::getMinMaxTemperatures).first, -5);

    EXPECT_TRUE(control("lever 1 open"));
    EXPECT_TRUE(calls.waitFor("lever open"));
}

TEST_F(BoardsBSim, XferDualThroughTheEmulator)
{
    start({ "--board", "u" });
    XferDualHeard calls;
    XferDualBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));
    board.registerListener(&calls);

    EXPECT_TRUE(control("insert 0 1 fault"));
    EXPECT_TRUE(calls.waitFor("pack 1 present fault"));
    EXPECT_TRUE(control("insert 0 0"));
    EXPECT_TRUE(board.syncState());
    EXPECT_TRUE(calls.waitFor("pack 0 present"));
    EXPECT_TRUE(calls.waitFor("fan 1 128")) << "synchronisation reports the disk fans";

    // Diskpack 0 powered: both its disks answer; diskpack 1's do not.
    EXPECT_TRUE(board.setDiskpackPower(0, true));
    EXPECT_EQ(read(board, &XferDualBoard::sasGetDiskAddr, 0, 0), "5000c500cd000000");
    EXPECT_EQ(read(board, &XferDualBoard::sasGetDiskAddr, 0, 1), "5000c500cd000001");
    EXPECT_EQ(read(board, &XferDualBoard::sasGetDiskAddr, 1, 0), "0000000000000000");
    EXPECT_EQ(read(board, &XferDualBoard::sasGetExpanderAddr), "500605b0dd000000");

    // The emulator refuses a rate write that disturbs the register's upper bits.
    EXPECT_TRUE(board.sasSetPhyMinMaxSpeed(2, sasSpeed3G, sasSpeed6G));
    EXPECT_TRUE(control("check 0 rate.2 0x3C005EA9"));

    EXPECT_TRUE(control("phyerrors 0 35 7"));
    EXPECT_EQ(read(board, &XferDualBoard::sasGetPhyErrorCount, 35), 7);
    EXPECT_TRUE(board.sasClearErrorCounts());
    EXPECT_TRUE(control("check 0 errors.35 0"));
    EXPECT_TRUE(board.sasResetPhy(3));
    EXPECT_TRUE(board.sasReset(true));
    EXPECT_TRUE(control("check 0 uart 1"));

    const unsigned char data[] = { 0xAA, 0x55 };
    EXPECT_TRUE(board.writeDiskpackEeprom(1, 0x1A5, 2, data));
    unsigned char page[32] = {};
    ASSERT_TRUE(board.readDiskpackEeprom(1, 0x1A4, 4, page));
    EXPECT_EQ(juce::String::toHexString(page, 3, 0), "ffaa55");
    EXPECT_TRUE(control("check 0 eeprom.0.0x1A5 0xFF")) << "the other diskpack is untouched";

    EXPECT_TRUE(board.setFanSpeed(200));
    EXPECT_TRUE(control("check 0 fan 200"));
    EXPECT_TRUE(board.setFanAuto(true));
    EXPECT_TRUE(control("check 0 fan 1"));

    EXPECT_TRUE(board.setDiskpackLed(1, 3, 0, 2, true, false));
    EXPECT_TRUE(calls.waitFor("led 1 on"));
    EXPECT_TRUE(board.setDiskFanSpeed(0, false, 200));
    EXPECT_TRUE(calls.waitFor("fan 0 200"));

    EXPECT_TRUE(control("button 0 1 down"));
    EXPECT_TRUE(calls.waitFor("eject 1 down"));
    EXPECT_TRUE(board.enableSysTemperatureEvents(true));
    EXPECT_TRUE(control("systemp 0 40 -3"));
    EXPECT_TRUE(calls.waitFor("sys 40 -3"));
}
