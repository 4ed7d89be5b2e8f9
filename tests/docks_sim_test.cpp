// The three docks end to end: the dock classes over the emulated platform, across the socket, against the
// dock emulator, and avrflash updating a Thunderbolt dock through its bootloader.
#include "docks/platform/DockPlatform.h"
#include "support/DockHeard.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>

#ifndef AVRTEST_BIN_DIR
#error "AVRTEST_BIN_DIR must name the directory of the built programs"
#endif

namespace
{
using namespace boardtest;

/** One dock under test: how to make it, what its readings give, and an event with the call it must raise. */
struct DockCase
{
    const char* name;
    int index; // in the emulator's dock list, and its id
    const char* version;
    std::function<std::unique_ptr<HardwareBoard>()> makeBoard;
    std::function<std::string(HardwareBoard&)> read;
    std::string readings, eventControl, eventSeen;
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const DockCase& c, std::ostream* os)
{
    *os << c.name;
}

/** Hours, then a disk serial and the UID, both found through the emulator's registry. */
std::function<std::string(HardwareBoard&)> tbtReadings(int disk)
{
    return [disk](HardwareBoard& b) {
        auto& dock = static_cast<TbtDockBoard&>(b);
        int hours = -1;
        juce::String serial, uid;
        const bool ok = dock.getOperatingHours(hours) && dock.getDiskSerialNumber(disk, serial) && dock.getUID(uid);
        return std::to_string(ok) + " " + std::to_string(hours) + " " + serial.toStdString() + " " + uid.toStdString();
    };
}

const std::vector<DockCase>& dockCases()
{
    static const std::vector<DockCase> cases {
        { "usb", 0, "2.7.1", [] { return std::make_unique<XferDock>(DockPlatform::create()); },
          [](HardwareBoard& b) {
              int id = -1;
              const bool ok = static_cast<XferDock&>(b).getDiskpackId(id);
              return std::to_string(ok) + " " + std::to_string(id);
          },
          "1 1", "button 0 down", "eject down" },
        { "single", 1, "V3.1", [] { return std::make_unique<TbtSingleBoard>(DockPlatform::create()); },
          tbtReadings(1), "1 1234 SIMDISK11Z1 00d1dc5e12340001", "button 1 down", "eject down" },
        { "cd2", 2, "V4.2", [] { return std::make_unique<TbtCd2Board>(DockPlatform::create()); },
          tbtReadings(3), "1 1234 SIMDISK23Z2 00d1dc5e12340002", "fan 2 200", "fan 200" },
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

    juce::File scratch = juce::File::createTempFile("docks-e2e");
    std::string socket;
    std::unique_ptr<SimProcess> sim;
};

} // namespace

TEST_P(DocksOverTheSocket, OpensRunsCommandsDeliversEventsAndClosesOnUnplug)
{
    const auto& c = GetParam();
    UsbDockHeard usb;
    SingleHeard single;
    Cd2Heard cd2;
    const std::pair<HardwareBoardEventListener*, Heard*> byIndex[] = { { &usb, &usb }, { &single, &single },
                                                                        { &cd2, &cd2 } };
    const auto [listener, heard] = byIndex[c.index];
    auto board = c.makeBoard();

    EXPECT_FALSE(board->findAndOpen(7)) << "no dock has that id";
    ASSERT_TRUE(board->findAndOpen(c.index));
    EXPECT_EQ(juce::String(c.version), board->getVersionString());
    board->registerListener(listener);

    EXPECT_EQ(c.read(*board), c.readings);

    ASSERT_EQ("ok", sim->control(c.eventControl));
    EXPECT_TRUE(heard->waitFor(c.eventSeen));

    ASSERT_EQ("ok", sim->control("unplug " + std::to_string(c.index)));
    EXPECT_TRUE(waitUntil([&] { return !board->boardIsOpen(); })) << "still open after unplug";
    board->deregisterListener(listener);
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

    const auto run = runProgram(std::string(AVRTEST_BIN_DIR) + "/avrflash --id 1 m " + file.getFullPathName().toStdString());
    EXPECT_EQ(run.status, 0) << run.output;

    // What the dock's flash holds now, checked by the emulator itself.
    for (int offset : { 0, 512, 1024 })
        EXPECT_EQ("ok", sim->control("check 1 flash:" + juce::String::toHexString(offset).toStdString() + " "
                                     + juce::String::toHexString(image.begin() + offset, 16, 0).toStdString()))
            << "offset " << offset << "\n" << run.output;
    EXPECT_EQ("ok", sim->control("check 1 endstatus 1")) << "told it succeeded";
}
