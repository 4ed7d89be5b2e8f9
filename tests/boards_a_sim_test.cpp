// The diskpack, chassis, transfer station and remote control boards against
// the board emulator over ptys: discovery, commands with replies, and events
// from the emulated board reaching a listener on the board's thread.
#include "support/PtyPeer.h"
#include "support/SimProcess.h"

#include "boards/ChassisBoard.h"
#include "boards/DiskpackBoard.h"
#include "boards/RemoteBoard.h"
#include "boards/TransferBoard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace
{
/** What a listener heard, written on the board's thread and read by the test. */
class Heard
{
public:
    void add(const std::string& call)
    {
        const std::lock_guard<std::mutex> g(m);
        calls.push_back(call);
    }
    bool has(const std::string& call) const
    {
        const std::lock_guard<std::mutex> g(m);
        return std::find(calls.begin(), calls.end(), call) != calls.end();
    }
    /** Waits for `call`; on a timeout the message lists what did arrive. */
    ::testing::AssertionResult waitFor(const std::string& call) const
    {
        if (waitUntil([&] { return has(call); }, 10000))
            return ::testing::AssertionSuccess();
        const std::lock_guard<std::mutex> g(m);
        std::string all;
        for (auto& c : calls)
            all += " [" + c + "]";
        return ::testing::AssertionFailure() << "no '" << call << "' among" << all;
    }
    void clear()
    {
        const std::lock_guard<std::mutex> g(m);
        calls.clear();
    }

private:
    mutable std::mutex m;
    std::vector<std::string> calls;
};

struct DiskpackHeard : DiskpackBoardEventListener
{
    void diskpackTemperatureEvent(int d) override { heard.add("temp " + std::to_string(d)); }
    void diskpackButtonEvent(int code) override { heard.add("button " + std::to_string(code)); }
    void diskpackLedEvent(bool on) override { heard.add(on ? "led on" : "led off"); }
    Heard heard;
};

struct ChassisHeard : ChassisBoardEventListener
{
    void bayEvent(int bay, bool present, bool locked) override
    {
        heard.add("bay " + std::to_string(bay) + (present ? " present" : " absent") + (locked ? " locked" : " unlocked"));
    }
    void dvdEjectEvent() override { heard.add("eject"); }
    void volumeEvent(int v) override { heard.add("volume " + std::to_string(v)); }
    void brightnessEvent(int v) override { heard.add("brightness " + std::to_string(v)); }
    void shuttleEvent(int v) override { heard.add("shuttle " + std::to_string(v)); }
    void buttonEvent(int v) override { heard.add("button " + std::to_string(v)); }
    Heard heard;
};

struct TransferHeard : TransferBoardEventListener
{
    void diskpackTemperatureEvent(int d) override { heard.add("temp " + std::to_string(d)); }
    void doorEvent(bool open) override { heard.add(open ? "door open" : "door closed"); }
    void diskpackEvent(bool present) override { heard.add(present ? "pack in" : "pack out"); }
    void ledEvent(int state) override { heard.add("led " + std::to_string(state)); }
    Heard heard;
};

struct RemoteHeard : RemoteBoardEventListener
{
    void keyEvent(int keys) override { heard.add("key " + std::to_string(keys)); }
    void rotorEvent(int rotor) override { heard.add("rotor " + std::to_string(rotor)); }
    void encoderEvent(int delta) override { heard.add("encoder " + std::to_string(delta)); }
    void debugEvent(const char* text) override { heard.add(std::string("debug ") + text); }
    void signalEvent(const unsigned short* v) override { heard.add(v[0] != 0 && v[9] != 0 ? "signal" : "signal?"); }
    void referenceEvent(const unsigned short* v) override
    {
        heard.add("reference " + std::to_string(v[0]) + " " + std::to_string(v[9]));
    }
    Heard heard;
};

/** A private device directory with the emulator publishing one board in it. */
struct Sim : ::testing::Test
{
    TempDevDir dev;
    std::unique_ptr<SimProcess> sim;

    void start(std::vector<std::string> args)
    {
        sim = std::make_unique<SimProcess>(dev.path(), args);
        ASSERT_TRUE(sim->isReady());
    }
    ::testing::AssertionResult check(const std::string& fieldAndValue)
    {
        const auto answer = sim->control("check 0 " + fieldAndValue);
        if (answer == "ok")
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << fieldAndValue << ": " << answer;
    }
};
} // namespace

TEST_F(Sim, DiskpackBoard)
{
    start({ "--board", "d", "--id", "2", "--version", "V3.02" });
    DiskpackBoard board;
    ASSERT_FALSE(board.findAndOpen(1)) << "only a board with id 2 is published";
    ASSERT_TRUE(board.findAndOpen(2));
    EXPECT_EQ(board.getVersionString(), "V3.02");

    DiskpackHeard listener;
    board.registerListener(&listener);
    ASSERT_TRUE(board.syncState());
    EXPECT_TRUE(listener.heard.waitFor("led off"));

    EXPECT_TRUE(board.setLed(3, 0, 1, 2));
    EXPECT_TRUE(listener.heard.waitFor("led on"));
    EXPECT_TRUE(check("led B1"));

    EXPECT_TRUE(board.setDisplayText("Bench test 1"));
    EXPECT_TRUE(check("display Bench test 1"));
    EXPECT_TRUE(board.setDisplayBrightness(0));
    EXPECT_TRUE(check("drive 90"));

    EXPECT_TRUE(board.writeText(23, "last page"));
    juce::String text;
    EXPECT_TRUE(board.readText(23, text));
    EXPECT_EQ(text, "last page");

    EXPECT_TRUE(board.setWriteProtect(true));
    bool wp = false;
    EXPECT_TRUE(board.getWriteProtect(wp));
    EXPECT_TRUE(wp);

    int mV = 0;
    EXPECT_TRUE(board.getBatteryVoltage(mV));
    EXPECT_EQ(mV, 3000);

    // Temperatures below zero must survive the trip as signed bytes.
    EXPECT_TRUE(board.enableTemperatureEvents(true));
    EXPECT_EQ(sim->control("temp 0 -12"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("temp -12"));
    int lo = 0, hi = 0;
    EXPECT_TRUE(board.getMinMaxTemperatures(lo, hi));
    EXPECT_EQ(lo, -12);
    EXPECT_EQ(hi, 25);

    EXPECT_EQ(sim->control("button 0 F0"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("button 240"));

    board.closeBoard(false);
    board.deregisterListener(&listener);
}

TEST_F(Sim, ChassisBoard)
{
    start({ "--board", "c", "--version", "V2.5" });
    ChassisBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));

    ChassisHeard listener;
    board.registerListener(&listener);

    EXPECT_TRUE(board.setDiskPackLock(1, true));
    EXPECT_TRUE(board.setDiskPackPower(1, true));
    EXPECT_TRUE(board.setDiskPackFanSpeed(1, 200));
    EXPECT_TRUE(check("bay1 FF"));
    EXPECT_TRUE(listener.heard.waitFor("bay 1 absent locked"));

    EXPECT_EQ(sim->control("insert 0 1"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("bay 1 present locked"));
    EXPECT_FALSE(board.setDiskPackLock(1, false)) << "still powered";
    EXPECT_TRUE(check("bay1 FF"));

    EXPECT_TRUE(board.setVolume(99));
    EXPECT_TRUE(check("volume 31"));
    EXPECT_TRUE(board.setColour(3, 2, 1, 0)); // refused by V1.00 firmware, accepted here
    EXPECT_TRUE(check("colour 39"));

    bool connected = false;
    EXPECT_TRUE(board.checkBayConnected(1, connected));
    EXPECT_FALSE(connected);
    EXPECT_EQ(sim->control("connect 0 1 1"), "ok");
    EXPECT_TRUE(board.checkBayConnected(1, connected));
    EXPECT_TRUE(connected);

    EXPECT_EQ(sim->control("shuttle 0 -2"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("shuttle -2"));
    EXPECT_EQ(sim->control("dvd 0"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("eject"));

    board.closeBoard(false);
    board.deregisterListener(&listener);
    EXPECT_TRUE(check("commits 1")) << "closing commits the settings";
}

TEST_F(Sim, TransferBoard)
{
    start({ "--board", "x" });
    TransferBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));

    TransferHeard listener;
    board.registerListener(&listener);
    ASSERT_TRUE(board.syncState());
    EXPECT_TRUE(listener.heard.waitFor("pack out"));
    EXPECT_TRUE(listener.heard.waitFor("door closed"));

    int id = 0;
    EXPECT_FALSE(board.getDiskpackId(id)) << "no pack in yet";
    EXPECT_EQ(sim->control("insert 0"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("pack in"));
    EXPECT_TRUE(board.getDiskpackId(id));
    EXPECT_EQ(id, 3);

    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow));
    EXPECT_TRUE(listener.heard.waitFor("led 8"));
    EXPECT_TRUE(board.setDiskpackPower(true));
    EXPECT_TRUE(board.setTapeDrivePower(true));
    EXPECT_TRUE(check("power 5"));
    EXPECT_TRUE(board.setInternalDisksWriteProtect(true));
    bool wp = false;
    EXPECT_TRUE(board.getInternalDisksWriteProtect(wp));
    EXPECT_TRUE(wp);
    EXPECT_TRUE(board.getDiskpackWriteProtect(wp));
    EXPECT_FALSE(wp);

    juce::String addr;
    EXPECT_TRUE(board.setSasAddr(2, "5000C50012345678"));
    EXPECT_TRUE(board.getSasAddr(2, addr));
    EXPECT_EQ(addr, "5000C50012345678");
    EXPECT_TRUE(board.setSasAddr(2, ""));
    EXPECT_TRUE(board.getSasAddr(2, addr));
    EXPECT_NE(addr, "5000C50012345678");

    EXPECT_EQ(board.getNumInternalDisks(), 2);
    EXPECT_TRUE(board.getTapeDriveFitted());
    int mA = 0;
    EXPECT_TRUE(board.getBatteryCurrent(mA));
    EXPECT_EQ(mA, 65535);
    EXPECT_FALSE(board.setFanPwmFreq(6));
    EXPECT_TRUE(board.setFanPwmFreq(5));
    EXPECT_TRUE(check("pwm 5"));

    EXPECT_TRUE(board.enableDiskpackTemperatureEvents(true));
    EXPECT_EQ(sim->control("temp 0 -3"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("temp -3"));
    EXPECT_EQ(sim->control("door 0 open"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("door open"));

    board.closeBoard(false);
    board.deregisterListener(&listener);
}

TEST_F(Sim, RemoteBoard)
{
    start({ "--board", "r" });
    RemoteBoard board;
    ASSERT_TRUE(board.findAndOpen(0));

    RemoteHeard listener;
    board.registerListener(&listener);

    EXPECT_TRUE(board.poll());
    EXPECT_EQ(sim->control("busy 0 on"), "ok");
    EXPECT_FALSE(board.poll());
    EXPECT_EQ(sim->control("busy 0 off"), "ok");
    EXPECT_TRUE(board.poll());

    EXPECT_TRUE(board.setContrast(12));
    int v = 0;
    EXPECT_TRUE(board.getContrast(v));
    EXPECT_EQ(v, 12);
    EXPECT_TRUE(board.setRingBright(3));
    EXPECT_TRUE(board.getRingBright(v));
    EXPECT_EQ(v, 3);

    const unsigned char drawing[] = { 0x01, 0x20, 0xFF, 0x00 };
    EXPECT_TRUE(board.graphicsCommand(4, drawing));
    EXPECT_TRUE(check("lastgraphics 0120FF00"));
    EXPECT_FALSE(board.graphicsCommand(0, drawing)) << "an empty graphics command is refused";
    EXPECT_EQ(board.getGraphicsFailureCount(), 1);
    EXPECT_TRUE(board.bootMessage("Hello, bench"));
    EXPECT_TRUE(check("message Hello, bench"));

    EXPECT_EQ(sim->control("key 0 0102"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("key 258"));
    EXPECT_EQ(sim->control("encoder 0 -3"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("encoder -3"));
    EXPECT_EQ(sim->control("debug 0 touch calibrated"), "ok");
    EXPECT_TRUE(listener.heard.waitFor("debug touch calibrated"));

    EXPECT_TRUE(board.enableQtEvents(true));
    EXPECT_TRUE(listener.heard.waitFor("signal"));
    EXPECT_TRUE(listener.heard.waitFor("reference 512 656"));
    EXPECT_TRUE(board.enableQtEvents(false));

    board.closeBoard(false);
    board.deregisterListener(&listener);
}
