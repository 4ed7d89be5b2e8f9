// The six serial boards against the board emulator: discovery, replies, and events on the board's thread.
#include "support/BoardTestKit.h"

#include <functional>
#include <string>
#include <vector>

using namespace boardtest;

/** One emulated board (number 0, or 1 behind a diskpack board), whose state "check N KEY VALUE" reads. */
struct Sim : SimTest
{
    /** A call that must succeed, then emulator states ("check ...") or heard events that must follow. */
    using Step = std::pair<std::function<bool()>, std::vector<std::string>>;

    std::function<bool()> sends(const std::string& line)
    {
        return [this, line] { return bool(control(line)); };
    }
    void run(const Heard& heard, const std::vector<Step>& steps)
    {
        for (size_t i = 0; i < steps.size(); ++i)
        {
            SCOPED_TRACE("step " + std::to_string(i));
            EXPECT_TRUE(steps[i].first());
            for (const auto& then : steps[i].second)
                EXPECT_TRUE(then.rfind("check ", 0) == 0 ? control(then) : heard.waitFor(then));
        }
    }
};

TEST_F(Sim, DiskpackBoard)
{
    start({ "--board", "d", "--id", "2", "--version", "V3.02" });
    DiskpackHeard heard;
    DiskpackBoard board;
    ASSERT_FALSE(board.findAndOpen(1)) << "only a board with id 2 is published";
    ASSERT_TRUE(board.findAndOpen(2));
    EXPECT_EQ(board.getVersionString(), "V3.02");
    board.registerListener(&heard);
    run(heard, { { [&] { return board.syncState(); }, { "led off" } },
                 { [&] { return board.setLed(3, 0, 1, 2); }, { "led on", "check 0 led B1" } },
                 { [&] { return board.setDisplayText("Bench test 1"); }, { "check 0 display Bench test 1" } },
                 { [&] { return board.setDisplayBrightness(0); }, { "check 0 drive 90" } },
                 { [&] { return board.writeText(23, "last page"); }, {} },
                 { [&] { return board.setWriteProtect(true); }, {} },
                 // Temperatures below zero must survive the trip as signed bytes.
                 { [&] { return board.enableTemperatureEvents(true); }, {} },
                 { sends("temp 0 -12"), { "temp -12" } },
                 { sends("button 0 F0"), { "button 240" } } });
    EXPECT_EQ(read(board, &DiskpackBoard::readText, 23), "last page");
    EXPECT_TRUE(read(board, &DiskpackBoard::getWriteProtect));
    EXPECT_EQ(read(board, &DiskpackBoard::getBatteryVoltage), 3000);
    EXPECT_EQ(readPair(board, &DiskpackBoard::getMinMaxTemperatures), std::make_pair(-12, 25));
}

TEST_F(Sim, ChassisBoard)
{
    start({ "--board", "c", "--version", "V2.5" });
    ChassisHeard heard;
    ChassisBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));
    board.registerListener(&heard);
    run(heard, { { [&] { return board.setDiskPackLock(1, true); }, {} },
                 { [&] { return board.setDiskPackPower(1, true); }, {} },
                 { [&] { return board.setDiskPackFanSpeed(1, 200); }, { "check 0 bay1 FF", "bay 1 absent locked" } },
                 { sends("insert 0 1"), { "bay 1 present locked" } },
                 { [&] { return board.setVolume(99); }, { "check 0 volume 31" } },
                 // Refused by V1.00 firmware, accepted here.
                 { [&] { return board.setColour(3, 2, 1, 0); }, { "check 0 colour 39" } },
                 // A pack in the bay is not yet connected.
                 { [&] { bool on = true; return board.checkBayConnected(1, on) && !on; }, {} },
                 { sends("connect 0 1 1"), {} },
                 { [&] { return read(board, &ChassisBoard::checkBayConnected, 1); }, {} },
                 { sends("shuttle 0 -2"), { "shuttle -2" } },
                 { sends("dvd 0"), { "eject" } } });
    board.closeBoard(false);
    EXPECT_TRUE(control("check 0 commits 1")) << "closing commits the settings";
}

TEST_F(Sim, TransferBoard)
{
    start({ "--board", "x" });
    TransferHeard heard;
    TransferBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));
    board.registerListener(&heard);
    run(heard, { { [&] { return board.syncState(); }, { "pack out", "door closed" } },
                 { [&] { int id = 0; return !board.getDiskpackId(id); }, {} }, // no pack in yet
                 { sends("insert 0"), { "pack in" } },
                 { [&] { return board.setDiskpackLed(1, diskpackLedFlashSlow); }, { "led 8" } },
                 { [&] { return board.setDiskpackPower(true); }, {} },
                 { [&] { return board.setTapeDrivePower(true); }, { "check 0 power 5" } },
                 { [&] { return board.setInternalDisksWriteProtect(true); }, {} },
                 { [&] { return board.setFanPwmFreq(5); }, { "check 0 pwm 5" } },
                 { [&] { return board.enableDiskpackTemperatureEvents(true); }, {} },
                 { sends("temp 0 -3"), { "temp -3" } },
                 { sends("door 0 open"), { "door open" } } });
    EXPECT_EQ(read(board, &TransferBoard::getDiskpackId), 3);
    EXPECT_TRUE(read(board, &TransferBoard::getInternalDisksWriteProtect));
    bool wp = true;
    EXPECT_TRUE(board.getDiskpackWriteProtect(wp));
    EXPECT_FALSE(wp);
    EXPECT_TRUE(board.setSasAddr(2, "5000C50012345678"));
    EXPECT_EQ(read(board, &TransferBoard::getSasAddr, 2), "5000C50012345678");
    EXPECT_TRUE(board.setSasAddr(2, ""));
    EXPECT_NE(read(board, &TransferBoard::getSasAddr, 2), "5000C50012345678");
    EXPECT_EQ(board.getNumInternalDisks(), 2);
    EXPECT_TRUE(board.getTapeDriveFitted());
    EXPECT_EQ(read(board, &TransferBoard::getBatteryCurrent), 65535);
}

TEST_F(Sim, RemoteBoard)
{
    start({ "--board", "r" });
    RemoteHeard heard;
    RemoteBoard board;
    ASSERT_TRUE(board.findAndOpen(0));
    board.registerListener(&heard);
    const unsigned char drawing[] = { 0x01, 0x20, 0xFF, 0x00 };
    run(heard, { { sends("busy 0 on"), {} },
                 { [&] { return !board.poll(); }, {} },
                 { [&] { return board.setContrast(12); }, {} },
                 { [&] { return board.setRingBright(3); }, {} },
                 { [&] { return board.graphicsCommand(4, drawing); }, { "check 0 lastgraphics 0120FF00" } },
                 { [&] { return board.bootMessage("Hello, bench"); }, { "check 0 message Hello, bench" } },
                 { sends("encoder 0 -3"), { "encoder -3" } },
                 { sends("debug 0 touch calibrated"), { "debug touch calibrated" } },
                 { [&] { return board.enableQtEvents(true); }, { "ref 512 528 544 560 576 592 608 624 640 656" } } });
    EXPECT_EQ(read(board, &RemoteBoard::getContrast), 12);
    EXPECT_EQ(read(board, &RemoteBoard::getRingBright), 3);
    // A touch signal line carries ten values, none of them zero.
    EXPECT_TRUE(heard.waitFor("a touch signal", [](const std::string& c) {
        return c.rfind("sig ", 0) == 0 && (c + " ").find(" 0 ") == std::string::npos;
    }));
    EXPECT_TRUE(board.enableQtEvents(false));
}

TEST_F(Sim, DesktopBoard)
{
    start({ "--board", "d", "--board", "t", "--id", "2", "--version", "V3.07" });
    DesktopHeard heard;
    DesktopBoard board;
    ASSERT_TRUE(board.findAndOpen(2)) << "the diskpack board in front of it must be passed over";
    EXPECT_EQ(board.getVersionString(), "V3.07");
    board.registerListener(&heard);
    run(heard, { { sends("insert 1 2"), { "present" } },
                 { [&] { return board.setDiskpackPower(true); }, {} } });
    // Two disks on the expander: disk 0 on the last PHY, disk 3 absent.
    EXPECT_EQ(read(board, &DesktopBoard::sasGetDiskAddr, 0), "5000C500AB000010");
    EXPECT_EQ(read(board, &DesktopBoard::sasGetDiskAddr, 3), "0000000000000000");
    EXPECT_TRUE(control("phyerrors 1 9 42"));
    EXPECT_EQ(read(board, &DesktopBoard::getPhyErrorCount, 9), 42);
    EXPECT_TRUE(board.clearErrorCounts());
    EXPECT_EQ(read(board, &DesktopBoard::getPhyErrorCount, 9), 0);

    // Programming puts the serial into the address the expander loads at reset.
    const auto programmed = [&] { return board.sasProgramEeprom(0x123) == DesktopBoard::programOk; };
    const auto slowed = [&] { return board.setPhyMinMaxSpeed(9, sasSpeed3G, sasSpeed1G5); };
    run(heard, { { slowed, { "check 1 rate.9 0x90800000" } },
                 { [&] { return board.resetPhy(10); }, { "check 1 held.10 0" } },
                 { programmed, { "check 1 resets 1" } },
                 { [&] { return board.setDiskpackLed(1, diskpackLedFlashSlow); }, { "led 8", "check 1 led 8" } },
                 { [&] { return board.enableDiskpackTemperatureEvents(true); }, {} },
                 { sends("temp 1 -5"), { "temp -5" } },
                 { sends("lever 1 open"), { "lever open" } } });
    EXPECT_EQ(read(board, &DesktopBoard::sasGetExpanderAddr), "500605BCDA10123F");
    EXPECT_EQ(readPair(board, &DesktopBoard::getMinMaxTemperatures).first, -5);
}

TEST_F(Sim, XferDualBoard)
{
    start({ "--board", "u" });
    XferDualHeard heard;
    XferDualBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));
    board.registerListener(&heard);
    run(heard, { { sends("insert 0 1 fault"), { "pack 1 present fault" } },
                 { sends("insert 0 0"), {} },
                 // Synchronisation reports the disk fans too.
                 { [&] { return board.syncState(); }, { "pack 0 present", "fan 1 128" } },
                 { [&] { return board.setDiskpackPower(0, true); }, {} } });

    // Diskpack 0 powered: both its disks answer; diskpack 1's do not.
    EXPECT_EQ(read(board, &XferDualBoard::sasGetDiskAddr, 0, 0), "5000c500cd000000");
    EXPECT_EQ(read(board, &XferDualBoard::sasGetDiskAddr, 0, 1), "5000c500cd000001");
    EXPECT_EQ(read(board, &XferDualBoard::sasGetDiskAddr, 1, 0), "0000000000000000");
    EXPECT_EQ(read(board, &XferDualBoard::sasGetExpanderAddr), "500605b0dd000000");
    EXPECT_TRUE(control("phyerrors 0 35 7"));
    EXPECT_EQ(read(board, &XferDualBoard::sasGetPhyErrorCount, 35), 7);

    const unsigned char data[] = { 0xAA, 0x55 };
    // The emulator refuses a rate write that disturbs the register's upper bits; the eeprom write
    // must leave the other diskpack's untouched.
    const auto rated = [&] { return board.sasSetPhyMinMaxSpeed(2, sasSpeed3G, sasSpeed6G); };
    run(heard, { { rated, { "check 0 rate.2 0x3C005EA9" } },
                 { [&] { return board.sasClearErrorCounts(); }, { "check 0 errors.35 0" } },
                 { [&] { return board.sasResetPhy(3); }, {} },
                 { [&] { return board.sasReset(true); }, { "check 0 uart 1" } },
                 { [&] { return board.writeDiskpackEeprom(1, 0x1A5, 2, data); }, { "check 0 eeprom.0.0x1A5 0xFF" } },
                 { [&] { return board.setFanSpeed(200); }, { "check 0 fan 200" } },
                 { [&] { return board.setFanAuto(true); }, { "check 0 fan 1" } },
                 { [&] { return board.setDiskpackLed(1, 3, 0, 2, true, false); }, { "led 1 on" } },
                 { [&] { return board.setDiskFanSpeed(0, false, 200); }, { "fan 0 200" } },
                 { sends("button 0 1 down"), { "eject 1 down" } },
                 { [&] { return board.enableSysTemperatureEvents(true); }, {} },
                 { sends("systemp 0 40 -3"), { "sys 40 -3" } } });
    unsigned char page[32] = {};
    ASSERT_TRUE(board.readDiskpackEeprom(1, 0x1A4, 4, page));
    EXPECT_EQ(juce::String::toHexString(page, 3, 0), "ffaa55");
}
