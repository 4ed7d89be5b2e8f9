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

    PtyPeer& addPeer(const std::string& name)
    {
        peers.push_back(std::make_unique<PtyPeer>(dev.path(), name));
        return *peers.back();
    }

    size_t count(const PtyPeer& p, const std::string& line) const
    {
        const auto r = p.received();
        return (size_t) std::count(r.begin(), r.end(), line);
    }
};

/** One board already found and open on port 0. */
struct OpenBoard : Link
{
    std::map<std::string, Lines> script;
    PtyPeer* peer = nullptr;
    std::unique_ptr<TestBoard> board;

    void open(bool usb = true)
    {
        peer = &addPeer(usb ? "ttyUSB0" : "ttyS0");
        peer->serve(boardAnswers("Test board V2.1", 0, script));
        board = std::make_unique<TestBoard>("Test board", 19200, usb);
        if (!usb)
        {
            // Numbered ports are probed like adaptors; only the naming differs.
            struct NumberedBoard : TestBoard
            {
                NumberedBoard() : TestBoard("Test board", 19200, false) {}
                int numSearchPorts() const override { return 1; }
            };
            board = std::make_unique<NumberedBoard>();
        }
        ASSERT_TRUE(board->findAndOpen(-1));
        log.clear();
    }
};
}

TEST_F(Link, DiscoverySkipsSilentRefusingAndForeignPortsAndHonoursTheId)
{
    auto& silent = addPeer("ttyUSB0");
    auto& refuses = addPeer("ttyUSB1");
    auto& foreign = addPeer("ttyUSB2");
    auto& wrongId = addPeer("ttyUSB3");
    auto& ours = addPeer("ttyUSB4");
    refuses.serve([](const std::string&) { return Lines { "N" }; });
    foreign.serve(boardAnswers("Other board V1.0", 3));
    wrongId.serve(boardAnswers("Test board V1.5", 5));
    ours.serve(boardAnswers("Test board V1.7", 3));

    TestBoard board;
    ASSERT_TRUE(board.findAndOpen(3));
    EXPECT_TRUE(board.boardIsOpen());
    EXPECT_EQ(board.getVersionString(), "V1.7");
    EXPECT_TRUE(ControlBoard::isPortOpen(4));
    EXPECT_FALSE(ControlBoard::isPortOpen(3));

    EXPECT_EQ(count(refuses, "?"), 2u) << "a refused identify is asked once more";
    EXPECT_EQ(count(refuses, "@"), 0u);
    EXPECT_EQ(count(foreign, "@"), 0u);
    EXPECT_EQ(count(wrongId, "@"), 1u);
    juce::ignoreUnused(silent);

    // Any id is taken when none is asked for; the open port is left alone.
    TestBoard any;
    ASSERT_TRUE(any.findAndOpen(-1));
    EXPECT_EQ(any.getVersionString(), "V1.5");
    EXPECT_TRUE(ControlBoard::isPortOpen(3));

    const auto asked = count(ours, "?");
    TestBoard third;
    EXPECT_FALSE(third.findAndOpen(-1)) << "both matching ports are taken";
    EXPECT_EQ(count(ours, "?"), asked) << "a port held by this process is not probed";
}

TEST_F(Link, TheRefusalIsExaminedAsAnIdentity)
{
    auto& p = addPeer("ttyUSB0");
    p.serve([](const std::string& line) { return line == "@" ? Lines { "R0" } : Lines { "N" }; });
    TestBoard notN;
    EXPECT_FALSE(notN.findAndOpen(-1));
    TestBoard n("N");
    EXPECT_TRUE(n.findAndOpen(-1));
    EXPECT_EQ(n.getVersionString(), "");
}

TEST_F(Link, BootloaderIdentityForm)
{
    auto& p = addPeer("ttyUSB0");
    p.serve(boardAnswers("(bootloader) XB on board 4.2", 1));
    TestBoard boot("(bootloader)");
    ASSERT_TRUE(boot.findAndOpen(1));
    EXPECT_EQ(boot.getVersionString(), "4.2") << "the version starts 13 characters past the id string";
}

TEST_F(Link, AnIdThatDoesNotAnswerRLeavesTheVersionOfTheCandidate)
{
    auto& p = addPeer("ttyUSB0");
    p.serve(boardAnswers("Test board V3.0", 0, { { "@", { "N" } } }));
    TestBoard board;
    EXPECT_FALSE(board.findAndOpen(-1));
    EXPECT_EQ(board.getVersionString(), "V3.0");
    EXPECT_FALSE(board.boardIsOpen());
    EXPECT_FALSE(ControlBoard::isPortOpen(0));
}

TEST_F(OpenBoard, ExchangeOutcomesAndTheirDiagnostics)
{
    script = {
        { "B", { "N" } },
        { "C", { "R12" } },
        { "D", { "OK" } },
        { "E", {} },
        { "F", { "Hello", "OK" } },
        { "G", { "\x01\xC8" } },
        { "H", { "R00ff" } },
    };
    open();

    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(log.lines().isEmpty());

    const std::pair<char, const char*> failures[] = {
        { 'B', "ControlBoard::sendCommand 'B' received NACK" },
        { 'C', "ControlBoard::sendCommand 'C' received unexpected response char" },
        { 'E', "ControlBoard::sendCommand 'E' reply timeout" },
        { 'G', "ControlBoard::sendCommand 'G' reply fail" },
    };
    for (auto& [cmd, message] : failures)
    {
        log.clear();
        EXPECT_FALSE(board->sendCommand(cmd, -1, 0)) << cmd;
        EXPECT_TRUE(log.lines().contains(message)) << cmd << ": " << log.lines().joinIntoString("|");
    }

    int value = 0;
    log.clear();
    EXPECT_FALSE(board->sendCommandGetIntResponse('D', 2, value));
    EXPECT_EQ(log.lines(), juce::StringArray { "ControlBoard::sendCommand 'D' received unexpected ACK" });

    log.clear();
    EXPECT_TRUE(board->sendCommand('F', -1, 0)) << "an unexpected line is skipped";
    EXPECT_EQ(log.lines(), juce::StringArray { "ControlBoard::sendCommand 'F' received unexpected reply 'Hello'" });

    EXPECT_TRUE(board->sendCommandGetIntResponse('H', 4, value));
    EXPECT_EQ(value, 255);
    EXPECT_TRUE(board->syncState());
    EXPECT_EQ(peer->received().back(), "!");

    board->setQuiet(true);
    log.clear();
    EXPECT_FALSE(board->sendCommand('B', -1, 0));
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(OpenBoard, EventsDuringAnExchangeArriveAfterItInOrderAndOnce)
{
    script = { { "S", { "aone", "btwo", "OK" } } };
    open();
    peer->writeLine("zbefore");
    ASSERT_TRUE(board->waitForEvents(1));

    EXPECT_TRUE(board->sendCommand('S', -1, 0));
    peer->writeLine("cthree");
    ASSERT_TRUE(board->waitForEvents(4));
    juce::Thread::sleep(100);
    EXPECT_EQ(board->events(), (juce::StringArray { "zbefore", "aone", "btwo", "cthree" }));
}

TEST_F(Link, ALineOrAStopEndsTheIdlePause)
{
    auto& peer = addPeer("ttyUSB0");
    peer.serve(boardAnswers("Test board V2.1", 0, { { "S", { "aparked", "OK" } } }));
    TestBoard board;
    // Far longer than any deadline here: only the line itself can end it.
    board.pauseMs = 600000;
    ASSERT_TRUE(board.findAndOpen(-1));
    for (int i = 1; i <= 3; ++i)
    {
        peer.writeLine("e" + std::to_string(i));
        ASSERT_TRUE(board.waitForEvents(i)) << "event " << i;
    }
    EXPECT_TRUE(board.sendCommand('S', -1, 0));
    EXPECT_TRUE(board.waitForEvents(4)) << "a parked line is delivered when the exchange ends";

    board.closeBoard(false);
    EXPECT_FALSE(board.isThreadRunning());
    EXPECT_FALSE(log.contains("!! killing thread by force !!")) << "the stop ended the pause";
}

TEST_F(OpenBoard, ABoardThatStreamsLinesInsteadOfAReplyFailsTheExchangeInTime)
{
    open();
    // The board answers "S" with an endless stream (here at most 20 s): event
    // lines pour in until too many are parked, unexpected lines trickle in
    // until the exchange has taken too long.
    const struct
    {
        const char* line;
        int linesPerWrite, pauseMs;
        bool byCount;
    } streams[] = { { "estream", 10, 1, true }, { "Xnoise", 1, 2, false } };
    for (auto& st : streams)
    {
        std::atomic<bool> asked { false }, stop { false };
        peer->serve([&](const std::string& line) {
            asked = asked || line == "S";
            return line == "S" ? Lines {} : Lines { "OK" };
        });
        std::thread stream([&] {
            waitUntil([&] { return asked || stop; }, 20000);
            std::string burst;
            for (int i = 0; i < st.linesPerWrite; ++i)
                burst += std::string(st.line) + "\r\n";
            const auto until = juce::Time::getMillisecondCounter() + 20000;
            while (!stop && juce::Time::getMillisecondCounter() < until)
            {
                peer->write(burst);
                juce::Thread::sleep(st.pauseMs);
            }
        });
        log.clear();
        EXPECT_FALSE(board->sendCommand('S', -1, 0)) << st.line;
        stop = true;
        stream.join();

        const juce::String start = "ControlBoard::sendCommand 'S' reply timeout: lines kept coming on "
                                   + juce::String(peer->linkPath()) + " for ";
        const auto lines = log.lines();
        const auto found = std::find_if(lines.begin(), lines.end(), [&](auto& l) { return l.startsWith(start); });
        ASSERT_NE(found, lines.end()) << st.line << ": " << lines[lines.size() - 1];
        if (st.byCount)
            EXPECT_TRUE(found->endsWith(" ms without a reply (2000 events parked)")) << *found;
        else
            EXPECT_GE(found->fromFirstOccurrenceOf(" for ", false, false).getIntValue(), 3000) << *found;
        EXPECT_TRUE(board->sendCommand('A', -1, 0)) << "the board is still usable";
        peer->stopServing();
    }
    EXPECT_TRUE(board->waitForEvents(2000)) << "parked lines are still delivered";
}

TEST_F(OpenBoard, ClosingReleasesThePortAndTheBoardCanBeFoundAgain)
{
    open();
    EXPECT_TRUE(ControlBoard::isPortOpen(0));
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    board->closeBoard(false);
    EXPECT_FALSE(board->boardIsOpen());
    EXPECT_FALSE(board->isThreadRunning());
    EXPECT_FALSE(ControlBoard::isPortOpen(0));
    EXPECT_EQ(board->getVersionString(), "");
    EXPECT_FALSE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(log.lines().isEmpty()) << "a closed board fails silently";

    ASSERT_TRUE(board->findAndOpen(-1));
    EXPECT_EQ(board->getVersionString(), "V2.1");
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
}

TEST_F(OpenBoard, ReopenAndRateChangeKeepTheBoardWorking)
{
    // Each reconfiguration follows a line, after which the peer changes the
    // pty's speed: an unchanged 8E1 request is refused by a pty.
    open();
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(board->reopenPort());
    EXPECT_TRUE(board->isThreadRunning());
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(board->changePortRate());
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    peer->writeLine("eafter");
    EXPECT_TRUE(board->waitForEvents(1));
}

TEST_F(Link, AReopenRacingACloseLeavesTheBoardOpenOrClosedWhole)
{
    // The board's thread closes the board (as after an unplug) while the
    // console reopens its port; whoever wins, the board and the port table
    // must agree, and a close afterwards must free the port.
    enum class Rival { threadClose, unplug, rateChange };
    const Rival rivals[] = { Rival::threadClose, Rival::unplug, Rival::rateChange };
    for (int round = 0; round < 30; ++round)
    {
        const Rival rival = rivals[round % 3];
        PtyPeer peer(dev.path(), "ttyUSB0");
        peer.serve(boardAnswers("Test board V2.1", 0));
        TestBoard board;
        ASSERT_TRUE(board.findAndOpen(-1)) << round;
        // After a line the peer changes the pty's speed, so that the reopen's
        // configuration is a real change (see PtyPeer).
        ASSERT_TRUE(board.sendCommand('A', -1, 0));

        std::thread racer([&] {
            juce::Thread::sleep(round % 5);
            if (rival == Rival::threadClose)
                board.closeBoard(true);
            else if (rival == Rival::unplug)
                peer.unplug();
            else
                board.changePortRate();
        });
        board.reopenPort();
        racer.join();
        if (rival == Rival::unplug)
            waitUntil([&] { return !board.boardIsOpen(); });
        EXPECT_EQ(ControlBoard::isPortOpen(0), board.boardIsOpen()) << "round " << round;

        // A close from the thread's side leaves the thread to end itself.
        board.stopThread(ControlBoard::threadStopTimeoutMs);
        board.closeBoard(false);
        EXPECT_FALSE(ControlBoard::isPortOpen(0)) << "round " << round;
        peer.unplug();
        // The next round's adaptor gets the same name, hence the same number.
    }
}

TEST_F(OpenBoard, UnplugClosesTheBoardFromItsOwnThread)
{
    open();
    peer->unplug();
    EXPECT_TRUE(waitUntil([&] { return !board->boardIsOpen(); }, 20000));
    EXPECT_TRUE(waitUntil([&] { return !board->isThreadRunning(); }));
    EXPECT_FALSE(ControlBoard::isPortOpen(0));
    EXPECT_EQ(board->getVersionString(), "");
    board->closeBoard(false);
}

TEST_F(OpenBoard, ANumberedPortIsNotWatchedForUnplugAndReportsWriteFailures)
{
    open(false);
    EXPECT_TRUE(board->sendCommand('A', -1, 0));
    peer->unplug();
    juce::Thread::sleep(700);
    EXPECT_TRUE(board->boardIsOpen()) << "only adaptors are watched";
    EXPECT_FALSE(board->sendCommand('A', -1, 0));
    EXPECT_TRUE(log.lines().contains("ControlBoard::sendCommand 'A' failed")
                || log.lines().contains("ControlBoard::sendCommand 'A' reply fail"))
        << log.lines().joinIntoString("|");
}

TEST_F(OpenBoard, CommandsAndEventsFromTwoThreadsNeverMix)
{
    int counter = 0;
    open();
    // Replies carry the command's own number; events stream meanwhile.
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
        ASSERT_TRUE(board->sendCommandGetIntResponse('Q', 2, value, i, 2)) << i;
        EXPECT_EQ(value, i);
    }
    noise.join();
    ASSERT_TRUE(board->waitForEvents(110));
    juce::Thread::sleep(100);
    const auto events = board->events();
    EXPECT_EQ(events.size(), 110);
    int nextE = 0, nextN = 0;
    for (auto& e : events)
    {
        if (e.startsWithChar('e'))
            EXPECT_EQ(e, "e" + juce::String(nextE++));
        else
            EXPECT_EQ(e, "n" + juce::String(nextN++));
    }
    EXPECT_EQ(nextE, 60);
    EXPECT_EQ(nextN, 50);
}
