#include "support/FakeTbtDockDriver.h"
#include "support/JucePrinters.h"
#include "support/PtyPeer.h"

#include "docks/thunderbolt/TbtCd2Board.h"
#include "docks/thunderbolt/TbtSingleBoard.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

namespace
{
using Answer = FakeTbtDockDriver::Answer;
using Entry = DockPlatform::Entry;
using Node = FakeTbtDockDriver::Node;
using Calls = std::vector<std::string>;

/** What a listener heard, as text; written on the poll thread. */
class Heard
{
public:
    void add(const std::string& call)
    {
        const std::lock_guard<std::mutex> g(m);
        list.push_back(call);
    }
    Calls calls() const
    {
        const std::lock_guard<std::mutex> g(m);
        return list;
    }

    // The five events both docks share.
    void debugText(const juce::String& t) { add("debug " + t.toStdString()); }
    void dockTemperature(int d) { add("dock " + std::to_string(d)); }
    void diskpackTemperature(int d) { add("pack " + std::to_string(d)); }
    void diskpackChanged(bool present, bool fault)
    {
        add(std::string(present ? "present" : "absent") + (fault ? " fault" : ""));
    }
    void ejectButton(bool down) { add(down ? "eject down" : "eject up"); }

private:
    mutable std::mutex m;
    Calls list;
};

template <class Listener>
struct HeardBy : Listener, Heard
{
    using Listener::Listener;
    void debugText(const juce::String& t) override { Heard::debugText(t); }
    void dockTemperature(int d) override { Heard::dockTemperature(d); }
    void diskpackTemperature(int d) override { Heard::diskpackTemperature(d); }
    void diskpackChanged(bool p, bool f) override { Heard::diskpackChanged(p, f); }
    void ejectButton(bool down) override { Heard::ejectButton(down); }
};
struct SingleHeard : HeardBy<TbtSingleBoardEventListener>
{
    using HeardBy::HeardBy;
    void diskpackLed(bool on) override { add(on ? "led on" : "led off"); }
};
struct Cd2Heard : HeardBy<TbtCd2BoardEventListener>
{
    using HeardBy::HeardBy;
    void fanSpeed(int s) override { add("fan " + std::to_string(s)); }
};

struct TbtTest : ::testing::Test
{
    std::shared_ptr<FakeTbtDockDriver> driver = std::make_shared<FakeTbtDockDriver>();
    LogCapture log;

    /** A board open on its dock without its poll thread, so the test alone drives it. */
    template <class Board>
    std::unique_ptr<Board> openWithoutPoll(Entry dock, int id = -1)
    {
        auto board = std::make_unique<Board>(driver);
        board->searchForBoard(FakeTbtDockDriver::dockClass, board->boardIdString(), id);
        EXPECT_TRUE(board->boardIsOpen());
        driver->edit(dock, [](Node& n) { n.commands.clear(); });
        log.clear();
        return board;
    }
    juce::StringArray commands(Entry dock) const { return driver->node(dock).commands; }

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
    const auto dock = driver->add("IOService:/dock", 0, "Thunderbolt Single Dock 1.0");
    const struct
    {
        Answer answer;
        const char* reply;
        bool expectResponse, quiet, ok;
        const char* logged; // after "MarvellCommsBoard::sendCommand 'C'"
    } cases[] = {
        { Answer::reply, "N", true, false, false, " received NACK" },
        { Answer::reply, "R0F", true, false, true, nullptr },
        { Answer::reply, "R0F", false, false, false, " received unexpected response char" },
        { Answer::reply, "OK", false, false, true, nullptr },
        { Answer::reply, "OK", true, false, false, " received unexpected ACK" },
        // Event and identity texts pass whatever was expected; so does nothing.
        { Answer::reply, "t19", true, false, true, nullptr },
        { Answer::reply, "NO", false, false, true, nullptr },
        { Answer::reply, "", true, false, true, nullptr },
        { Answer::noHostComms, "", false, false, false, " failed (getReply)" },
        { Answer::replyNotText, "", false, false, false, " failed (getReply)" },
        { Answer::propertiesFail, "", false, false, false, " failed (getCFProperties)" },
        { Answer::setFails, "", false, false, false, nullptr },
        { Answer::reply, "N", true, true, false, nullptr },
        { Answer::reply, "OK", true, true, false, nullptr },
        { Answer::noHostComms, "", false, true, false, nullptr },
        { Answer::propertiesFail, "", false, true, false, nullptr },
    };
    auto board = openWithoutPoll<TbtSingleBoard>(dock);
    for (const auto& c : cases)
    {
        SCOPED_TRACE(juce::String("'") + c.reply + "' answer " + juce::String((int) c.answer)
                     + (c.expectResponse ? " expecting a response" : "") + (c.quiet ? " quiet" : ""));
        log.clear();
        board->setQuiet(c.quiet);
        driver->willAnswer(dock, c.reply, c.answer);
        juce::String reply = "(untouched)";
        EXPECT_EQ(board->sendCommandInternal("C", reply, c.expectResponse), c.ok);
        if (c.ok)
        {
            EXPECT_EQ(reply, c.reply);
        }
        const juce::String prefix = "MarvellCommsBoard::sendCommand 'C'";
        EXPECT_EQ(log.lines(), c.logged ? juce::StringArray(prefix + c.logged) : juce::StringArray());
    }
    EXPECT_EQ(commands(dock).size(), (int) std::size(cases));
}

//==============================================================================
TEST_F(TbtTest, DiscoveryTakesTheFirstFreeDockThatIdentifiesAndAnswersTheId)
{
    const struct
    {
        const char* name;
        std::vector<std::pair<const char*, const char*>> docks; // identity, reply to "@"
        bool firstHeldByAnother;
        int id, found; // the index of the dock found, or -1
        const char* version;
    } cases[] = {
        { "negative id takes the first", { { "Thunderbolt Single Dock 1.07", "R5" }, { "Thunderbolt Single Dock 2", "R1" } }, false, -1, 0, "1.07" },
        { "id is the trailing integer", { { "Thunderbolt Single Dock 1", "R12" }, { "Thunderbolt Single Dock 2", "Rid 2" } }, false, 2, 1, "2" },
        { "refused id request", { { "Thunderbolt Single Dock 1", "N" }, { "Thunderbolt Single Dock 2", "R0" } }, false, 0, 1, "2" },
        { "another dock's identity", { { "Thunderbolt CD2 Dock 1", "R0" }, { "Thunderbolt Single Dock 3.1", "R0" } }, false, 0, 1, "3.1" },
        { "a dock already open", { { "Thunderbolt Single Dock 1", "R0" }, { "Thunderbolt Single Dock 1.5", "R0" } }, true, -1, 1, "1.5" },
        { "any separator", { { "Thunderbolt Single Dock/v9 rc", "R0" } }, false, -1, 0, "v9 rc" },
        { "nothing found", { { "Thunderbolt CD2 Dock 1", "R0" }, { "Thunderbolt Single Dock 1", "R3" } }, false, 4, -1, "" },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        driver = std::make_shared<FakeTbtDockDriver>();
        std::vector<Entry> docks;
        for (const auto& [identity, idReply] : c.docks)
            docks.push_back(driver->add("IOService:/dock" + juce::String((int) docks.size()), 0, identity, idReply));
        std::unique_ptr<TbtSingleBoard> other;
        if (c.firstHeldByAnother)
            other = openWithoutPoll<TbtSingleBoard>(docks[0]);

        TbtSingleBoard board(driver);
        board.searchForBoard(FakeTbtDockDriver::dockClass, board.boardIdString(), c.id);
        EXPECT_EQ(board.getServicePath(), c.found >= 0 ? "IOService:/dock" + juce::String(c.found) : "");
        EXPECT_EQ(board.boardIsOpen(), c.found >= 0);
        EXPECT_EQ(board.getVersionString(), c.version);
        // A dock another board holds is not even asked who it is.
        if (other)
        {
            EXPECT_TRUE(commands(docks[0]).isEmpty());
        }
        if (c.id < 0 && c.found >= 0)
        {
            EXPECT_EQ(commands(docks[(size_t) c.found]), juce::StringArray("?"));
        }
        // Each open board keeps one reference; the other matches are given back.
        EXPECT_EQ(driver->outstanding(), (int) board.boardIsOpen() + (int) (other != nullptr));
        board.closeBoard(false);
        other.reset();
        EXPECT_EQ(driver->outstanding(), 0);
    }
}

TEST_F(TbtTest, FindAndOpenPollsAndClosingGivesTheDockBack)
{
    const auto dock = driver->add("IOService:/dock", 0, "Thunderbolt CD2 Dock 4.2");
    TbtCd2Board board(driver);
    ASSERT_TRUE(board.findAndOpen(-1));
    EXPECT_EQ(board.getVersionString(), "4.2");
    EXPECT_TRUE(waitUntil([&] { return driver->node(dock).pollsAnswered >= 2; }, 10000));
    EXPECT_TRUE(board.syncState());
    EXPECT_EQ(commands(dock).joinIntoString(" "), "? !");

    board.closeBoard(false);
    EXPECT_EQ(board.getVersionString() + board.getServicePath(), "");
    EXPECT_FALSE(MarvellCommsBoard::servicePaths.contains("IOService:/dock"));
    EXPECT_EQ(driver->outstanding(), 0);
    juce::String reply;
    EXPECT_FALSE(board.sendCommandInternal("C", reply, false));
}

TEST_F(TbtTest, TwoFailedPollsInARowCloseTheBoardButOneIsTolerated)
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
        const auto dock = driver->add("IOService:/dock", 0, "Thunderbolt Single Dock 1.0");
        for (auto* poll : c.polls)
            driver->willAnswerPoll(dock, poll ? poll : "", poll ? Answer::reply : Answer::setFails);
        SingleHeard heard;
        TbtSingleBoard board(driver);
        board.registerListener(&heard);
        ASSERT_TRUE(board.findAndOpen(-1));
        // Every scripted poll answered, and one more when the board stays open.
        const int polls = (int) c.polls.size() + (c.staysOpen ? 1 : -1);
        EXPECT_TRUE(waitUntil([&] { return driver->node(dock).pollsAnswered >= polls; }, 15000));
        EXPECT_TRUE(waitUntil([&] { return board.boardIsOpen() == c.staysOpen; }, 15000));
        EXPECT_EQ(heard.calls(), c.heard);
        EXPECT_EQ(driver->outstanding(), c.staysOpen ? 1 : 0);
        EXPECT_EQ(log.contains("TbtSingleBoardEventListener: received unknown event 'O'"), c.heard[0] == "present");
        board.closeBoard(false);
        log.clear();
    }
}

//==============================================================================
TEST_F(TbtTest, EventsAreDecodedByEachDocksTable)
{
    const auto all = TbtDockBoard::allEvents;
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
        { false, all, "i1", "present", nullptr },
        { true, all, "i2", "absent fault", nullptr },
        { false, all, "b1", "eject down", nullptr },
        { false, all, "l2", "led on", nullptr },
        { true, all, "jC8", "fan 200", nullptr },
        { true, all, "l1", nullptr, "l" },
        { false, all, "j40", nullptr, "j" },
        { false, all, "T19", nullptr, "T" },
        { true, all & ~TbtDockBoard::dockTemperatureEventBit, "t19", nullptr, nullptr },
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
        const juce::String listener = c.cd2 ? "TbtCd2BoardEventListener" : "TbtSingleBoardEventListener";
        EXPECT_EQ(log.lines(), c.unknown ? juce::StringArray(listener + ": received unknown event '" + c.unknown + "'")
                                         : juce::StringArray());
    }
}

//==============================================================================
TEST_F(TbtTest, CommandsPutTheirArgumentsOnTheWireAndDecodeTheReplies)
{
    const auto singleDock = driver->add("IOService:/single", 0, "Thunderbolt Single Dock 1.0");
    const auto cd2Dock = driver->add("IOService:/cd2", 0, "Thunderbolt CD2 Dock 1.0");
    auto single = openWithoutPoll<TbtSingleBoard>(singleDock);
    auto cd2 = openWithoutPoll<TbtCd2Board>(cd2Dock);

    juce::String bytes32;
    for (int i = 0; i < 32; ++i)
        bytes32 << juce::String::toHexString(0xA0 + i);
    unsigned char page[32] = {};
    unsigned char data[33] = { 0xDE, 0xAD };
    int a = 0, b = 0;
    bool on = false;
    const auto show = [&](bool ok) { return juce::String((int) ok) + " " + juce::String(a) + " " + juce::String(b); };

    const struct
    {
        const char* name;
        bool cd2;
        juce::String reply; // empty: "OK"
        std::function<bool()> call;
        const char* sent; // or nullptr: nothing sent
        juce::String result;
    } cases[] = {
        { "EEPROM read of 33 refused", false, {}, [&] { return single->readDiskpackEeprom(0, 33, page); }, nullptr, "0 0 0" },
        { "EEPROM read of 8 takes 32", false, "R" + bytes32, [&] { return single->readDiskpackEeprom(0x1ABC, 8, page); }, "R0ABC08", "1 0 0" },
        { "EEPROM read of 31 fails", true, "R" + bytes32.dropLastCharacters(2), [&] { return cd2->readDiskpackEeprom(0x20, 32, page); }, "R002020", "0 0 0" },
        { "EEPROM write of 33 refused", true, {}, [&] { return cd2->writeDiskpackEeprom(0, 33, data); }, nullptr, "0 0 0" },
        { "EEPROM write", false, {}, [&] { return single->writeDiskpackEeprom(0x1A45, 2, data); }, "W0A4502DEAD", "1 0 0" },
        { "rail is signed", false, "RFFF6", [&] { return single->getVoltageRail(3, a); }, "G3", "1 -10 0" },
        { "min/max are signed bytes", true, "RF619", [&] { return cd2->getMinMaxTemperatures(1, a, b); }, "M1", "1 -10 25" },
        { "write protect", false, "R2", [&] { bool ok = single->getDiskpackWriteProtect(on); a = on; return ok; }, "Y0", "1 1 0" },
        { "single LED clamps, bits 6 and 7", false, {}, [&] { return single->setDiskpackLed(5, -1, 2, true, true); }, "LF2", "1 0 0" },
        { "single LED plain", false, {}, [&] { return single->setDiskpackLed(1, 2, 3, false, false); }, "L1B", "1 0 0" },
        { "CD2 LED has no bit 7", true, {}, [&] { return cd2->setDiskpackLed(4, 3, -7, true); }, "L7C", "1 0 0" },
        { "port reset", true, {}, [&] { return cd2->resetPort(2); }, "*R2", "1 0 0" },
        { "reset EEPROM refused", false, "N", [&] { return single->resetEeprom(); }, "Z", "0 0 0" },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        const auto dock = c.cd2 ? cd2Dock : singleDock;
        for (auto d : { singleDock, cd2Dock })
            driver->edit(d, [](Node& n) { n.commands.clear(); });
        if (c.reply.isNotEmpty())
            driver->willAnswer(dock, c.reply);
        a = b = 0;
        EXPECT_EQ(show(c.call()), c.result);
        EXPECT_EQ(commands(dock), c.sent ? juce::StringArray(c.sent) : juce::StringArray());
        EXPECT_TRUE(commands(c.cd2 ? singleDock : cd2Dock).isEmpty());
    }
    // The read of 8 bytes stored all 32 the dock sent.
    driver->willAnswer(singleDock, "R" + bytes32);
    ASSERT_TRUE(single->readDiskpackEeprom(0, 8, page));
    EXPECT_EQ(juce::String::toHexString(page, 32, 0), bytes32);
}

//==============================================================================
namespace
{
/** The registry around a dock: the disk controller beside it on one bridge,
    the Thunderbolt switch elsewhere. */
struct Registry
{
    Registry(FakeTbtDockDriver& d, const char* identity) : driver(d)
    {
        const auto root = d.add("IOService:/");
        bridge = d.add("IOService:/bridge", root);
        controller = d.add("IOService:/bridge/sata", bridge);
        dock = d.add("IOService:/bridge/dock", bridge, identity);
        port0 = d.add("IOService:/bridge/sata/0/port", d.add("IOService:/bridge/sata/0", controller));
        device0 = d.add("IOService:/bridge/sata/0/port/dev", port0);
        disk1 = d.add("IOService:/bridge/sata/1", controller);
        tbtSwitch = d.add("IOService:/tbt/switch", root);
        tbtPort = d.add("IOService:/tbt/switch/port3", tbtSwitch);

        d.setProperty(device0, "Device Characteristics", characteristics("WD-0001"));
        d.setProperty(disk1, "Device Characteristics", characteristics("ST-0002"));
        d.setProperty(bridge, "Thunderbolt Path", "IOService:/tbt/switch/port3");
        d.setProperty(tbtSwitch, "UID", (juce::int64) 0x00ab0000cafe1234LL);
    }

    static juce::var characteristics(const juce::var& serial)
    {
        auto* dc = new juce::DynamicObject();
        if (!serial.isVoid())
            dc->setProperty("Serial Number", serial);
        return juce::var(dc);
    }
    void edit(Entry e, std::function<void(Node&)> change) { driver.edit(e, change); }
    void remove(Entry e, const char* key)
    {
        edit(e, [&](Node& n) { n.properties.getDynamicObject()->removeProperty(key); });
    }

    FakeTbtDockDriver& driver;
    Entry bridge, controller, dock, port0, device0, disk1, tbtSwitch, tbtPort;
};

using Change = std::function<void(Registry&)>;
const Change moveDock = [](Registry& r) { r.edit(r.dock, [](Node& n) { n.path = "IOService:/gone"; }); };
} // namespace

TEST_F(TbtTest, DiskSerialNumbersAreFoundBelowTheDocksNeighbour)
{
    const struct
    {
        const char* name;
        int index;
        Change change;
        const char* serial;
    } cases[] = {
        { "first disk, deep in its branch", 0, {}, "WD-0001" },
        { "second disk, on the branch itself", 1, {}, "ST-0002" },
        { "no third disk", 2, {}, "" },
        { "dock gone from its path", 0, moveDock, "" },
        { "dock without a parent", 0, [](Registry& r) { r.edit(r.dock, [](Node& n) { n.parent = 0; }); }, "" },
        { "bridge children unlisted", 0, [](Registry& r) { r.edit(r.bridge, [](Node& n) { n.childrenListable = false; }); }, "" },
        { "controller children unlisted", 1, [](Registry& r) { r.edit(r.controller, [](Node& n) { n.childrenListable = false; }); }, "" },
        { "no characteristics", 0, [](Registry& r) { r.remove(r.device0, "Device Characteristics"); }, "" },
        // The first characteristics end the descent, with a serial or not.
        { "characteristics without serial", 0, [](Registry& r) { r.driver.setProperty(r.port0, "Device Characteristics", Registry::characteristics({})); }, "" },
        { "serial no text", 1, [](Registry& r) { r.driver.setProperty(r.disk1, "Device Characteristics", Registry::characteristics(7)); }, "" },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        driver = std::make_shared<FakeTbtDockDriver>();
        Registry registry(*driver, "Thunderbolt Single Dock 1.0");
        auto board = openWithoutPoll<TbtSingleBoard>(registry.dock);
        if (c.change)
            c.change(registry);
        juce::String serial = "(untouched)";
        EXPECT_TRUE(board->getDiskSerialNumber(c.index, serial));
        EXPECT_EQ(serial, c.serial);
        EXPECT_EQ(driver->outstanding(), 1) << "only the board's own reference may remain";
        board->closeBoard(false);
        EXPECT_TRUE(board->getDiskSerialNumber(c.index, serial));
        EXPECT_EQ(serial, "");
    }
}

TEST_F(TbtTest, TheUidIsTheThunderboltSwitchsNumber)
{
    const struct
    {
        const char* name;
        Change change;
        const char* uid; // or nullptr: not found
    } cases[] = {
        { "found", {}, "00ab0000cafe1234" },
        { "negative", [](Registry& r) { r.driver.setProperty(r.tbtSwitch, "UID", (juce::int64) -2); }, "fffffffffffffffe" },
        { "dock gone from its path", moveDock, nullptr },
        { "no Thunderbolt path", [](Registry& r) { r.remove(r.bridge, "Thunderbolt Path"); }, nullptr },
        { "Thunderbolt path leads nowhere", [](Registry& r) { r.edit(r.tbtPort, [](Node& n) { n.path = "IOService:/x"; }); }, nullptr },
        { "port without a parent", [](Registry& r) { r.edit(r.tbtPort, [](Node& n) { n.parent = 0; }); }, nullptr },
        { "switch without a UID", [](Registry& r) { r.remove(r.tbtSwitch, "UID"); }, nullptr },
        { "UID no number", [](Registry& r) { r.driver.setProperty(r.tbtSwitch, "UID", "00ab"); }, nullptr },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        driver = std::make_shared<FakeTbtDockDriver>();
        Registry registry(*driver, "Thunderbolt CD2 Dock 1.0");
        auto board = openWithoutPoll<TbtCd2Board>(registry.dock);
        if (c.change)
            c.change(registry);
        juce::String uid = "(untouched)";
        EXPECT_EQ(board->getUID(uid), c.uid != nullptr);
        EXPECT_EQ(uid, c.uid ? c.uid : "(untouched)");
        EXPECT_EQ(driver->outstanding(), 1) << "only the board's own reference may remain";
        board->closeBoard(false);
        EXPECT_FALSE(board->getUID(uid));
    }
}
