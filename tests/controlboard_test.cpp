#include "support/PtyPeer.h"
#include "support/TestBoard.h"

#include <gtest/gtest.h>

#include <map>
#include <memory>

namespace
{
using Lines = std::vector<std::string>;

/** A board's side of discovery and sync, plus scripted answers per command. */
PtyPeer::Responder boardAnswers(const std::string& identity, int id, std::map<std::string, Lines> script = {})
{
    return [=](const std::string& line) -> Lines {
        const auto found = script.find(line);
        if (found != script.end())
            return found->second;
        if (line == "?")
            return { identity };
        if (line == "@")
            return { "R" + std::to_string(id) };
        return { "OK" };
    };
}

/** Discovery and open against ports published in a private device directory. */
struct Link : ::testing::Test
{
    TempDevDir dev;
    LogCapture log;
    std::vector<std::unique_ptr<PtyPeer>> peers;

    PtyPeer& addPeer(const std::string& name, PtyPeer::Responder answers = {})
    {
        peers.push_back(std::make_unique<PtyPeer>(dev.path(), name));
        if (answers)
            peers.back()->serve(answers);
        return *peers.back();
    }
};

/** One board already found and open on port 0. */
struct OpenBoard : Link
{
    std::map<std::string, Lines> script;
    PtyPeer* peer = nullptr;
    std::unique_ptr<TestBoard> board;

    void open(bool usb = true, int pauseMs = 0)
    {
        peer = &addPeer(usb ? "ttyUSB0" : "ttyS0", boardAnswers("Test board V2.1", 0, script));
        board = std::make_unique<TestBoard>("Test board", 19200, usb);
        board->pauseMs = pauseMs;
        ASSERT_TRUE(board->findAndOpen(-1));
        log.clear();
    }
};
}

TEST_F(Link, DiscoverySkipsSilentRefusingAndForeignPortsAndHonoursTheId)
{
    const auto count = [](const PtyPeer& p, const std::string& line) {
        const auto r = p.received();
        return (size_t) std::count(r.begin(), r.end(), line);
    };
    addPeer("ttyUSB0");  // silent
    auto& refuses = addPeer("ttyUSB1", [](const std::string&) { return Lines { "N" }; });
    auto& foreign = addPeer("ttyUSB2", boardAnswers("Other board V1.0", 3));
    auto& wrongId = addPeer("ttyUSB3", boardAnswers("Test board V1.5", 5));
    auto& ours = addPeer("ttyUSB4", boardAnswers("Test board V1.7", 3));
    TestBoard board;
    ASSERT_TRUE(board.findAndOpen(3));
    EXPECT_EQ(board.getVersionString(), "V1.7");
    EXPECT_TRUE(ControlBoard::isPortOpen(4));
    EXPECT_FALSE(ControlBoard::isPortOpen(3));
    EXPECT_EQ(count(refuses, "?"), 2u) << "a refused identify is asked once more";
    EXPECT_EQ(count(refuses, "@") + count(foreign, "@"), 0u);
    EXPECT_EQ(count(wrongId, "@"), 1u);

    // Any id is taken when none is asked for; the open port is left alone.
    TestBoard any;
    ASSERT_TRUE(any.findAndOpen(-1));
    EXPECT_EQ(any.getVersionString(), "V1.5");
    const auto asked = count(ours, "?");
    TestBoard third;
    EXPECT_FALSE(third.findAndOpen(-1)) << "both matching ports are taken";
    EXPECT_EQ(count(ours, "?"), asked) << "a port held by this process is not probed";
}

TEST_F(Link, IdentityFormsAndRefusals)
{
    // "N" is examined as an identity; a bootloader's version follows its id; an id not answered R fails.
    const struct { const char *identity, *idAnswer, *boardId; int id; bool found; const char* version; } cases[] = {
        { "N", "R0", "N", -1, true, "" },
        { "(bootloader) XB on board 4.2", "R1", "(bootloader)", 1, true, "4.2" },
        { "Test board V3.0", "N", "Test board", -1, false, "V3.0" },
    };
    for (auto& c : cases)
    {
        SCOPED_TRACE(c.identity + std::string(" / ") + c.boardId);
        PtyPeer p(dev.path(), "ttyUSB0");
        p.serve(boardAnswers(c.identity, 0, { { "@", { c.idAnswer } } }));
        TestBoard board(c.boardId);
        EXPECT_EQ(board.findAndOpen(c.id), c.found);
        EXPECT_EQ(board.getVersionString(), c.version);
        EXPECT_EQ(ControlBoard::isPortOpen(0), c.found);
    }
}

TEST_F(OpenBoard, ExchangeOutcomesAndTheirDiagnostics)
{
    script = { { "B", { "N" } }, { "C", { "R12" } }, { "D", { "OK" } }, { "E", {} },
               { "F", { "Hello", "OK" } }, { "G", { "\x01\xC8" } } };
    open();
    const struct { char cmd; bool wantsValue, ok; const char* logged; } cases[] = {
        { 'A', false, true, nullptr },
        { 'B', false, false, "ControlBoard::sendCommand 'B' received NACK" },
        { 'C', false, false, "ControlBoard::sendCommand 'C' received unexpected response char" },
        { 'D', true, false, "ControlBoard::sendCommand 'D' received unexpected ACK" },
        { 'E', false, false, "ControlBoard::sendCommand 'E' reply timeout" },
        { 'F', false, true, "ControlBoard::sendCommand 'F' received unexpected reply 'Hello'" },
        { 'G', false, false, "ControlBoard::sendCommand 'G' reply fail" },
    };
    int value = 0;
    for (auto& c : cases)
    {
        log.clear();
        EXPECT_EQ(c.wantsValue ? board->sendCommandGetIntResponse(c.cmd, 2, value) : board->sendCommand(c.cmd, -1, 0),
                  c.ok) << c.cmd;
        EXPECT_EQ(log.lines(), c.logged ? juce::StringArray { c.logged } : juce::StringArray {}) << c.cmd;
    }
    EXPECT_TRUE(board->syncState());
    EXPECT_EQ(peer->received().back(), "!");
    EXPECT_TRUE(board->sendCommand('T', "caf\xE9")) << "text that is not UTF-8";
    EXPECT_EQ(peer->received().back(), "Tcaf\xE9") << "reaches the wire as its bytes";

    board->setQuiet(true);
    log.clear();
    EXPECT_FALSE(board->sendCommand('B', -1, 0));
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(OpenBoard, EventsEndTheIdlePauseFollowTheirExchangeInOrderOnceAndNeverMixWithReplies)
{
    // "cthree" is already in the port when the exchange ends: the parked lines go first.
    script = { { "S", { "aone", "OK" } }, { "T", { "ztwo", "OK", "cthree" } } };
    open(true, 600000);  // far longer than any deadline: only a line or the stop ends the pause
    for (int i = 1; i <= 3; ++i)
    {
        peer->writeLine("e" + std::to_string(i));
        ASSERT_TRUE(board->waitForEvents(i)) << "event " << i;
    }
    EXPECT_TRUE(board->sendCommand('S', -1, 0));
    EXPECT_TRUE(board->waitForEvents(4)) << "a parked line is delivered when the exchange ends";
    EXPECT_TRUE(board->sendCommand('T', -1, 0));
    ASSERT_TRUE(board->waitForEvents(6));
    juce::Thread::sleep(100);
    EXPECT_EQ(board->events(), (juce::StringArray { "e1", "e2", "e3", "aone", "ztwo", "cthree" }));

    // Replies carry the command's own number; events stream meanwhile.
    int counter = 0;
    peer->serve([&counter](const std::string& line) -> Lines {
        if (line.size() > 1 && line[0] == 'Q')
            return { "e" + std::to_string(counter++), "R" + line.substr(1) };
        return { "OK" };
    });
    std::thread noise([this] {
        for (int i = 0; i < 50; ++i)
        {
            peer->writeLine("n" + std::to_string(i));
            juce::Thread::sleep(2);
        }
    });
    for (int i = 0; i < 60; ++i)
    {
        int value = -1;
        ASSERT_TRUE(board->sendCommandGetIntResponse('Q', 4, value, i, 4)) << i;
        EXPECT_EQ(value, i);
    }
    noise.join();
    ASSERT_TRUE(board->waitForEvents(116));
    juce::Thread::sleep(100);
    int nextE = 0, nextN = 0;
    const auto events = board->events();
    for (int i = 6; i < events.size(); ++i)
        EXPECT_EQ(events[i], events[i][0] == 'e' ? "e" + juce::String(nextE++) : "n" + juce::String(nextN++));

    board->closeBoard(false);
    EXPECT_FALSE(board->isThreadRunning());
    EXPECT_FALSE(log.contains("!! killing thread by force !!")) << "the stop ended the pause";
}

TEST_F(OpenBoard, ABoardThatStreamsLinesInsteadOfAReplyFailsTheExchangeInTime)
{
    // "S" gets more events than may be parked, "T" endless noise (<= 20 s): both give up in time.
    std::atomic<bool> stop { false };
    open();
    peer->serve([&](const std::string& line) {
        const auto until = juce::Time::getMillisecondCounter() + 20000;
        while (line == "T" && !stop && juce::Time::getMillisecondCounter() < until)
        {
            peer->writeLine("Xnoise");
            juce::Thread::sleep(2);
        }
        return line == "S" ? Lines(2100, "estream") : line == "T" ? Lines {} : Lines { "OK" };
    });
    for (char cmd : { 'S', 'T' })
    {
        log.clear();
        EXPECT_FALSE(board->sendCommand(cmd, -1, 0)) << cmd;
        stop = cmd == 'T';
        const juce::String start = "ControlBoard::sendCommand '" + juce::String::charToString(cmd)
                                   + "' reply timeout: lines kept coming on " + peer->linkPath() + " for ";
        const auto lines = log.lines();
        const auto found = std::find_if(lines.begin(), lines.end(), [&](auto& l) { return l.startsWith(start); });
        ASSERT_NE(found, lines.end()) << lines.joinIntoString("|");
        if (cmd == 'S')
            EXPECT_TRUE(found->endsWith(" ms without a reply (2000 events parked)")) << *found;
        else
            EXPECT_GE(found->fromFirstOccurrenceOf(" for ", false, false).getIntValue(), 3000) << *found;
        EXPECT_TRUE(board->sendCommand('A', -1, 0)) << "the board is still usable";
    }
    EXPECT_TRUE(board->waitForEvents(2100)) << "parked lines are still delivered";
}

TEST_F(OpenBoard, ReopenRateChangeCloseAndUnplug)
{
    open();
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(board->reopenPort());
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(board->changePortRate());
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    peer->writeLine("eafter");
    EXPECT_TRUE(board->waitForEvents(1));

    const auto closedWhole = [&] {  // the thread first: the version is read only once it has ended
        return !board->isThreadRunning() && !ControlBoard::isPortOpen(0) && board->getVersionString().isEmpty();
    };
    board->closeBoard(false);
    EXPECT_TRUE(closedWhole());
    EXPECT_FALSE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(log.lines().isEmpty()) << "a closed board fails silently";

    // Found again, then unplugged: the board closes itself from its own thread.
    ASSERT_TRUE(board->findAndOpen(-1));
    EXPECT_EQ(board->getVersionString(), "V2.1");
    peer->unplug();
    EXPECT_TRUE(waitUntil([&] { return !board->boardIsOpen(); }, 20000));
    EXPECT_TRUE(waitUntil(closedWhole));
}

TEST_F(Link, AReopenRacingACloseLeavesTheBoardOpenOrClosedWhole)
{
    // A close from the board's own thread races a reopen: whoever wins, board and port table agree.
    for (int round = 0; round < 30; ++round)
    {
        const int rival = round % 3;  // the thread's close, an unplug, a rate change
        PtyPeer peer(dev.path(), "ttyUSB0");  // the same name keeps the same number
        peer.serve(boardAnswers("Test board V2.1", 0));
        TestBoard board;
        ASSERT_TRUE(board.findAndOpen(-1)) << round;
        ASSERT_TRUE(board.sendCommand('A', -1, 0));  // so that the reopen's configuration is a change

        std::thread racer([&] {
            juce::Thread::sleep(round % 5);
            if (rival == 0)
                board.closeBoard(true);
            else if (rival == 1)
                peer.unplug();
            else
                board.changePortRate();
        });
        board.reopenPort();
        racer.join();
        if (rival == 1)
            waitUntil([&] { return !board.boardIsOpen(); });
        EXPECT_EQ(ControlBoard::isPortOpen(0), board.boardIsOpen()) << "round " << round;

        // A close from the thread's side leaves the thread to end itself.
        board.stopThread(ControlBoard::threadStopTimeoutMs);
        board.closeBoard(false);
        EXPECT_FALSE(ControlBoard::isPortOpen(0)) << "round " << round;
        peer.unplug();
    }
}

TEST_F(OpenBoard, ANumberedPortIsNotWatchedForUnplugAndReportsWriteFailures)
{
    open(false);
    peer->unplug();
    juce::Thread::sleep(700);
    EXPECT_TRUE(board->boardIsOpen()) << "only adaptors are watched";
    EXPECT_FALSE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(log.lines().contains("ControlBoard::sendCommand 'A' failed")
                || log.lines().contains("ControlBoard::sendCommand 'A' reply fail"))
        << log.lines().joinIntoString("|");
}
