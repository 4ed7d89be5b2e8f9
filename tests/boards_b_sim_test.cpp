// The desktop transfer station and the dual SAS transfer board against the
// board emulator over ptys: discovery, commands including expander exchanges
// whose effect the emulator confirms, and events reaching a listener on the
// board's own thread.
#include "support/PtyPeer.h"
#include "support/SimProcess.h"

#include "boards/DesktopBoard.h"
#include "boards/XferDualBoard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace
{
/** Calls a listener received, recorded on the board's thread. */
class CallLog
{
public:
    void add(const std::string& call)
    {
        const std::lock_guard<std::mutex> g(m);
        calls.push_back(call);
    }

    ::testing::AssertionResult waitFor(const std::string& call) const
    {
        if (waitUntil([&] { return has(call); }, 15000))
            return ::testing::AssertionSuccess();
        const std::lock_guard<std::mutex> g(m);
        std::string seen;
        for (const auto& c : calls)
            seen += " [" + c + "]";
        return ::testing::AssertionFailure() << "'" << call << "' never arrived; got" << seen;
    }

private:
    bool has(const std::string& call) const
    {
        const std::lock_guard<std::mutex> g(m);
        return std::find(calls.begin(), calls.end(), call) != calls.end();
    }

    mutable std::mutex m;
    std::vector<std::string> calls;
};

struct DesktopCalls : DesktopBoardEventListener
{
    void debugEvent(const juce::String& t) override { log.add("debug " + t.toStdString()); }
    void diskpackTemperatureEvent(int d) override { log.add("temp " + std::to_string(d)); }
    void leverEvent(bool open) override { log.add(open ? "lever open" : "lever closed"); }
    void diskpackEvent(bool present) override { log.add(present ? "present" : "absent"); }
    void ledEvent(int s) override { log.add("led " + std::to_string(s)); }
    CallLog log;
};

struct XferDualCalls : XferDualBoardEventListener
{
    void systemTemperatureEvent(int b, int s) override { log.add("sys " + std::to_string(b) + " " + std::to_string(s)); }
    void diskpackTemperatureEvent(int w, int d) override { log.add("temp " + std::to_string(w) + " " + std::to_string(d)); }
    void diskpackEvent(int w, bool p, bool f) override
    {
        log.add("pack " + std::to_string(w) + (p ? " present" : " absent") + (f ? " fault" : ""));
    }
    void ejectButtonEvent(int w, bool down) override { log.add("eject " + std::to_string(w) + (down ? " down" : " up")); }
    void diskpackLedEvent(int w, bool on) override { log.add("led " + std::to_string(w) + (on ? " on" : " off")); }
    void diskFanSpeedEvent(int w, int s) override { log.add("fan " + std::to_string(w) + " " + std::to_string(s)); }
    void debugEvent(const juce::String& t) override { log.add("debug " + t.toStdString()); }
    CallLog log;
};
} // namespace

TEST(BoardsBSim, DesktopStationThroughTheEmulator)
{
    TempDevDir dev;
    SimProcess sim(dev.path(), { "--board", "d", "--board", "t", "--id", "2", "--version", "V3.07" });
    ASSERT_TRUE(sim.isReady());

    DesktopBoard board;
    ASSERT_TRUE(board.findAndOpen(2)) << "the diskpack board in front of it must be passed over";
    EXPECT_EQ(board.getVersionString(), "V3.07");
    DesktopCalls calls;
    board.registerListener(&calls);

    EXPECT_EQ(sim.control("insert 1 2"), "ok");
    EXPECT_TRUE(calls.log.waitFor("present"));
    EXPECT_TRUE(board.setDiskpackPower(true));

    // Two disks on the expander: disk 0 on the last PHY, disk 3 absent.
    juce::String addr;
    ASSERT_TRUE(board.sasGetDiskAddr(0, addr));
    EXPECT_EQ(addr, "5000C500AB000010");
    ASSERT_TRUE(board.sasGetDiskAddr(3, addr));
    EXPECT_EQ(addr, "0000000000000000");

    EXPECT_EQ(sim.control("phyerrors 1 9 42"), "ok");
    int count = -1;
    ASSERT_TRUE(board.getPhyErrorCount(9, count));
    EXPECT_EQ(count, 42);
    EXPECT_TRUE(board.clearErrorCounts());
    ASSERT_TRUE(board.getPhyErrorCount(9, count));
    EXPECT_EQ(count, 0);

    EXPECT_TRUE(board.setPhyMinMaxSpeed(9, sasSpeed3G, sasSpeed1G5));
    EXPECT_EQ(sim.control("check 1 rate.9 0x90800000"), "ok");
    EXPECT_TRUE(board.resetPhy(10));
    EXPECT_EQ(sim.control("check 1 held.10 0"), "ok");

    // Programming puts the serial into the address the expander loads at reset.
    EXPECT_EQ(board.sasProgramEeprom(0x123), DesktopBoard::programOk);
    EXPECT_EQ(sim.control("check 1 resets 1"), "ok");
    ASSERT_TRUE(board.sasGetExpanderAddr(addr));
    EXPECT_EQ(addr, "500605BCDA10123F");

    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow));
    EXPECT_TRUE(calls.log.waitFor("led 8"));
    EXPECT_EQ(sim.control("check 1 led 8"), "ok");

    EXPECT_TRUE(board.enableDiskpackTemperatureEvents(true));
    EXPECT_EQ(sim.control("temp 1 -5"), "ok");
    EXPECT_TRUE(calls.log.waitFor("temp -5"));
    int min = 0, max = 0;
    ASSERT_TRUE(board.getMinMaxTemperatures(min, max));
    EXPECT_EQ(min, -5);

    EXPECT_EQ(sim.control("lever 1 open"), "ok");
    EXPECT_TRUE(calls.log.waitFor("lever open"));

    board.closeBoard(false);
    board.deregisterListener(&calls);
}

TEST(BoardsBSim, XferDualThroughTheEmulator)
{
    TempDevDir dev;
    SimProcess sim(dev.path(), { "--board", "u" });
    ASSERT_TRUE(sim.isReady());

    XferDualBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));
    XferDualCalls calls;
    board.registerListener(&calls);

    EXPECT_EQ(sim.control("insert 0 1 fault"), "ok");
    EXPECT_TRUE(calls.log.waitFor("pack 1 present fault"));
    EXPECT_EQ(sim.control("insert 0 0"), "ok");
    EXPECT_TRUE(board.syncState());
    EXPECT_TRUE(calls.log.waitFor("pack 0 present"));
    EXPECT_TRUE(calls.log.waitFor("fan 1 128")) << "synchronisation reports the disk fans";

    // Diskpack 0 powered: both its disks answer; diskpack 1's do not.
    EXPECT_TRUE(board.setDiskpackPower(0, true));
    juce::String addr;
    ASSERT_TRUE(board.sasGetDiskAddr(0, 0, addr));
    EXPECT_EQ(addr, "5000c500cd000000");
    ASSERT_TRUE(board.sasGetDiskAddr(0, 1, addr));
    EXPECT_EQ(addr, "5000c500cd000001");
    ASSERT_TRUE(board.sasGetDiskAddr(1, 0, addr));
    EXPECT_EQ(addr, "0000000000000000");
    ASSERT_TRUE(board.sasGetExpanderAddr(addr));
    EXPECT_EQ(addr, "500605b0dd000000");

    // The emulator refuses a rate write that disturbs the register's upper bits.
    EXPECT_TRUE(board.sasSetPhyMinMaxSpeed(2, sasSpeed3G, sasSpeed6G));
    EXPECT_EQ(sim.control("check 0 rate.2 0x3C005EA9"), "ok");

    EXPECT_EQ(sim.control("phyerrors 0 35 7"), "ok");
    int count = 0;
    ASSERT_TRUE(board.sasGetPhyErrorCount(35, count));
    EXPECT_EQ(count, 7);
    EXPECT_TRUE(board.sasClearErrorCounts());
    EXPECT_EQ(sim.control("check 0 errors.35 0"), "ok");
    EXPECT_TRUE(board.sasResetPhy(3));
    EXPECT_TRUE(board.sasReset(true));
    EXPECT_EQ(sim.control("check 0 uart 1"), "ok");

    const unsigned char data[] = { 0xAA, 0x55 };
    EXPECT_TRUE(board.writeDiskpackEeprom(1, 0x1A5, 2, data));
    unsigned char page[32] = {};
    ASSERT_TRUE(board.readDiskpackEeprom(1, 0x1A4, 4, page));
    EXPECT_EQ(page[0], 0xFF);
    EXPECT_EQ(page[1], 0xAA);
    EXPECT_EQ(page[2], 0x55);
    EXPECT_EQ(sim.control("check 0 eeprom.0.0x1A5 0xFF"), "ok") << "the other diskpack is untouched";

    EXPECT_FALSE(board.setFanSpeed(84));
    EXPECT_TRUE(board.setFanSpeed(200));
    EXPECT_EQ(sim.control("check 0 fan 200"), "ok");
    EXPECT_TRUE(board.setFanAuto(true));
    EXPECT_EQ(sim.control("check 0 fan 1"), "ok");

    EXPECT_TRUE(board.setDiskpackLed(1, 3, 0, 2, true, false));
    EXPECT_TRUE(calls.log.waitFor("led 1 on"));
    EXPECT_TRUE(board.setDiskFanSpeed(0, false, 200));
    EXPECT_TRUE(calls.log.waitFor("fan 0 200"));

    EXPECT_EQ(sim.control("button 0 1 down"), "ok");
    EXPECT_TRUE(calls.log.waitFor("eject 1 down"));
    EXPECT_TRUE(board.enableSysTemperatureEvents(true));
    EXPECT_EQ(sim.control("systemp 0 40 -3"), "ok");
    EXPECT_TRUE(calls.log.waitFor("sys 40 -3"));

    board.closeBoard(false);
    board.deregisterListener(&calls);
}
