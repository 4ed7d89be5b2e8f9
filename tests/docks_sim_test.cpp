// The three docks end to end: the dock classes over the emulated platform,
// across the socket, against the dock emulator, and avrflash updating a
// Thunderbolt dock through its bootloader.
#include "docks/platform/DockPlatform.h"
#include "docks/thunderbolt/TbtCd2Board.h"
#include "docks/thunderbolt/TbtSingleBoard.h"
#include "docks/usb/XferDock.h"
#include "support/SimProcess.h"

#include <gtest/gtest.h>

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <sys/wait.h>

#ifndef AVRTEST_BIN_DIR
#error "AVRTEST_BIN_DIR must name the directory of the built programs"
#endif

namespace
{
constexpr int deadlineMs = 10000;

/** Event lines from any dock's listener, waited for by the test thread. */
class EventLog
{
public:
    void add(const std::string& line)
    {
        std::lock_guard<std::mutex> guard(mutex);
        lines.push_back(line);
        changed.notify_all();
    }

    bool waitFor(const std::string& line)
    {
        std::unique_lock<std::mutex> guard(mutex);
        return changed.wait_for(guard, std::chrono::milliseconds(deadlineMs), [&] {
            return std::find(lines.begin(), lines.end(), line) != lines.end();
        });
    }

private:
    std::mutex mutex;
    std::condition_variable changed;
    std::vector<std::string> lines;
};

struct UsbListener : XferDockEventListener
{
    explicit UsbListener(EventLog& log) : log(log) {}
    void dockFault(bool active) override { log.add("fault " + std::to_string(active)); }
    void diskpackChanged(bool present, bool wp) override
    {
        log.add("diskpack " + std::to_string(present) + std::to_string(wp));
    }
    void ejectButton(bool down) override { log.add("button " + std::to_string(down)); }
    void diskpackTemperature(int degrees) override { log.add("temp " + std::to_string(degrees)); }
    EventLog& log;
};

template <typename Base>
struct TbtListener : Base
{
    explicit TbtListener(EventLog& log) : log(log) {}
    void debugText(const juce::String& text) override { log.add("text " + text.toStdString()); }
    void dockTemperature(int degrees) override { log.add("dock-temp " + std::to_string(degrees)); }
    void diskpackTemperature(int degrees) override { log.add("temp " + std::to_string(degrees)); }
    void diskpackChanged(bool present, bool fault) override
    {
        log.add("diskpack " + std::to_string(present) + std::to_string(fault));
    }
    void ejectButton(bool down) override { log.add("button " + std::to_string(down)); }
    EventLog& log;
};

struct SingleListener : TbtListener<TbtSingleBoardEventListener>
{
    using TbtListener::TbtListener;
    void diskpackLed(bool on) override { log.add("led " + std::to_string(on)); }
};

struct Cd2Listener : TbtListener<TbtCd2BoardEventListener>
{
    using TbtListener::TbtListener;
    void fanSpeed(int speed) override { log.add("fan " + std::to_string(speed)); }
};

/** One dock under test: how to make it and its listener, a command with the
    line the emulator logs for it, and an event with the call it must raise. */
struct DockCase
{
    const char* name;
    int index; // in the emulator's dock list
    int id;
    std::function<std::unique_ptr<HardwareBoard>()> makeBoard;
    std::function<std::unique_ptr<HardwareBoardEventListener>(EventLog&)> makeListener;
    std::function<bool(HardwareBoard&)> command;
    std::string commandLogLine;
    std::string eventControl;
    std::string eventSeen;
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const DockCase& c, std::ostream* os)
{
    *os << c.name;
}

bool getUsbId(HardwareBoard& b)
{
    int id = -1;
    return static_cast<XferDock&>(b).getDiskpackId(id) && id >= 0;
}

bool getHours(HardwareBoard& b)
{
    int hours = -1;
    return static_cast<TbtDockBoard&>(b).getOperatingHours(hours) && hours >= 0;
}

const std::vector<DockCase>& dockCases()
{
    static const std::vector<DockCase> cases {
        { "usb", 0, 0,
          [] { return std::make_unique<XferDock>(DockPlatform::create()); },
          [](EventLog& l) { return std::make_unique<UsbListener>(l); },
          getUsbId, "cdb DE0D0000000000000000000000000000",
          "button 0 down", "button 1" },
        { "single", 1, 1,
          [] { return std::make_unique<TbtSingleBoard>(DockPlatform::create()); },
          [](EventLog& l) { return std::make_unique<SingleListener>(l); },
          getHours, "tbt 1 O", "button 1 down", "button 1" },
        { "cd2", 2, 2,
          [] { return std::make_unique<TbtCd2Board>(DockPlatform::create()); },
          [](EventLog& l) { return std::make_unique<Cd2Listener>(l); },
          getHours, "tbt 2 O", "fan 2 200", "fan 200" },
    };
    return cases;
}

class DocksOverTheSocket : public ::testing::TestWithParam<DockCase>
{
protected:
    void SetUp() override
    {
        scratch.createDirectory();
        socket = scratch.getChildFile("docksim.sock").getFullPathName().toStdString();
        sim = std::make_unique<SimProcess>(std::vector<std::string> {
            AVRTEST_BIN_DIR "/docksim", "--socket", socket, "--log",
            "--dock", "s", "--version", "2.7.1",
            "--dock", "m", "--id", "1", "--version", "V3.1",
            "--dock", "n", "--id", "2", "--version", "V4.2" });
        ASSERT_TRUE(sim->isReady());
        setenv("AVRTEST_DOCKSIM", socket.c_str(), 1);
    }

    void TearDown() override
    {
        sim.reset();
        unsetenv("AVRTEST_DOCKSIM");
        scratch.deleteRecursively();
    }

    static bool waitUntil(const std::function<bool()>& condition)
    {
        const auto end = juce::Time::getMillisecondCounter() + deadlineMs;
        while (!condition())
        {
            if (juce::Time::getMillisecondCounter() > end)
                return false;
            juce::Thread::sleep(10);
        }
        return true;
    }

    juce::File scratch = juce::File::createTempFile("docks-e2e");
    std::string socket;
    std::unique_ptr<SimProcess> sim;
};

const char* expectedVersion(const DockCase& c)
{
    static const char* versions[] = { "2.7.1", "V3.1", "V4.2" };
    return versions[c.index];
}
} // namespace

TEST_P(DocksOverTheSocket, OpensRunsCommandsDeliversEventsAndClosesOnUnplug)
{
    const auto& c = GetParam();
    EventLog events;
    auto board = c.makeBoard();
    auto listener = c.makeListener(events);

    ASSERT_TRUE(board->findAndOpen(c.id));
    EXPECT_EQ(juce::String(expectedVersion(c)), board->getVersionString());
    board->registerListener(listener.get());

    EXPECT_TRUE(c.command(*board));
    EXPECT_TRUE(sim->waitForOutput(c.commandLogLine)) << c.commandLogLine;

    ASSERT_EQ("ok", sim->control(c.eventControl));
    EXPECT_TRUE(events.waitFor(c.eventSeen)) << c.eventSeen;

    ASSERT_EQ("ok", sim->control("unplug " + std::to_string(c.index)));
    EXPECT_TRUE(waitUntil([&] { return !board->boardIsOpen(); })) << "still open after unplug";
    board->deregisterListener(listener.get());
}

TEST_P(DocksOverTheSocket, AnIdNoDockHasIsNotFound)
{
    auto board = GetParam().makeBoard();
    EXPECT_FALSE(board->findAndOpen(7));
    EXPECT_FALSE(board->boardIsOpen());
}

INSTANTIATE_TEST_SUITE_P(Docks, DocksOverTheSocket, ::testing::ValuesIn(dockCases()),
                         [](const auto& info) { return std::string(info.param.name); });

TEST_F(DocksOverTheSocket, AvrflashUpdatesAThunderboltDockThroughItsBootloader)
{
    // Two 512-byte pages and a partial third, each byte telling its offset.
    juce::MemoryBlock image(1100);
    for (size_t i = 0; i < image.getSize(); ++i)
        static_cast<uint8_t*>(image.getData())[i] = static_cast<uint8_t>(i * 7 + 3);
    const auto file = scratch.getChildFile("dock.bin");
    ASSERT_TRUE(file.replaceWithData(image.getData(), image.getSize()));

    const auto command = std::string(AVRTEST_BIN_DIR) + "/avrflash --id 1 m " +
                         file.getFullPathName().toStdString() + " 2>&1";
    std::string output;
    FILE* p = popen(command.c_str(), "r");
    ASSERT_NE(nullptr, p);
    char buf[4096];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, p)) > 0)
        output.append(buf, n);
    const int status = pclose(p);
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << output;

    // What the dock's flash holds now, checked by the emulator itself.
    for (int offset : { 0, 512, 1024 })
    {
        juce::String hex;
        for (int i = offset; i < offset + 16; ++i)
            hex << juce::String::toHexString(static_cast<const uint8_t*>(image.getData()) + i, 1, 0);
        EXPECT_EQ("ok", sim->control("check 1 flash:" + juce::String::toHexString(offset).toStdString() + " " +
                                     hex.toStdString()))
            << "offset " << offset << "\n" << output;
    }
}
