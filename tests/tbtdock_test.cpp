#include "support/DockHeard.h"
#include "support/FakeDockRegistry.h"
#include "support/JucePrinters.h"

#include <climits>
#include <deque>
#include <functional>
#include <memory>
#include <string>

using namespace boardtest;

namespace
{
using Entry = DockPlatform::Entry;
using Node = FakeDockRegistry::Node;
enum class Answer { reply, noHostComms, replyNotText, propertiesFail, setFails };

/** A dock answers each "sendCommand" under "HostComms"/"reply": "?" with its identity, "@" with its id
    reply, the rest as scripted or else "OK" (polls, "&": nothing); non-polls are recorded as "<path> <command>". */
class FakeTbtDockDriver : public FakeDockRegistry
{
public:
    static constexpr const char* dockClass = "com_tarvoworks_driver_TbtDockDriver";

    Entry addDock(const juce::String& path, const juce::String& identity, const juce::String& idReply = "R0", Entry parent = 0)
    {
        const Guard g(lock);
        const auto dock = add(path, parent, juce::String("class:") + dockClass);
        docks[dock].identity = identity;
        docks[dock].idReply = idReply;
        return dock;
    }
    void willAnswer(Entry dock, const juce::String& text, Answer answer = Answer::reply, bool aPoll = false)
    {
        const Guard g(lock);
        (aPoll ? docks.at(dock).polls : docks.at(dock).answers).push_back({ answer, text });
    }
    int pollsAnswered(Entry dock) const { const Guard g(lock); return docks.at(dock).pollsAnswered; }

    bool getProperties(Entry entry, juce::var& properties) override
    {
        const Guard g(lock);
        const auto dock = docks.find(entry);
        const auto answer = dock == docks.end() ? Answer::noHostComms : dock->second.current.first;
        if (answer == Answer::propertiesFail || !FakeDockRegistry::getProperties(entry, properties))
            return false;
        if (answer != Answer::noHostComms)
        {
            auto* hostComms = new juce::DynamicObject();
            const auto& text = dock->second.current.second;
            hostComms->setProperty("reply", answer == Answer::replyNotText ? juce::var(42) : juce::var(text));
            properties.getDynamicObject()->setProperty("HostComms", juce::var(hostComms));
        }
        return true;
    }
    Result setProperties(Entry entry, const juce::var& properties) override
    {
        const Guard g(lock);
        const auto found = docks.find(entry);
        const auto command = properties["sendCommand"];
        if (found == docks.end() || !command.isString())
            return resultBadArgument;
        auto& dock = found->second;
        const auto text = command.toString();
        const bool poll = text == "&";
        if (poll)
            ++dock.pollsAnswered;
        else
            record(nodes.at(entry).path + " " + text);
        auto& queue = poll ? dock.polls : dock.answers;
        dock.current = { Answer::reply, text == "?" ? dock.identity : text == "@" ? dock.idReply : poll ? "" : "OK" };
        if (!queue.empty())
        {
            dock.current = queue.front();
            queue.pop_front();
        }
        return dock.current.first == Answer::setFails ? resultNotAttached : success;
    }

private:
    using Scripted = std::pair<Answer, juce::String>;
    struct Dock
    {
        juce::String identity, idReply;
        std::deque<Scripted> answers, polls;
        int pollsAnswered = 0;
        Scripted current;
    };
    std::map<Entry, Dock> docks;
};

struct TbtTest : ::testing::Test
{
    std::shared_ptr<FakeTbtDockDriver> driver = std::make_shared<FakeTbtDockDriver>();
    LogCapture log;

    /** A board open on a dock without its poll thread, so the test alone drives it. */
    template <class Board>
    std::unique_ptr<Board> openWithoutPoll(int id = -1)
    {
        auto board = std::make_unique<Board>(driver);
        board->searchForBoard(FakeTbtDockDriver::dockClass, board->boardIdString(), id);
        EXPECT_TRUE(board->boardIsOpen());
        driver->clearCalls();
        log.clear();
        return board;
    }
    void TearDown() override
    {
        EXPECT_EQ(driver->overReleases(), 0);
        EXPECT_TRUE(MarvellCommsBoard::servicePaths.isEmpty()) << "a test left a dock open";
    }
};
} // namespace

//==============================================================================
TEST_F(TbtTest, ExchangeClassifiesTheReplyInItsOrder)
{
    const auto dock = driver->addDock("/dock", "Thunderbolt Single Dock 1.0");
    const struct
    {
        Answer answer;
        const char* reply;
        bool expectResponse, quiet, ok;
        const char* logged; // after "MarvellCommsBoard::sendCommand 'C'"
    } cases[] = {
        { Answer::reply, "N", true, false, false, " received NACK" },
        { Answer::reply, "R0F", false, false, false, " received unexpected response char" },
        { Answer::reply, "OK", true, false, false, " received unexpected ACK" },
        // Event and identity texts pass whatever was expected (the poll and discovery cover those); so does nothing.
        { Answer::reply, "", true, false, true, nullptr },
        { Answer::replyNotText, "", false, false, false, " failed (getReply)" },
        { Answer::propertiesFail, "", false, false, false, " failed (getCFProperties)" },
        { Answer::setFails, "", false, false, false, nullptr },
        { Answer::reply, "N", true, true, false, nullptr },
    };
    auto board = openWithoutPoll<TbtSingleBoard>();
    for (const auto& c : cases)
    {
        SCOPED_TRACE(juce::String("'") + c.reply + "' answer " + juce::String((int) c.answer)
                     + (c.expectResponse ? " expecting a response" : "") + (c.quiet ? " quiet" : ""));
        log.clear();
        board->setQuiet(c.quiet);
        driver->willAnswer(dock, c.reply, c.answer);
        juce::String reply = "(untouched)";
        EXPECT_EQ(board->sendCommandInternal("C", reply, c.expectResponse), c.ok);
        EXPECT_EQ(reply, c.ok ? c.reply : reply);
        EXPECT_EQ(log.lines(), c.logged ? juce::StringArray(juce::String("MarvellCommsBoard::sendCommand 'C'") + c.logged) : juce::StringArray());
    }
    EXPECT_EQ(driver->calls().size(), (int) std::size(cases));
}

//==============================================================================
TEST_F(TbtTest, DiscoveryTakesTheFirstFreeDockThatIdentifiesAndAnswersTheId)
{
    const struct
    {
        const char* name;
        std::vector<std::pair<const char*, const char*>> docks; // identity, reply to "@"
        bool firstHeldByAnother;
        int id;
        const char* found; // the path, or ""
        const char* version;
        juce::StringArray sent; // by the board searching
    } cases[] = {
        { "negative id takes the first", { { "Thunderbolt Single Dock 1.07", "R5" }, { "Thunderbolt Single Dock 2", "R1" } }, false,
          -1, "/0", "1.07", { "/0 ?" } },
        { "id is the trailing integer", { { "Thunderbolt Single Dock 1", "R12" }, { "Thunderbolt Single Dock 2", "Rid 2" } }, false,
          2, "/1", "2", { "/0 ?", "/0 @", "/1 ?", "/1 @" } },
        { "refused id request", { { "Thunderbolt Single Dock 1", "N" }, { "Thunderbolt Single Dock 2", "R0" } }, false, 0, "/1", "2",
          { "/0 ?", "/0 @", "/1 ?", "/1 @" } },
        { "another dock's identity", { { "Thunderbolt CD2 Dock 1", "R0" }, { "Thunderbolt Single Dock 3.1", "R0" } }, false, 0,
          "/1", "3.1", { "/0 ?", "/1 ?", "/1 @" } },
        // A dock another board holds is not even asked who it is.
        { "a dock already open", { { "Thunderbolt Single Dock 1", "R0" }, { "Thunderbolt Single Dock 1.5", "R0" } }, true, -1,
          "/1", "1.5", { "/1 ?" } },
        { "any separator", { { "Thunderbolt Single Dock/v9 rc", "R0" } }, false, -1, "/0", "v9 rc", { "/0 ?" } },
        { "nothing found", { { "Thunderbolt CD2 Dock 1", "R0" }, { "Thunderbolt Single Dock 1", "R3" } }, false, 4, "", "",
          { "/0 ?", "/1 ?", "/1 @" } },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        driver = std::make_shared<FakeTbtDockDriver>();
        for (size_t i = 0; i < c.docks.size(); ++i)
            driver->addDock("/" + juce::String(i), c.docks[i].first, c.docks[i].second);
        auto other = c.firstHeldByAnother ? openWithoutPoll<TbtSingleBoard>() : nullptr;

        TbtSingleBoard board(driver);
        board.searchForBoard(FakeTbtDockDriver::dockClass, board.boardIdString(), c.id);
        EXPECT_EQ(driver->calls(), c.sent);
        EXPECT_EQ(board.getServicePath(), c.found);
        EXPECT_EQ(board.boardIsOpen(), c.found[0] != 0);
        EXPECT_EQ(board.getVersionString(), c.version);
        // Each open board keeps one reference; the other matches are given back.
        EXPECT_EQ(driver->outstanding(), (int) board.boardIsOpen() + (int) (other != nullptr));
        board.closeBoard(false);
        other.reset();
        EXPECT_EQ(driver->outstanding(), 0);
    }
}

TEST_F(TbtTest, TwoFailedPollsInARowCloseTheBoardButOneIsToleratedAndClosingGivesTheDockBack)
{
    const struct
    {
        std::vector<const char*> polls; // nullptr: a failed poll
        Calls heard;
        bool staysOpen;
    } cases[] = {
        { { nullptr, "b1", nullptr, "b0" }, { "eject down", "eject up" }, true },
        { { "b1", nullptr, nullptr, "b0" }, { "eject down" }, false },
        // An "OK" to a poll is an event text, and no event the dock knows.
        { { "OK", "i1" }, { "present" }, true },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(::testing::PrintToString(c.heard));
        driver = std::make_shared<FakeTbtDockDriver>();
        const auto dock = driver->addDock("/dock", "Thunderbolt Single Dock 1.0");
        for (auto* poll : c.polls)
            driver->willAnswer(dock, poll ? poll : "", poll ? Answer::reply : Answer::setFails, true);
        SingleHeard heard;
        TbtSingleBoard board(driver);
        board.registerListener(&heard);
        ASSERT_TRUE(board.findAndOpen(-1));
        // Every scripted poll answered, and one more when the board stays open.
        const int polls = (int) c.polls.size() + (c.staysOpen ? 1 : -1);
        EXPECT_TRUE(waitUntil([&] { return driver->pollsAnswered(dock) >= polls && board.boardIsOpen() == c.staysOpen; }, 15000));
        EXPECT_EQ(heard.calls(), c.heard);
        EXPECT_EQ(driver->outstanding(), c.staysOpen ? 1 : 0);
        EXPECT_EQ(log.contains("TbtSingleBoardEventListener: received unknown event 'O'"), c.heard[0] == "present");
        EXPECT_EQ(board.syncState(), c.staysOpen);
        EXPECT_EQ(driver->calls(), c.staysOpen ? juce::StringArray({ "/dock ?", "/dock !" }) : juce::StringArray("/dock ?"));
        board.closeBoard(false);
        EXPECT_EQ(board.getVersionString() + board.getServicePath(), "");
        EXPECT_EQ(driver->outstanding(), 0);
        juce::String reply;
        EXPECT_FALSE(board.sendCommandInternal("C", reply, false));
        log.clear();
    }
}

//==============================================================================
TEST_F(TbtTest, EventsAreDecodedByEachDocksTable)
{
    const auto all = TbtDockEventListener::allEvents;
    const struct
    {
        bool cd2;
        uint32_t mask;
        const char* text;
        const char* heard;   // or nullptr
        const char* unknown; // the letter logged, or nullptr
    } cases[] = {
        { false, all, "dfan stalled", "debug fan stalled", nullptr },
        { true, all, "tF6", "dock -10", nullptr },
        { false, all, "p19", "pack 25", nullptr },
        { true, all, "i2", "absent fault", nullptr },
        { false, all, "l2", "led on", nullptr },
        { true, all, "l1", nullptr, "l" },
        { false, all, "j40", nullptr, "j" },
        { true, all & ~TbtDockEventListener::dockTemperatureEventBit, "t19", nullptr, nullptr },
        { false, TbtSingleBoardEventListener::diskpackLedEventBit, "l0", "led off", nullptr },
        { true, TbtCd2BoardEventListener::fanSpeedEventBit, "b1", nullptr, nullptr },
    };
    TbtSingleBoard single(driver);
    TbtCd2Board cd2(driver);
    for (const auto& c : cases)
    {
        SCOPED_TRACE(juce::String(c.cd2 ? "CD2 " : "single ") + c.text);
        log.clear();
        SingleHeard singleHeard(c.mask);
        Cd2Heard cd2Heard(c.mask);
        TbtDockBoard& board = c.cd2 ? (TbtDockBoard&) cd2 : single;
        // The other dock's listener is registered too: it must never be called.
        board.registerListener(&singleHeard);
        board.registerListener(&cd2Heard);
        board.eventReceived(c.text);
        board.deregisterListener(&singleHeard);
        board.deregisterListener(&cd2Heard);

        EXPECT_EQ(c.cd2 ? cd2Heard.calls() : singleHeard.calls(), c.heard ? Calls { c.heard } : Calls {});
        EXPECT_TRUE((c.cd2 ? singleHeard.calls() : cd2Heard.calls()).empty());
        EXPECT_EQ(log.lines(), c.unknown ? unknownEvents(c.cd2 ? "TbtCd2BoardEventListener" : "TbtSingleBoardEventListener", c.unknown)
                                         : juce::StringArray());
    }
}

//==============================================================================
TEST_F(TbtTest, CommandsPutTheirArgumentsOnTheWireAndDecodeTheReplies)
{
    const auto singleDock = driver->addDock("single", "Thunderbolt Single Dock 1.0");
    const auto cd2Dock = driver->addDock("cd2", "Thunderbolt CD2 Dock 1.0");
    auto single = openWithoutPoll<TbtSingleBoard>();
    auto cd2 = openWithoutPoll<TbtCd2Board>();

    juce::String bytes32;
    for (int i = 0; i < 32; ++i)
        bytes32 << juce::String::toHexString(0xA0 + i);
    unsigned char page[32] = {};
    unsigned char data[33] = { 0xDE, 0xAD };
    int a = 0, b = 0;

    const struct
    {
        const char* name;
        juce::String reply; // empty: "OK"
        std::function<bool()> call;
        const char* sent; // or nullptr: nothing sent
        juce::String result;
    } cases[] = {
        { "EEPROM read of 33 refused", {}, [&] { return single->readDiskpackEeprom(0, 33, page); }, nullptr, "0 0 0" },
        { "EEPROM read of INT_MIN refused", {}, [&] { return cd2->readDiskpackEeprom(0, INT_MIN, page); }, nullptr, "0 0 0" },
        { "EEPROM read of 8 takes 32", "R" + bytes32, [&] { return single->readDiskpackEeprom(0x1ABC, 8, page); }, "single R0ABC08", "1 0 0" },
        { "EEPROM read of 31 fails", "R" + bytes32.dropLastCharacters(2), [&] { return cd2->readDiskpackEeprom(0x20, 32, page); },
          "cd2 R002020", "0 0 0" },
        { "EEPROM write of 33 refused", {}, [&] { return cd2->writeDiskpackEeprom(0, 33, data); }, nullptr, "0 0 0" },
        { "EEPROM write", {}, [&] { return single->writeDiskpackEeprom(0x1A45, 2, data); }, "single W0A4502DEAD", "1 0 0" },
        { "rail is signed", "RFFF6", [&] { return single->getVoltageRail(3, a); }, "single G3", "1 -10 0" },
        { "min/max are signed bytes", "RF619", [&] { return cd2->getMinMaxTemperatures(1, a, b); }, "cd2 M1", "1 -10 25" },
        { "single LED clamps, bits 6 and 7", {}, [&] { return single->setDiskpackLed(5, -1, 2, true, true); }, "single LF2", "1 0 0" },
        { "CD2 LED has no bit 7", {}, [&] { return cd2->setDiskpackLed(4, 3, -7, true); }, "cd2 L7C", "1 0 0" },
        { "reset EEPROM refused", "N", [&] { return single->resetEeprom(); }, "single Z", "0 0 0" },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        driver->clearCalls();
        if (c.reply.isNotEmpty())
            driver->willAnswer(juce::String(c.sent).startsWith("cd2") ? cd2Dock : singleDock, c.reply);
        a = b = 0;
        const bool ok = c.call();
        EXPECT_EQ(juce::String((int) ok) + " " + juce::String(a) + " " + juce::String(b), c.result);
        EXPECT_EQ(driver->calls(), c.sent ? juce::StringArray(c.sent) : juce::StringArray());
    }
    // The read of 8 bytes stored all 32 the dock sent.
    driver->willAnswer(singleDock, "R" + bytes32);
    ASSERT_TRUE(single->readDiskpackEeprom(0, 8, page));
    EXPECT_EQ(juce::String::toHexString(page, 32, 0), bytes32);
}

//==============================================================================
TEST_F(TbtTest, DiskSerialsAreFoundBelowTheDocksNeighbourAndTheUidAtItsThunderboltSwitch)
{
    using Change = std::function<void(Node&)>;
    const auto set = [](const char* key, juce::var value) -> Change {
        return [=](Node& n) { n.properties.getDynamicObject()->setProperty(key, value); };
    };
    const auto remove = [](const char* key) -> Change {
        return [=](Node& n) { n.properties.getDynamicObject()->removeProperty(key); };
    };
    const auto characteristics = [](const juce::var& serial) {
        auto* dc = new juce::DynamicObject();
        if (!serial.isVoid())
            dc->setProperty("Serial Number", serial);
        return juce::var(dc);
    };
    const struct
    {
        const char* name;
        const char* entry; // the one changed, or nullptr
        Change change;
        int disk;
        const char* serial;
        const char* uid; // or nullptr: not found
    } cases[] = {
        { "first disk, deep in its branch", nullptr, {}, 0, "WD-0001", "00ab0000cafe1234" },
        { "second disk, on the branch itself", nullptr, {}, 1, "ST-0002", "00ab0000cafe1234" },
        { "no third disk", nullptr, {}, 2, "", "00ab0000cafe1234" },
        { "dock gone from its path", "dock", [](Node& n) { n.path = "gone"; }, 0, "", nullptr },
        { "bridge children unlisted", "bridge", [](Node& n) { n.childrenListable = false; }, 0, "", "00ab0000cafe1234" },
        { "controller children unlisted", "sata", [](Node& n) { n.childrenListable = false; }, 1, "", "00ab0000cafe1234" },
        { "no characteristics", "dev0", remove("Device Characteristics"), 0, "", "00ab0000cafe1234" },
        // The first characteristics end the descent, with a serial or not.
        { "characteristics without serial", "port0", set("Device Characteristics", characteristics({})), 0, "", "00ab0000cafe1234" },
        { "serial no text", "disk1", set("Device Characteristics", characteristics(7)), 1, "", "00ab0000cafe1234" },
        { "negative UID", "switch", set("UID", (juce::int64) -2), 0, "WD-0001", "fffffffffffffffe" },
        { "no Thunderbolt path", "bridge", remove("Thunderbolt Path"), 0, "WD-0001", nullptr },
        { "Thunderbolt path leads nowhere", "port3", [](Node& n) { n.path = "x"; }, 0, "WD-0001", nullptr },
        { "port without a parent", "port3", [](Node& n) { n.parent = 0; }, 0, "WD-0001", nullptr },
        { "switch without a UID", "switch", remove("UID"), 0, "WD-0001", nullptr },
        { "UID no number", "switch", set("UID", "00ab"), 0, "WD-0001", nullptr },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        // The disk controller sits beside the dock on one bridge, the Thunderbolt switch elsewhere.
        driver = std::make_shared<FakeTbtDockDriver>();
        std::map<std::string, Entry> e;
        const auto root = driver->add("/");
        e["bridge"] = driver->add("bridge", root);
        e["sata"] = driver->add("sata", e["bridge"]);
        e["dock"] = driver->addDock("dock", "Thunderbolt Single Dock 1.0", "R0", e["bridge"]);
        e["port0"] = driver->add("port0", driver->add("sata0", e["sata"]));
        e["dev0"] = driver->add("dev0", e["port0"]);
        e["disk1"] = driver->add("disk1", e["sata"]);
        e["switch"] = driver->add("switch", root);
        e["port3"] = driver->add("switch/port3", e["switch"]);
        driver->setProperty(e["dev0"], "Device Characteristics", characteristics("WD-0001"));
        driver->setProperty(e["disk1"], "Device Characteristics", characteristics("ST-0002"));
        driver->setProperty(e["bridge"], "Thunderbolt Path", "switch/port3");
        driver->setProperty(e["switch"], "UID", (juce::int64) 0x00ab0000cafe1234LL);

        auto board = openWithoutPoll<TbtSingleBoard>();
        if (c.entry != nullptr)
            driver->edit(e.at(c.entry), c.change);
        juce::String serial = "(untouched)", uid = "(untouched)";
        EXPECT_TRUE(board->getDiskSerialNumber(c.disk, serial));
        EXPECT_EQ(serial, c.serial);
        EXPECT_EQ(board->getUID(uid), c.uid != nullptr);
        EXPECT_EQ(uid, c.uid ? c.uid : "(untouched)");
        EXPECT_EQ(driver->outstanding(), 1) << "only the board's own reference may remain";
        board->closeBoard(false);
        EXPECT_TRUE(board->getDiskSerialNumber(c.disk, serial));
        EXPECT_EQ(serial, "");
        EXPECT_FALSE(board->getUID(uid));
    }
}
