#include "support/DockHeard.h"
#include "support/FakeUsbDockDriver.h"

#include "docks/usb/XferDock.h"

#include <climits>
#include <functional>
#include <string>

using namespace boardtest;
using Bytes = std::vector<uint8_t>;
using Driver = FakeUsbDockDriver;

namespace
{
constexpr int noPolling = 3600 * 1000;

/** A status reply: subcode 0, then the given bytes set, the rest zero. */
Driver::Completion status(std::initializer_list<std::pair<int, int>> set)
{
    Bytes bytes(XferDock::statusLength, 0);
    for (const auto& [index, value] : set)
        bytes[(size_t) index] = (uint8_t) value;
    return Driver::reply(bytes);
}

Driver::Completion failed(DockPlatform::Result result)
{
    return { result, {}, 3 };
}

struct UsbDock : ::testing::Test
{
    LogCapture log;
    std::shared_ptr<Driver> driver = std::make_shared<Driver>();
    std::unique_ptr<XferDock> dock;

    void SetUp() override
    {
        driver->addDriverService(driver->addDevice(0x14100000, juce::String("DOCK0001")));
        driver->answer(0x05, Driver::reply({ 0x05, 1, 2, 3 }));
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
} // namespace

//==============================================================================
TEST_F(UsbDock, StatusChangesReachTheListenersThatWantThem)
{
    const auto full = status({ { 1, 0x0D }, { 3, 0x02 }, { 4, 'U' }, { 5, 0x90 }, { 6, 0x01 }, { 12, 1 } });
    const struct
    {
        const char* name;
        std::vector<Driver::Completion> updates;
        uint32_t mask;
        Calls heard;
        bool storedWriteProtect;
    } cases[] = {
        { "write protection alone", { status({ { 1, 0x04 } }) }, XferDockEventListener::allEvents, {}, false },
        { "an unchanged update raises nothing", { full, full }, XferDockEventListener::allEvents,
          { "pack present wp", "temp 25", "eject down", "fault on" }, true },
        { "fault-only listener hears everything changed with the fault",
          { status({ { 1, 0x09 }, { 4, 'U' }, { 5, 0x90 }, { 6, 0x01 }, { 12, 1 } }) },
          XferDockEventListener::faultEventBit, { "pack present", "temp 25", "fault on" }, false },
        { "fault-only listener without a fault change", { status({ { 1, 0x09 } }) }, XferDockEventListener::faultEventBit, {}, false },
        { "temperature without its valid mark", { status({ { 5, 0x90 }, { 6, 0x01 } }) }, XferDockEventListener::allEvents, {}, false },
        { "the eject button also reports the pack", { status({ { 1, 0x09 } }), status({ { 1, 0x09 }, { 3, 0x02 } }) },
          XferDockEventListener::allEvents, { "pack present", "pack present", "eject down" }, false },
        { "present needs both bits", { status({ { 1, 0x09 } }), status({ { 1, 0x08 } }) }, XferDockEventListener::allEvents,
          { "pack present", "pack absent" }, false },
        { "any of bytes 7 to 12 is a fault change", { status({ { 7, 1 } }) }, XferDockEventListener::allEvents, { "fault off" }, false },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(open());
        UsbDockHeard heard(c.mask);
        dock->registerListener(&heard);
        for (const auto& update : c.updates)
        {
            driver->answer(0x00, update);
            EXPECT_TRUE(dock->syncState());
        }
        EXPECT_EQ(heard.calls(), c.heard);
        EXPECT_EQ(dock->storedWriteProtect(), c.storedWriteProtect);
        EXPECT_EQ(driver->blocks().back().replyLength, 128u);
        dock.reset();
    }
}

//==============================================================================
// Writes are cut at page ends only when they cross one, and a last chunk may run past the count
// (padded with zeros); reads stop at each page end. A span the block cannot address is refused.
TEST_F(UsbDock, EepromSpansGoInChunks)
{
    const struct
    {
        bool write;
        int address, count;
        std::vector<std::pair<int, int>> chunks; // address, size
        int badChunk; // answered 'N': a refused write, an unreadable page
        bool ok, reported;
    } cases[] = {
        { true, 0, 15, { { 0, 11 }, { 11, 11 } }, -1, true, false },
        { true, 28, 20, { { 28, 4 }, { 32, 4 }, { 36, 4 }, { 40, 4 }, { 44, 11 } }, -1, true, false },
        { true, 510, 4, { { 510, 2 }, { 512, 2 } }, -1, true, true },
        { true, 0, 15, { { 0, 11 }, { 11, 11 } }, 1, false, false },
        { true, 0, 0, {}, -1, true, false },
        { true, 0, -1, {}, -1, true, true },
        { true, INT_MAX - 4, 20, {}, -1, false, true },
        { true, -1, 5, {}, -1, false, true },
        { true, 0, INT_MAX, {}, -1, false, true },
        { false, 20, 40, { { 20, 12 }, { 32, 28 } }, -1, true, false },
        { false, 0, 70, { { 0, 32 }, { 32, 32 }, { 64, 6 } }, 1, true, false },
        { false, 0, 0, {}, -1, true, false },
        { false, INT_MAX - 4, 20, {}, -1, false, false },
        { false, -1, 5, {}, -1, false, false },
        { false, 0xFFF0, INT_MAX, {}, -1, false, false },
    };
    ASSERT_TRUE(open());
    Bytes data(64);
    for (size_t i = 0; i < data.size(); ++i)
        data[i] = (uint8_t) (0xA0 + i);
    for (const auto& c : cases)
    {
        SCOPED_TRACE((c.write ? "write " : "read ") + std::to_string(c.count) + " at " + std::to_string(c.address));
        int chunk = 0;
        // A read answers each byte with the low bits of its own address.
        driver->respond(c.write ? 0x0B : 0x0C, [&](const CDB16& cdb) {
            Bytes r { cdb.subcode(), (uint8_t) (chunk++ == c.badChunk ? 'N' : 'U') };
            for (int i = 0; !c.write && i < cdb.bytes[4]; ++i)
                r.push_back((uint8_t) (cdb.bytes[2] + i));
            return std::optional<Driver::Completion>(Driver::reply(r));
        });
        driver->clearCalls();
        log.clear();
        Bytes read(80, 0xEE);
        EXPECT_EQ(c.write ? dock->writeDiskpackEeprom(c.address, c.count, data.data())
                          : dock->readDiskpackEeprom(c.address, c.count, read.data()),
                  c.ok);
        EXPECT_EQ(log.contains("Invalid params"), c.reported);

        const auto blocks = driver->blocks();
        ASSERT_EQ(blocks.size(), c.chunks.size());
        size_t offset = 0;
        for (size_t i = 0; i < blocks.size(); offset += (size_t) c.chunks[i++].second)
        {
            const auto [address, size] = c.chunks[i];
            // Address low, address high and size start an EEPROM block's arguments.
            EXPECT_EQ(Bytes(blocks[i].cdb.bytes + 2, blocks[i].cdb.bytes + 5),
                      (Bytes { (uint8_t) address, (uint8_t) (address >> 8), (uint8_t) size }));
            EXPECT_EQ(blocks[i].replyLength, c.write ? 16u : 48u);
            for (size_t b = 0; b < (size_t) size; ++b)
                EXPECT_EQ(c.write ? blocks[i].cdb.bytes[5 + b] : read[offset + b],
                          c.write ? (offset + b < (size_t) c.count ? data[offset + b] : 0)
                                  : ((int) i == c.badChunk ? 0xEE : (uint8_t) (address + b)))
                    << "byte " << offset + b;
        }
        EXPECT_TRUE(c.write || read[offset] == 0xEE) << "read past the count";
    }
}

//==============================================================================
TEST_F(UsbDock, EachReplyIsParsedFromItsOwnBytes)
{
    // Each call shows its result and what it read: "1 value" or "0 value",
    // where -1, "" and "no" are what an untouched value shows.
    const auto shown = [](bool ok, const juce::String& value) { return juce::String((int) ok) + " " + value; };
    using Call = std::function<juce::String(XferDock&)>;
    const auto number = [&](std::function<bool(XferDock&, int&)> get) -> Call {
        return [=](XferDock& d) { int n = -1; const bool ok = get(d, n); return shown(ok, juce::String(n)); };
    };
    const auto text = [&](std::function<bool(XferDock&, juce::String&)> get) -> Call {
        return [=](XferDock& d) { juce::String s; const bool ok = get(d, s); return shown(ok, s); };
    };
    const auto plain = [&](std::function<bool(XferDock&)> op) -> Call { return [=](XferDock& d) { return shown(op(d), {}); }; };
    const auto serial = [&](int disk) { return text([disk](XferDock& d, juce::String& s) { return d.getDiskSerialNumber(disk, s); }); };

    const struct
    {
        const char* name;
        uint8_t subcode;
        Bytes reply;
        Call call;
        juce::String result;
        Bytes arguments;
        uint64_t replyLength;
        juce::StringArray logged;
    } cases[] = {
        { "firmware revision", 0x05, { 0x05, 1, 12, 3 },
          text([](XferDock& d, juce::String& s) { return d.getFirmwareRevision(s); }), "1 1.12.3", {}, 32, {} },
        { "rail without U", 0x0F, { 0x0F, 'N', 0xE4, 0x0C },
          number([](XferDock& d, int& n) { return d.getVoltageRail(XferDockVoltageRail::diskpack3V3, n); }), "0 -1", { 1 }, 16, {} },
        { "write protection unknown", 0x06, { 0x06, 'N', 1 },
          plain([](XferDock& d) { bool wp = false; return d.getDiskpackWriteProtect(wp) || wp; }), "0 ", {}, 16,
          { "Diskpack write protection cannot be determined." } },
        { "protect refused", 0x07, { 0x07, 0 }, plain([](XferDock& d) { return d.setDiskpackWriteProtect(false); }), "0 ", { 0 },
          16, { "Diskpack write protection cannot be set." } },
        { "diskpack id invalid", 0x0D, { 0x0D, 'N', 2 }, number([](XferDock& d, int& n) { return d.getDiskpackId(n); }),
          "0 -1", {}, 16, { "Diskpack ID is invalid." } },
        { "disk serial", 0x0E, { 0x0E, 1, 'U', 4, 'W', 'D', '4', '2', 'X' }, serial(1), "1 WD42", { 1 }, 32, {} },
        { "disk serial of the other disk", 0x0E, { 0x0E, 0, 'U', 4, 'W', 'D' }, serial(1), "0 ", { 1 }, 32, { "Error in serial number" } },
        { "disk serial without U", 0x0E, { 0x0E, 0, 'N', 4, 'W', 'D' }, serial(0), "0 ", { 0 }, 32, { "Error in serial number" } },
        { "disk serial empty", 0x0E, { 0x0E, 0, 'U', 0 }, serial(0), "0 ", { 0 }, 32, { "Error in serial number" } },
        { "power needs no mark", 0x01, { 0x01 }, plain([](XferDock& d) { return d.setDiskpackPower(true); }), "1 ", { 1 }, 16, {} },
        // The only block with another opcode; its subcode is 0.
        { "firmware upgrade", 0x00, { 0x00 }, plain([](XferDock& d) { return d.beginFirmwareUpgrade(); }), "1 ", { 0x40, 0xC0 }, 16, {} },
    };
    ASSERT_TRUE(open());
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        driver->answer(c.subcode, Driver::reply(c.reply));
        driver->clearCalls();
        log.clear();
        EXPECT_EQ(c.call(*dock), c.result);
        EXPECT_EQ(log.lines(), c.logged);

        ASSERT_EQ(driver->calls(), juce::StringArray("exec 2"));
        const auto sent = driver->blocks()[0];
        EXPECT_EQ(sent.cdb.opcode(), c.subcode == 0 ? CDB16::firmwareUpgradeOpcode : CDB16::dockCommandOpcode);
        EXPECT_EQ(sent.cdb.subcode(), c.subcode);
        EXPECT_EQ(sent.replyLength, c.replyLength);
        Bytes block(14, 0);
        std::copy(c.arguments.begin(), c.arguments.end(), block.begin());
        EXPECT_EQ(Bytes(sent.cdb.bytes + 2, sent.cdb.bytes + 16), block);
    }

    driver->clearCalls();
    log.clear();
    EXPECT_EQ(serial(2)(*dock), "0 ");
    EXPECT_EQ(log.lines(), juce::StringArray { "Disk ID cannot be grerater than 1." });
    EXPECT_TRUE(driver->calls().isEmpty());
}

//==============================================================================
TEST_F(UsbDock, CompletionResultsDecideSuccessAndRemoval)
{
    const struct
    {
        const char* name;
        DockPlatform::Result issued;
        Driver::Completion completion;
        bool switchingOff; // sent expecting the dock to drop off the bus
        juce::StringArray logged;
        bool removed;
    } cases[] = {
        { "detached when expected", Driver::success, failed(DockPlatform::resultNotAttached), true, {}, true },
        { "detached", Driver::success, failed(DockPlatform::resultNotAttached), false, { "Command returned a bad result: E00002D9" }, true },
        { "error", Driver::success, failed(DockPlatform::resultError), false, { "Command returned a bad result: E00002BC" }, true },
        { "not responding", Driver::success, failed(DockPlatform::resultNotResponding), false,
          { "Command returned a bad result: E00002ED" }, false },
        { "success", Driver::success, Driver::reply({ 0x01, 'U' }), false, {}, false },
        { "dead port when expected", DockPlatform::resultSendInvalidDest, {}, true, {}, true },
        { "dead port", DockPlatform::resultSendInvalidDest, {}, false, { "Device IO failed with result 10000003" }, true },
        { "refused", DockPlatform::resultError, {}, false, { "Device IO failed with result e00002bc" }, true },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        ASSERT_TRUE(open());
        log.clear();
        driver->issueResult = c.issued;
        driver->answer(0x01, c.completion);
        const bool ok = juce::String(c.name) == "success";
        EXPECT_EQ(dock->setDiskpackPower(!c.switchingOff), ok);
        driver->issueResult = Driver::success;
        EXPECT_EQ(dock->deviceRemoved(), c.removed);
        auto logged = c.logged;
        if (!ok && !c.switchingOff && c.issued == Driver::success)
            logged.add("Command 01 unsuccessful or timed out...");
        EXPECT_EQ(log.lines(), logged);
        dock.reset();
    }
}

TEST_F(UsbDock, ASilentDockTimesOutAfterASecondUnreportedOnceSwitchedOffUntilReopenedOrAKeptReplyAnswers)
{
    ASSERT_TRUE(open());
    driver->silence(0x01);
    driver->silence(0x0A);
    int degrees = -1;
    const auto start = juce::Time::getMillisecondCounterHiRes();
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    const auto elapsed = juce::Time::getMillisecondCounterHiRes() - start;
    EXPECT_GE(elapsed, 990.0);
    EXPECT_LT(elapsed, 5000.0);
    const juce::StringArray timedOut { "Command 0A unsuccessful or timed out..." };
    EXPECT_EQ(log.lines(), timedOut);

    log.clear();
    EXPECT_FALSE(dock->setDiskpackPower(false));
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    EXPECT_EQ(log.lines(), juce::StringArray());
    ASSERT_TRUE(reopen());
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    EXPECT_EQ(log.lines(), timedOut);

    // A kept reply answers a silent repeat of its command, and fails another.
    driver->answer(0x03, Driver::reply({ 0x03, 'U' }));
    EXPECT_TRUE(dock->getDriveLED());
    driver->silence(0x03);
    log.clear();
    EXPECT_TRUE(dock->getDriveLED());
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    EXPECT_EQ(log.lines(), juce::StringArray("Command returned with the wrong subcode - got 03, should be 0A"));
}

//==============================================================================
TEST_F(UsbDock, OpeningPicksTheDockByIndexFromOneRecordPerDeviceAndReadsItsFirmware)
{
    using Device = std::pair<std::optional<int>, std::optional<juce::String>>; // location, serial
    const std::vector<Device> two { { 0x14100000, juce::String("DOCK0001") }, { 0x14200000, juce::String("DOCK0002") } };
    const juce::StringArray opened { "open", "scalar 0", "exec 2", "scalar 1", "close 900" };
    const struct
    {
        const char* name;
        std::vector<Device> devices;
        std::vector<int> services; // the device each driver service hangs below
        std::function<void(Driver&)> script;
        int id;
        const char* found; // version, serial and location; "" if not opened
        juce::StringArray calls, logged; // calls: those to the user client
    } cases[] = {
        { "two services of one device", two, { 0, 0, 1 }, nullptr, 1, "2.10.7 DOCK0002 14200000", opened, {} },
        { "id past the list", two, { 0, 1 }, nullptr, 2, "", {}, {} },
        { "negative id", two, { 0, 1 }, nullptr, -1, "", {}, {} },
        { "a device without location ends the scan", { two[0], { std::nullopt, juce::String("S2") }, two[1] }, { 0, 1, 2 },
          nullptr, 1, "", {}, { "Device locationID could not be found." } },
        { "no serial number", { { 0x100, std::nullopt } }, { 0 }, nullptr, 0, "2.10.7  100", opened,
          { "Property 'USB Serial Number' could not be found." } },
        { "matching fails", two, { 0, 1 }, [](Driver& d) { d.matchResult = DockPlatform::resultError; }, 0, "", {},
          { "IOServicesGetMatchingServices returned 0xe00002bc\n\n" } },
        { "open refused", two, { 0, 1 }, [](Driver& d) { d.openResult = DockPlatform::resultNotAttached; }, 0, "", { "open" },
          { "IOServiceOpen returned 0xe00002d9 - machPort is 0" } },
        { "user client refused, the revision still read", two, { 0, 1 },
          [](Driver& d) { d.setScalarResult(USBDockSCSIDeviceHandler::openCommand, DockPlatform::resultError); }, 0,
          "2.10.7 DOCK0001 14100000", opened, { "Failed to open user client with error E00002BC" } },
        { "no revision", two, { 0, 1 }, [](Driver& d) { d.answer(0x05, { DockPlatform::success, { 0x05, 1 }, 2 }); }, 0, "",
          opened, { "Command callback arrived with the wrong number of arguments.", "Command 05 unsuccessful or timed out..." } },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        auto registry = std::make_shared<Driver>();
        std::vector<DockPlatform::Entry> devices;
        for (const auto& [location, serial] : c.devices)
            devices.push_back(registry->addDevice(location, serial));
        for (int d : c.services)
            registry->addDriverService(devices[(size_t) d]);
        registry->answer(0x05, Driver::reply({ 0x05, 2, 10, 7 }));
        if (c.script)
            c.script(*registry);
        log.clear();
        {
            XferDock board(registry, noPolling);
            EXPECT_EQ(board.findAndOpen(c.id), *c.found != 0);
            EXPECT_EQ(log.lines(), c.logged);
            const auto where = board.getSerialNumber() + " " + juce::String::toHexString(board.getLocationID());
            EXPECT_EQ(board.boardIsOpen() ? board.getVersionString() + " " + where : "", c.found);
        }
        // The client closed, then every service and the connection given back.
        EXPECT_EQ(registry->calls(), c.calls);
        EXPECT_TRUE(registry->balanced());
    }
}

//==============================================================================
TEST_F(UsbDock, ThePollStopsAtAFailedUpdateTheWatchOnlyReportsAndLateRepliesAreFreed)
{
    ASSERT_TRUE(open(20));
    // One failed status update ends the poll until the board is reopened.
    const auto statusRequests = [&] { return driver->blocks(0x00).size(); };
    ASSERT_TRUE(waitUntil([&] { return statusRequests() >= 2; }, 10000));
    driver->answer(0x00, { DockPlatform::success, { 0x00 }, 2 });
    ASSERT_TRUE(waitUntil([&] { return !dock->isStatusPolling(); }, 10000));
    const auto whenStopped = statusRequests();
    EXPECT_TRUE(dock->boardIsOpen());
    driver->answer(0x00, status({}));
    ASSERT_TRUE(reopen());
    EXPECT_TRUE(waitUntil([&] { return statusRequests() >= whenStopped + 2; }, 10000));
    EXPECT_TRUE(dock->isStatusPolling());

    // A failing presence query is only reported; the board closes once a command finds the dock gone.
    driver->setScalarResult(USBDockSCSIDeviceHandler::presentCommand, DockPlatform::resultNotAttached);
    const juce::String notPresent = "Device is not present - code e00002d9 - ignoring";
    const auto reports = [&] {
        const auto l = log.lines();
        return std::count(l.begin(), l.end(), notPresent);
    };
    ASSERT_TRUE(waitUntil([&] { return reports() >= 3; }, 10000));
    EXPECT_TRUE(dock->boardIsOpen());
    driver->answer(0x0A, failed(DockPlatform::resultNotAttached));
    int degrees = 0;
    EXPECT_FALSE(dock->getDiskpackTemp(degrees));
    EXPECT_TRUE(waitUntil([&] { return !dock->boardIsOpen() && !dock->isThreadRunning(); }, 10000));

    XferDock* gone = dock.get();
    dock.reset();
    USBDockBoard::commandCallback(gone, true, new unsigned char[4] { 0x0A, 1, 2, 3 }, 4);
    EXPECT_TRUE(log.contains("Handler is gone - tidying up return buffer."));
}
