// Four of the serial boards against the board emulator: discovery, replies, and events on the board's thread.
#include "support/BoardTestKit.h"

#include <string>

using namespace boardtest;

using Sim = SimTest; // one emulated board, number 0, whose state "check 0 KEY VALUE" reads

TEST_F(Sim, DiskpackBoard)
{
    start({ "--board", "d", "--id", "2", "--version", "V3.02" });
    DiskpackHeard listener;
    DiskpackBoard board;
    ASSERT_FALSE(board.findAndOpen(1)) << "only a board with id 2 is published";
    ASSERT_TRUE(board.findAndOpen(2));
    EXPECT_EQ(board.getVersionString(), "V3.02");

    board.registerListener(&listener);
    ASSERT_TRUE(board.syncState());
    EXPECT_TRUE(listener.waitFor("led off"));

    EXPECT_TRUE(board.setLed(3, 0, 1, 2));
    EXPECT_TRUE(listener.waitFor("led on"));
    EXPECT_TRUE(control("check 0 led B1"));

    EXPECT_TRUE(board.setDisplayText("Bench test 1"));
    EXPECT_TRUE(control("check 0 display Bench test 1"));
    EXPECT_TRUE(board.setDisplayBrightness(0));
    EXPECT_TRUE(control("check 0 drive 90"));

    EXPECT_TRUE(board.writeText(23, "last page"));
    EXPECT_EQ(read(board, &DiskpackBoard::readText, 23), "last page");

    EXPECT_TRUE(board.setWriteProtect(true));
    EXPECT_TRUE(read(board, &DiskpackBoard::getWriteProtect));
    EXPECT_EQ(read(board, &DiskpackBoard::getBatteryVoltage), 3000);

    // Temperatures below zero must survive the trip as signed bytes.
    EXPECT_TRUE(board.enableTemperatureEvents(true));
    EXPECT_TRUE(control("temp 0 -12"));
    EXPECT_TRUE(listener.waitFor("temp -12"));
    EXPECT_EQ(readPair(board, &DiskpackBoard::getMinMaxTemperatures), std::make_pair(-12, 25));

    EXPECT_TRUE(control("button 0 F0"));
    EXPECT_TRUE(listener.waitFor("button 240"));
}

TEST_F(Sim, ChassisBoard)
{
    start({ "--board", "c", "--version", "V2.5" });
    ChassisHeard listener;
    ChassisBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));
    board.registerListener(&listener);

    EXPECT_TRUE(board.setDiskPackLock(1, true));
    EXPECT_TRUE(board.setDiskPackPower(1, true));
    EXPECT_TRUE(board.setDiskPackFanSpeed(1, 200));
    EXPECT_TRUE(control("check 0 bay1 FF"));
    EXPECT_TRUE(listener.waitFor("bay 1 absent locked"));

    EXPECT_TRUE(control("insert 0 1"));
    EXPECT_TRUE(listener.waitFor("bay 1 present locked"));

    EXPECT_TRUE(board.setVolume(99));
    EXPECT_TRUE(control("check 0 volume 31"));
    EXPECT_TRUE(board.setColour(3, 2, 1, 0)); // refused by V1.00 firmware, accepted here
    EXPECT_TRUE(control("check 0 colour 39"));

    bool connected = true;
    EXPECT_TRUE(board.checkBayConnected(1, connected));
    EXPECT_FALSE(connected);
    EXPECT_TRUE(control("connect 0 1 1"));
    EXPECT_TRUE(read(board, &ChassisBoard::checkBayConnected, 1));

    EXPECT_TRUE(control("shuttle 0 -2"));
    EXPECT_TRUE(listener.waitFor("shuttle -2"));
    EXPECT_TRUE(control("dvd 0"));
    EXPECT_TRUE(listener.waitFor("eject"));
    board.closeBoard(false);
    EXPECT_TRUE(control("check 0 commits 1")) << "closing commits the settings";
}

TEST_F(Sim, TransferBoard)
{
    start({ "--board", "x" });
    TransferHeard listener;
    TransferBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));
    board.registerListener(&listener);
    ASSERT_TRUE(board.syncState());
    EXPECT_TRUE(listener.waitFor("pack out"));
    EXPECT_TRUE(listener.waitFor("door closed"));

    int id = 0;
    EXPECT_FALSE(board.getDiskpackId(id)) << "no pack in yet";
    EXPECT_TRUE(control("insert 0"));
    EXPECT_TRUE(listener.waitFor("pack in"));
    EXPECT_EQ(read(board, &TransferBoard::getDiskpackId), 3);

    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow));
    EXPECT_TRUE(listener.waitFor("led 8"));
    EXPECT_TRUE(board.setDiskpackPower(true));
    EXPECT_TRUE(board.setTapeDrivePower(true));
    EXPECT_TRUE(control("check 0 power 5"));
    EXPECT_TRUE(board.setInternalDisksWriteProtect(true));
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
    EXPECT_TRUE(board.setFanPwmFreq(5));
    EXPECT_TRUE(control("check 0 pwm 5"));

    EXPECT_TRUE(board.enableDiskpackTemperatureEvents(true));
    EXPECT_TRUE(control("temp 0 -3"));
    EXPECT_TRUE(listener.waitFor("temp -3"));
    EXPECT_TRUE(control("door 0 open"));
    EXPECT_TRUE(listener.waitFor("door open"));
}

TEST_F(Sim, RemoteBoard)
{
    start({ "--board", "r" });
    RemoteHeard listener;
    RemoteBoard board;
    ASSERT_TRUE(board.findAndOpen(0));
    board.registerListener(&listener);

    EXPECT_TRUE(control("busy 0 on"));
    EXPECT_FALSE(board.poll());

    EXPECT_TRUE(board.setContrast(12));
    EXPECT_EQ(read(board, &RemoteBoard::getContrast), 12);
    EXPECT_TRUE(board.setRingBright(3));
    EXPECT_EQ(read(board, &RemoteBoard::getRingBright), 3);

    const unsigned char drawing[] = { 0x01, 0x20, 0xFF, 0x00 };
    EXPECT_TRUE(board.graphicsCommand(4, drawing));
    EXPECT_TRUE(control("check 0 lastgraphics 0120FF00"));
    EXPECT_TRUE(board.bootMessage("Hello, bench"));
    EXPECT_TRUE(control("check 0 message Hello, bench"));

    EXPECT_TRUE(control("encoder 0 -3"));
    EXPECT_TRUE(listener.waitFor("encoder -3"));
    EXPECT_TRUE(control("debug 0 touch calibrated"));
    EXPECT_TRUE(listener.waitFor("debug touch calibrated"));

    EXPECT_TRUE(board.enableQtEvents(true));
    // A touch signal line carries ten values, none of them zero.
    const auto isSignal = [](const std::string& c) {
        return c.rfind("sig ", 0) == 0 && (c + " ").find(" 0 ") == std::string::npos;
    };
    EXPECT_TRUE(listener.waitFor("a touch signal", isSignal));
    EXPECT_TRUE(listener.waitFor("ref 512 528 544 560 576 592 608 624 640 656"));
    EXPECT_TRUE(board.enableQtEvents(false));
}
