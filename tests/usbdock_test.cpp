#include "support/BoardTestKit.h"
#include "support/FakeUsbDockDriver.h"

#include "docks/usb/DriverInstanceList.h"
#include "docks/usb/XferDock.h"

#include <functional>
#include <string>

using namespace boardtest;
using Bytes = std::vector<uint8_t>;

namespace
{
constexpr int noPolling = 3600 * 1000;

struct DockHeard : XferDockEventListener, Heard
{
    using XferDockEventListener::XferDockEventListener;
    void dockFault(bool active) override { add(onOff(active, "fault on", "fault off")); }
    void diskpackChanged(bool present, bool wp) override
    {
        add(onOff(present, "pack present", "pack absent") + onOff(wp, " wp", ""));
    }
    void ejectButton(bool down) override { add(onOff(down, "eject down", "eject up")); }
    void diskpackTemperature(int degrees) override { add("temp " + std::to_string(degrees)); }
};

/** A status reply: subcode 0, then the given bytes set, the rest zero. */
FakeUsbDockDriver::Completion status(std::initializer_list<std::pair<int, int>> set)
{
    Bytes bytes(XferDock::statusLength, 0);
    for (const auto& [index, value] : set)
        bytes[(size_t) index] = (uint8_t) value;
    return FakeUsbDockDriver::reply(bytes);
}

Bytes argumentsOf(const CDB16& cdb, int count)
{
    return Bytes(cdb.bytes + 2, cdb.bytes + 2 + count);
}

std::string hex(DockPlatform::Result r)
{
    return juce::String::toHexString((juce::int64) r).toUpperCase().toStdString();
}

struct UsbDock : ::testing::Test
{
    LogCapture log;
    std::shared_ptr<FakeUsbDockDriver> driver = std::make_shared<FakeUsbDockDriver>();
    std::unique_ptr<XferDock> dock;

    void SetUp() override
    {
        driver->addDriverService(driver->addDevice(0x14100000, juce::String("DOCK0001")));
        driver->answer(0x05, FakeUsbDockDriver::reply({ 0x05, 1, 2, 3 }));
    }

    ::testing::AssertionResult open(int statusPeriodMs = noPolling)
    {
        dock = std::make_unique<XferDock>(driver, statusPeriodMs);
        if (dock->findAndOpen(0))
            return ::testing::AssertionSuccess();
        return ::testing::AssertionFailure() << "dock did not open; log: " << log.lines().joinIntoString(" | ");
    }

    bool reopen()
    {
        dock->closeBoard(false);
        return dock->findAndOpen(0);
    }
};

int countOf(const LogCapture& log, const juce::String& line)
{
    int n = 0;
    for (const auto& l : log.lines())
        n += l == line ? 1 : 0;
    return n;
}
} // namespace

//==============================================================================
TEST_F(UsbDock, StatusChangesReachTheListenersThatWantThem)
{
    struct Case
    {
        const char* name;
        std::vector<FakeUsbDockDriver::Completion> updates;
        uint32_t mask;
        Calls heard;
        bool storedWriteProtect;
    };
    const auto all = XferDockEventListener::allEvents;
    const auto everything = status({ { 1, 0x0D }, { 3, 0x02 }, { 4, 'U' }, { 5, 0x90 }, { 6, 0x01 }, { 12, 1 } });
    const Case cases[] = {
        { "write protection alone", { status({ { 1, 0x04 } }) }, all, {}, false },
        { "first update reports every non-zero field", { everything }, all,
          { "pack present wp", "temp 25", "eject down", "fault on" }, true },
        { "an unchanged update raises nothing", { everything, everything }, all,
          { "pack present wp", "temp 25", "eject down", "fault on" }, true },
        { "fault-only listener hears everything changed with the fault",
          { status({ { 1, 0x09 }, { 4, 'U' }, { 5, 0x90 }, { 6, 0x01 }, { 12, 1 } }) },
          XferDockEventListener::faultEventBit, { "pack present", "temp 25", "fault on" }, false },
        { "fault-only listener without a fault change", { status({ { 1, 0x09 } }) },
          XferDockEventListener::faultEventBit, {}, false },
        { "temperature without its valid mark", { status({ { 5, 0x90 }, { 6, 0x01 } }) }, all, {}, false },
        { "the eject button also reports the pack",
          { status({ { 1, 0x09 } }), status({ { 1, 0x09 }, { 3, 0x02 } }) }, all,
          { "pack present", "pack present", "eject down" }, false },
        { "present needs both bits", { status({ { 1, 0x09 } }), status({ { 1, 0x08 } }) }, all,
          { "pack present", "pack absent" }, false },
        { "any of bytes 7 to 12 is a fault change", { status({ { 7, 1 } }) }, all, { "fault off" }, false },
    };

    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(open());
        DockHeard heard(c.mask);
        dock->registerListener(&heard);
        for (const auto& update : c.updates)
        {
            driver->answer(0x00, update);
            EXPECT_TRUE(dock->syncState());
        }
        EXPECT_EQ(heard.calls(), c.heard);
        EXPECT_EQ(dock->storedWriteProtect(), c.storedWriteProtect);
        dock.reset();
    }
    const auto statusBlocks = driver->calls();
    ASSERT_FALSE(statusBlocks.empty());
    EXPECT_EQ(statusBlocks.back().replyLength, 128u);
}

//==============================================================================
TEST_F(UsbDock, EepromWritesGoInChunksThatMayRunPastTheCount)
{
    struct Case
    {
        int address, count;
        std::vector<std::pair<int, int>> chunks; // address, size
        bool reported;
        int refusedChunk;
    };
    const Case cases[] = {
        { 0, 15, { { 0, 11 }, { 11, 11 } }, false, -1 },
        { 40, 11, { { 40, 11 } }, false, -1 },
        { 28, 20, { { 28, 4 }, { 32, 4 }, { 36, 4 }, { 40, 4 }, { 44, 11 } }, false, -1 },
        { 510, 4, { { 510, 2 }, { 512, 2 } }, true, -1 },
        { 0, 15, { { 0, 11 }, { 11, 11 } }, false, 1 },
        { 0, 0, {}, false, -1 },
        { 0, -1, {}, true, -1 },
    };
    ASSERT_TRUE(open());
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::to_string(c.count) + " bytes at " + std::to_string(c.address));
        int chunk = 0;
        driver->respond(0x0B, [&chunk, &c](const CDB16&) {
            return FakeUsbDockDriver::reply({ 0x0B, (uint8_t) (chunk++ == c.refusedChunk ? 'N' : 'U') });
        });
        driver->clearCalls();
        log.clear();
        Bytes data(64);
        for (size_t i = 0; i < data.size(); ++i)
            data[i] = (uint8_t) (0xA0 + i);

        EXPECT_EQ(dock->writeDiskpackEeprom(c.address, c.count, data.data()), c.refusedChunk < 0);
        EXPECT_EQ(log.contains("Invalid params"), c.reported);

        const auto blocks = driver->blocks(0x0B);
        ASSERT_EQ(blocks.size(), c.chunks.size());
        int written = 0;
        for (size_t i = 0; i < blocks.size(); ++i)
        {
            const auto [address, size] = c.chunks[i];
            EXPECT_EQ(argumentsOf(blocks[i], 3), (Bytes { (uint8_t) address, (uint8_t) (address >> 8), (uint8_t) size }));
            for (int b = 0; b < size; ++b)
            {
                const int source = written + b;
                EXPECT_EQ(blocks[i].bytes[5 + b], source < c.count ? data[(size_t) source] : 0) << "byte " << source;
            }
            written += size;
        }
    }
}

TEST_F(UsbDock, EepromReadsStopAtEachPageEnd)
{
    struct Case
    {
        int address, count;
        std::vector<std::pair<int, int>> chunks;
        int unreadableChunk;
    };
    const Case cases[] = {
        { 20, 40, { { 20, 12 }, { 32, 28 } }, -1 },
        { 0, 70, { { 0, 32 }, { 32, 32 }, { 64, 6 } }, -1 },
        { 5, 3, { { 5, 3 } }, -1 },
        { 0, 70, { { 0, 32 }, { 32, 32 }, { 64, 6 } }, 1 },
        { 0, 0, {}, -1 },
    };
    ASSERT_TRUE(open());
    for (const auto& c : cases)
    {
        SCOPED_TRACE(std::to_string(c.count) + " bytes at " + std::to_string(c.address));
        int chunk = 0;
        // The dock answers each byte with the low bits of its own address.
        driver->respond(0x0C, [&chunk, &c](const CDB16& cdb) {
            Bytes r { 0x0C, (uint8_t) (chunk++ == c.unreadableChunk ? 'N' : 'U') };
            const int address = cdb.bytes[2] | (cdb.bytes[3] << 8);
            for (int i = 0; i < cdb.bytes[4]; ++i)
                r.push_back((uint8_t) (address + i));
            return std::optional<FakeUsbDockDriver::Completion>(FakeUsbDockDriver::reply(r));
        });
        driver->clearCalls();
        Bytes data(80, 0xEE);
        EXPECT_TRUE(dock->readDiskpackEeprom(c.address, c.count, data.data()));

        const auto calls = driver->calls();
        ASSERT_EQ(calls.size(), c.chunks.size());
        int offset = 0;
        for (size_t i = 0; i < calls.size(); ++i)
        {
            const auto [address, size] = c.chunks[i];
            EXPECT_EQ(argumentsOf(calls[i].cdb, 3), (Bytes { (uint8_t) address, (uint8_t) (address >> 8), (uint8_t) size }));
            EXPECT_EQ(calls[i].replyLength, 48u);
            for (int b = 0; b < size; ++b)
                EXPECT_EQ(data[(size_t) (offset + b)], (int) i == c.unreadableChunk ? 0xEE : (uint8_t) (address + b));
            offset += size;
        }
        EXPECT_EQ(data[(size_t) offset], 0xEE) << "read past the count";
    }
}

//==============================================================================
TEST_F(UsbDock, EachReplyIsParsedFromItsOwnBytes)
{
    struct Case
    {
        const char* name;
        uint8_t subcode;
        Bytes reply;
        std::function<bool(XferDock&, std::string&)> call;
        bool ok;
        std::string value;
        Bytes arguments;
        uint64_t replyLength;
        juce::StringArray logged;
        uint8_t opcode;
    };
    using Rail = XferDockVoltageRail;
    // Each getter reads into a value that is shown as text; "-1", "" and
    // "no" are what an untouched value shows.
    auto reading = [](auto initial, auto show) {
        return [=](auto get) {
            return [=](XferDock& d, std::string& v) {
                auto value = initial;
                const bool ok = get(d, value);
                v = show(value);
                return ok;
            };
        };
    };
    auto text = reading(juce::String(), [](const juce::String& s) { return s.toStdString(); });
    auto number = reading(-1, [](int n) { return std::to_string(n); });
    auto flag = reading(false, [](bool b) { return std::string(b ? "yes" : "no"); });
    auto plain = [](auto op) { return [op](XferDock& d, std::string&) { return op(d); }; };
    const uint8_t ordinary = CDB16::dockCommandOpcode;

    const Case cases[] = {
        { "guid", 0x04, { 0x04, 0x28, 0x01, 0x02, 0x03, 0x04, 0x05, 0x0A, 0xFF, 0x99 },
          text([](XferDock& d, juce::String& s) { return d.getDiskpackGuid(s); }), true, "280102030405" "0aff", {}, 16, {}, ordinary },
        { "firmware revision", 0x05, { 0x05, 1, 12, 3 },
          text([](XferDock& d, juce::String& s) { return d.getFirmwareRevision(s); }), true, "1.12.3", {}, 32, {}, ordinary },
        { "temperature, high byte", 0x0A, { 0x0A, 0x0F, 0x23 },
          number([](XferDock& d, int& n) { return d.getDiskpackTemp(n); }), true, "560", {}, 16, {}, ordinary },
        { "12 V rail", 0x0F, { 0x0F, 'U', 0xE0, 0x2E },
          number([](XferDock& d, int& n) { return d.getVoltageRail(Rail::supply12V, n); }), true, "12000", { 0 }, 16, {}, ordinary },
        { "3V3 rail", 0x0F, { 0x0F, 'U', 0xE4, 0x0C },
          number([](XferDock& d, int& n) { return d.getVoltageRail(Rail::diskpack3V3, n); }), true, "3300", { 1 }, 16, {}, ordinary },
        { "rail without U", 0x0F, { 0x0F, 'N', 0xE4, 0x0C },
          number([](XferDock& d, int& n) { return d.getVoltageRail(Rail::diskpack3V3, n); }), false, "-1", { 1 }, 16, {}, ordinary },
        { "write protected", 0x06, { 0x06, 'U', 2 },
          flag([](XferDock& d, bool& b) { return d.getDiskpackWriteProtect(b); }), true, "yes", {}, 16, {}, ordinary },
        { "write protection unknown", 0x06, { 0x06, 'N', 1 },
          flag([](XferDock& d, bool& b) { return d.getDiskpackWriteProtect(b); }), false, "no", {}, 16,
          { "Diskpack write protection cannot be determined." }, ordinary },
        { "protect", 0x07, { 0x07, 'U' }, plain([](XferDock& d) { return d.setDiskpackWriteProtect(true); }), true, "",
          { 1 }, 16, {}, ordinary },
        { "protect refused", 0x07, { 0x07, 0 }, plain([](XferDock& d) { return d.setDiskpackWriteProtect(false); }),
          false, "", { 0 }, 16, { "Diskpack write protection cannot be set." }, ordinary },
        { "diskpack id", 0x0D, { 0x0D, 'U', 2 }, number([](XferDock& d, int& n) { return d.getDiskpackId(n); }), true,
          "2", {}, 16, {}, ordinary },
        { "diskpack id invalid", 0x0D, { 0x0D, 'N', 2 }, number([](XferDock& d, int& n) { return d.getDiskpackId(n); }),
          false, "-1", {}, 16, { "Diskpack ID is invalid." }, ordinary },
        { "disk serial", 0x0E, { 0x0E, 1, 'U', 4, 'W', 'D', '4', '2', 'X' },
          text([](XferDock& d, juce::String& s) { return d.getDiskSerialNumber(1, s); }), true, "WD42", { 1 }, 32, {}, ordinary },
        { "disk serial of the other disk", 0x0E, { 0x0E, 0, 'U', 4, 'W', 'D', '4', '2' },
          text([](XferDock& d, juce::String& s) { return d.getDiskSerialNumber(1, s); }), false, "", { 1 }, 32,
          { "Error in serial number" }, ordinary },
        { "disk serial without U", 0x0E, { 0x0E, 0, 'N', 4, 'W', 'D', '4', '2' },
          text([](XferDock& d, juce::String& s) { return d.getDiskSerialNumber(0, s); }), false, "", { 0 }, 32,
          { "Error in serial number" }, ordinary },
        { "disk serial empty", 0x0E, { 0x0E, 0, 'U', 0 },
          text([](XferDock& d, juce::String& s) { return d.getDiskSerialNumber(0, s); }), false, "", { 0 }, 32,
          { "Error in serial number" }, ordinary },
        { "diskpack led", 0x02, { 0x02, 'U' },
          plain([](XferDock& d) { return d.setDiskpackLed(255, 0, 128, true, false); }), true, "", { 255, 0, 128, 1, 0 },
          16, {}, ordinary },
        { "dock led", 0x10, { 0x10, 'U' }, plain([](XferDock& d) { return d.setDockLed(true, 1, 2, 3, false); }), true, "",
          { 1, 1, 2, 3, 0 }, 16, {}, ordinary },
        { "power needs no mark", 0x01, { 0x01 }, plain([](XferDock& d) { return d.setDiskpackPower(true); }), true, "",
          { 1 }, 16, {}, ordinary },
        { "firmware upgrade", 0x00, { 0x00 }, plain([](XferDock& d) { return d.beginFirmwareUpgrade(); }), true, "",
          { 0x40, 0xC0 }, 16, {}, CDB16::firmwareUpgradeOpcode },
    };

    ASSERT_TRUE(open());
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        driver->answer(c.subcode, FakeUsbDockDriver::reply(c.reply));
        driver->clearCalls();
        log.clear();
        std::string value;
        EXPECT_EQ(c.call(*dock, value), c.ok);
        EXPECT_EQ(value, c.value);
        EXPECT_EQ(log.lines(), c.logged);

        const auto calls = driver->calls();
        ASSERT_EQ(calls.size(), 1u);
        EXPECT_EQ(calls[0].selector, (uint32_t) USBDockSCSIDeviceHandler::execCommand);
        EXPECT_EQ(calls[0].cdb.opcode(), c.opcode);
        EXPECT_EQ(calls[0].cdb.subcode(), c.subcode);
        EXPECT_EQ(calls[0].replyLength, c.replyLength);
        Bytes expectedBlock(14, 0);
        std::copy(c.arguments.begin(), c.arguments.end(), expectedBlock.begin());
        EXPECT_EQ(argumentsOf(calls[0].cdb, 14), expectedBlock);
    }

    driver->clearCalls();
    log.clear();
    juce::String serial;
    EXPECT_FALSE(dock->getDiskSerialNumber(2, serial));
    EXPECT_EQ(log.lines(), juce::StringArray { "Disk ID cannot be grerater than 1." });
    EXPECT_TRUE(driver->calls().empty());
}

//==============================================================================
TEST_F(UsbDock, CompletionResultsDecideSuccessAndRemoval)
{
    using Driver = FakeUsbDockDriver;
    struct Case
    {
        const char* name;
        DockPlatform::Result issued;
        Driver::Completion completion;
        bool switchingOff; // sent expecting the dock to drop off the bus
        bool ok;
        juce::StringArray logged;
        bool removed;
    };
    const auto failed = [](DockPlatform::Result r) { return Driver::Completion { r, {}, 3 }; };
    const juce::String timedOut = "Command 01 unsuccessful or timed out...";
    const juce::String badResult = "Command returned a bad result: ";
    const Case cases[] = {
        { "detached when expected", Driver::success, failed(DockPlatform::resultNotAttached), true, false, {}, true },
        { "detached", Driver::success, failed(DockPlatform::resultNotAttached), false, false,
          { badResult + hex(DockPlatform::resultNotAttached), timedOut }, true },
        { "error", Driver::success, failed(DockPlatform::resultError), false, false,
          { badResult + hex(DockPlatform::resultError), timedOut }, true },
        { "not responding", Driver::success, failed(DockPlatform::resultNotResponding), false, false,
          { badResult + hex(DockPlatform::resultNotResponding), timedOut }, false },
        { "two result arguments", Driver::success, { Driver::success, { 0x01, 'U' }, 2 }, false, false,
          { "Command callback arrived with the wrong number of arguments.", timedOut }, false },
        { "success", Driver::success, Driver::reply({ 0x01, 'U' }), false, true, {}, false },
        { "dead port when expected", DockPlatform::resultSendInvalidDest, {}, true, false, {}, true },
        { "dead port", DockPlatform::resultSendInvalidDest, {}, false, false, { "Device IO failed with result 10000003" }, true },
        { "refused", DockPlatform::resultError, {}, false, false, { "Device IO failed with result e00002bc" }, true },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(open());
        log.clear();
        driver->issueResult = c.issued;
        driver->answer(0x01, c.completion);
        EXPECT_EQ(dock->setDiskpackPower(!c.switchingOff), c.ok);
        driver->issueResult = Driver::success;
        EXPECT_EQ(dock->deviceRemoved(), c.removed);
        EXPECT_EQ(log.lines(), c.logged);
        dock.reset();
    }
}

TEST_F(UsbDock, AReplyForAnotherCommandIsDiscarded)
{
    ASSERT_TRUE(open());
    driver->answer(0x0A, FakeUsbDockDriver::reply({ 0x07, 0x90, 0x01 }));
    int degrees = -1;
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    EXPECT_EQ(degrees, -1);
    EXPECT_EQ(log.lines(), juce::StringArray { "Command returned with the wrong subcode - got 07, should be 0A" });
}

TEST_F(UsbDock, ACommandWithoutReplyGivesUpAfterASecond)
{
    ASSERT_TRUE(open());
    driver->silence(0x0A);
    int degrees = -1;
    const auto start = juce::Time::getMillisecondCounterHiRes();
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    const auto elapsed = juce::Time::getMillisecondCounterHiRes() - start;
    EXPECT_GE(elapsed, 990.0);
    EXPECT_LT(elapsed, 5000.0);
    EXPECT_EQ(log.lines(), juce::StringArray { "Command 0A unsuccessful or timed out..." });
}

TEST_F(UsbDock, AKeptReplyJudgesTheNextCommandThatGetsNone)
{
    struct Case
    {
        const char* name;
        std::function<bool(XferDock&)> next;
        bool ok;
        juce::StringArray logged;
    };
    const Case cases[] = {
        { "the same command", [](XferDock& d) { return d.getDriveLED(); }, true, {} },
        { "another command", [](XferDock& d) { int t; return d.getDiskpackTemp(t); }, false,
          { "Command returned with the wrong subcode - got 03, should be 0A" } },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(open());
        driver->answer(0x03, FakeUsbDockDriver::reply({ 0x03, 'U' }));
        EXPECT_TRUE(dock->getDriveLED());
        driver->silence(0x03);
        driver->silence(0x0A);
        log.clear();
        EXPECT_EQ(c.next(*dock), c.ok);
        EXPECT_EQ(log.lines(), c.logged);
        dock.reset();
    }
}

TEST_F(UsbDock, FailuresStayUnreportedAfterASuppressedCommandUntilReopened)
{
    ASSERT_TRUE(open());
    driver->silence(0x01);
    driver->silence(0x0A);
    int degrees = 0;
    EXPECT_FALSE(dock->setDiskpackPower(false));
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    EXPECT_TRUE(log.lines().isEmpty()) << log.lines().joinIntoString(" | ");

    ASSERT_TRUE(reopen());
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    EXPECT_EQ(log.lines(), juce::StringArray { "Command 0A unsuccessful or timed out..." });
}

//==============================================================================
TEST_F(UsbDock, DiscoveryKeepsOneRecordPerDevice)
{
    struct Device
    {
        std::optional<int> location;
        std::optional<juce::String> serial;
    };
    struct Case
    {
        const char* name;
        std::vector<Device> devices;
        std::vector<int> services; // the device each driver service hangs below
        DockPlatform::Result matchResult;
        std::vector<std::pair<int, juce::String>> found;
        juce::StringArray logged;
    };
    const Case cases[] = {
        { "two services of one device", { { 0x100, juce::String("S1") }, { 0x200, juce::String("S2") } }, { 0, 0, 1 },
          DockPlatform::success, { { 0x100, "S1" }, { 0x200, "S2" } }, {} },
        { "a device without location ends the scan",
          { { 0x100, juce::String("S1") }, { std::nullopt, juce::String("S2") }, { 0x300, juce::String("S3") } }, { 0, 1, 2 },
          DockPlatform::success, { { 0x100, "S1" } }, { "Device locationID could not be found." } },
        { "no serial number", { { 0x100, std::nullopt } }, { 0 }, DockPlatform::success, { { 0x100, "" } },
          { "Property 'USB Serial Number' could not be found." } },
        { "matching fails", { { 0x100, juce::String("S1") } }, { 0 }, DockPlatform::resultError, {},
          { "IOServicesGetMatchingServices returned 0xe00002bc\n\n" } },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        auto registry = std::make_shared<FakeUsbDockDriver>();
        std::vector<DockPlatform::Entry> devices;
        for (const auto& d : c.devices)
            devices.push_back(registry->addDevice(d.location, d.serial));
        for (int d : c.services)
            registry->addDriverService(devices[(size_t) d]);
        registry->matchResult = c.matchResult;
        log.clear();
        {
            DriverInstanceList list(registry);
            ASSERT_EQ(list.findDevicesByDriverName(USBDockBoard::driverName), (int) c.found.size());
            for (int i = 0; i < list.size(); ++i)
            {
                EXPECT_EQ(list[i]->locationID, c.found[(size_t) i].first);
                EXPECT_EQ(list[i]->serialNumber, c.found[(size_t) i].second);
            }
            EXPECT_EQ(log.lines(), c.logged);
        }
        EXPECT_EQ(registry->outstandingReferences(), 0);
    }
}

TEST_F(UsbDock, OpeningPicksTheDockByIndexAndReadsItsFirmware)
{
    struct Case
    {
        const char* name;
        int id;
        std::function<void(FakeUsbDockDriver&)> script;
        bool opened;
        int serviceOpens;
        bool connected;
        juce::StringArray logged;
    };
    const Case cases[] = {
        { "second dock", 1, [](FakeUsbDockDriver&) {}, true, 1, true, {} },
        { "id past the list", 2, [](FakeUsbDockDriver&) {}, false, 0, false, {} },
        { "negative id", -1, [](FakeUsbDockDriver&) {}, false, 0, false, {} },
        { "open refused", 0, [](FakeUsbDockDriver& d) { d.openResult = DockPlatform::resultNotAttached; }, false, 1, false,
          { "IOServiceOpen returned 0xe00002d9 - machPort is 0" } },
        { "user client refused, the revision still read", 0,
          [](FakeUsbDockDriver& d) { d.setScalarResult(USBDockSCSIDeviceHandler::openCommand, DockPlatform::resultError); },
          true, 1, true, { "Failed to open user client with error E00002BC" } },
        { "no revision", 0, [](FakeUsbDockDriver& d) { d.answer(0x05, { DockPlatform::success, { 0x05, 1 }, 2 }); }, false,
          1, true, { "Command callback arrived with the wrong number of arguments.", "Command 05 unsuccessful or timed out..." } },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        auto registry = std::make_shared<FakeUsbDockDriver>();
        registry->addDriverService(registry->addDevice(0x14100000, juce::String("DOCK0001")));
        registry->addDriverService(registry->addDevice(0x14200000, juce::String("DOCK0002")));
        registry->answer(0x05, FakeUsbDockDriver::reply({ 0x05, 2, 10, 7 }));
        c.script(*registry);
        log.clear();
        {
            XferDock board(registry, noPolling);
            EXPECT_EQ(board.findAndOpen(c.id), c.opened);
            EXPECT_EQ(board.boardIsOpen(), c.opened);
            EXPECT_EQ(registry->openCalls(), c.serviceOpens);
            EXPECT_EQ(log.lines(), c.logged);
            if (c.opened)
            {
                EXPECT_EQ(board.getVersionString(), "2.10.7");
                EXPECT_EQ(board.getSerialNumber(), c.id == 1 ? "DOCK0002" : "DOCK0001");
                EXPECT_EQ(board.getLocationID(), c.id == 1 ? 0x14200000 : 0x14100000);
                EXPECT_EQ(registry->scalarCalls(USBDockSCSIDeviceHandler::openCommand), 1);
            }
        }
        // Every service and the connection are given back, the client closed.
        EXPECT_EQ(registry->outstandingReferences(), 0);
        EXPECT_EQ(registry->closeCalls(), c.connected ? 1 : 0);
        EXPECT_EQ(registry->scalarCalls(USBDockSCSIDeviceHandler::closeCommand), c.connected ? 1 : 0);
    }
}

//==============================================================================
TEST_F(UsbDock, TheWatchClosesTheBoardOnlyOnceACommandFoundTheDockGone)
{
    ASSERT_TRUE(open());
    // A failing presence query is only reported; the board stays open.
    driver->setScalarResult(USBDockSCSIDeviceHandler::presentCommand, DockPlatform::resultNotAttached);
    const juce::String notPresent = "Device is not present - code e00002d9 - ignoring";
    ASSERT_TRUE(waitUntil([&] { return countOf(log, notPresent) >= 3; }, 10000));
    EXPECT_TRUE(dock->boardIsOpen());

    driver->answer(0x0A, { DockPlatform::resultNotAttached, {}, 3 });
    int degrees = 0;
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    EXPECT_TRUE(waitUntil([&] { return !dock->boardIsOpen(); }, 10000));
    EXPECT_TRUE(waitUntil([&] { return !dock->isThreadRunning(); }, 10000));
}

TEST_F(UsbDock, OneFailedStatusUpdateEndsThePollUntilReopened)
{
    ASSERT_TRUE(open(20));
    auto statusRequests = [&] { return driver->blocks(0x00).size(); };
    ASSERT_TRUE(waitUntil([&] { return statusRequests() >= 2; }, 10000));

    driver->answer(0x00, { DockPlatform::success, { 0x00 }, 2 });
    ASSERT_TRUE(waitUntil([&] { return !dock->isStatusPolling(); }, 10000));
    const auto whenStopped = statusRequests();
    EXPECT_TRUE(dock->boardIsOpen());

    driver->answer(0x00, status({}));
    ASSERT_TRUE(reopen());
    EXPECT_TRUE(waitUntil([&] { return statusRequests() >= whenStopped + 2; }, 10000));
    EXPECT_TRUE(dock->isStatusPolling());
}

TEST_F(UsbDock, RepliesArrivingAfterTheBoardWentAreFreed)
{
    ASSERT_TRUE(open());
    auto* orphan = new unsigned char[4] { 0x0A, 1, 2, 3 };
    XferDock* gone = dock.get();
    dock.reset();
    USBDockBoard::commandCallback(gone, true, orphan, 4);
    EXPECT_TRUE(log.contains("Handler is gone - tidying up return buffer."));
}
