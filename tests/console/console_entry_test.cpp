// The console's command line, exit statuses, board search and link test, run
// as the technician runs them: the program on a terminal, boards emulated.
#include "console/ConsoleSession.h"
#include "support/SimProcess.h"

namespace
{
const std::string bannerLine = "AVR Test Utility\n";

/** Runs avrtest to its end and returns what it printed after the banner. */
struct Finished
{
    std::string printed;
    int status;
};

Finished runToEnd(const std::vector<std::string>& args)
{
    ConsoleSession console(args);
    const int status = console.exitStatus();
    const auto out = console.output();
    // The banner is its line, a notice and an empty line.
    const auto body = out.find("\n\n");
    EXPECT_EQ(out.rfind(bannerLine, 0), 0u) << out;
    return { body == std::string::npos ? out : out.substr(body + 2), status };
}

bool notFound(const Finished& run)
{
    return run.printed.rfind("Failed to find", 0) == 0;
}

/** Runs again while the board was missed (see findAttempts). */
Finished retriedWhileNotFound(const std::function<Finished()>& run)
{
    Finished result = run();
    for (int i = 1; i < findAttempts && notFound(result); ++i)
        result = run();
    return result;
}

struct ConsoleEntry : ::testing::Test
{
    TempDevDir dir;
};
}

TEST_F(ConsoleEntry, UnknownBoardTypesEndWithMinusOne)
{
    for (const char* type : { "a", "z", "e", "h", "bq", "b", "" })
    {
        SCOPED_TRACE(std::string("type '") + type + "'");
        const auto run = runToEnd({ type });
        EXPECT_EQ(run.printed, "Unknown board type!\n");
        EXPECT_EQ(run.status, 255);
    }
}

TEST_F(ConsoleEntry, DockLettersGoToTheDockConsole)
{
    unsetenv("AVRTEST_DOCKSIM");
    for (const char* type : { "m", "n", "s" })
    {
        SCOPED_TRACE(type);
        const auto run = runToEnd({ type, "0" });
        EXPECT_EQ(run.printed.rfind("Hardware Test Utility\n", 0), 0u) << run.printed;
        EXPECT_EQ(run.status, 255);
    }
}

TEST_F(ConsoleEntry, NoArgumentsMeansTheChassisWithIdZero)
{
    EXPECT_EQ(runToEnd({}).printed, "Failed to find chassis board id 0!\n");

    ScriptedBoard chassis(dir.path(), "tty.usbserial-CH", "Chassis board V2.50");
    auto console = startFound({}, "Chassis board V2.50");
    ASSERT_TRUE(console);
    ASSERT_TRUE(console->waitForKeyMode());
    chassis.takeReceived();
    ASSERT_TRUE(console->key('x'));
    EXPECT_EQ(console->exitStatus(), 0);
    // Closing commits the chassis settings to its EEPROM.
    EXPECT_EQ(chassis.takeReceived(), (std::vector<std::string> { "W" }));
}

TEST_F(ConsoleEntry, FailureNamesTheKindAndTheIdGiven)
{
    EXPECT_EQ(runToEnd({ "u" }).printed, "Failed to find xfer drive dual board id 0!\n");
    EXPECT_EQ(runToEnd({ "t", "7" }).printed, "Failed to find desktop transfer station board id 7!\n");
    EXPECT_EQ(runToEnd({ "r", "junk" }).printed, "Failed to find remote board id 0!\n");

    // A negative count in check mode fails before any port is touched.
    ScriptedBoard diskpack(dir.path(), "tty.usbserial-DP", "Diskpack board V1.00");
    const auto run = runToEnd({ "d", "-1", "c" });
    EXPECT_EQ(run.printed, "Failed to find diskpack board id -1!\n");
    EXPECT_EQ(run.status, 255);
    EXPECT_TRUE(diskpack.takeReceived().empty());
}

TEST_F(ConsoleEntry, WithoutCheckModeOnlyTheGivenIdIsTried)
{
    SimProcess sim(dir.path(), { "--board", "d", "--id", "0", "--version", "V0.1", "--board", "d", "--id", "2",
                                 "--version", "V2.1" });
    ASSERT_TRUE(sim.isReady());
    // A third argument that does not start with c leaves check mode off.
    auto console = startFound({ "d", "2", "x" }, "Diskpack board V2.1");
    ASSERT_TRUE(console);
    ASSERT_TRUE(console->key('x'));
    EXPECT_EQ(console->exitStatus(), 0);
}

TEST_F(ConsoleEntry, SyncStateRefusedEndsTheRunNormally)
{
    ScriptedBoard diskpack(dir.path(), "tty.usbserial-DP", "Diskpack board V1.00");
    diskpack.reply("!", { "N" });
    const auto run = retriedWhileNotFound([] { return runToEnd({ "d" }); });
    EXPECT_EQ(run.printed, "Diskpack board V1.00\nType ? for help\n\nsyncState command failed\n");
    EXPECT_EQ(run.status, 0);
}

//==============================================================================
// Check mode. Each case gets a fresh emulator: the boards a run leaves open
// are reconfigured from our side only, which an emulated pty cannot tell apart
// from no change at all.

namespace
{
Finished checkRun(const std::vector<std::string>& boards, const std::vector<std::string>& args)
{
    TempDevDir dir;
    SimProcess sim(dir.path(), boards);
    EXPECT_TRUE(sim.isReady());
    return runToEnd(args);
}

Finished checkRunFound(const std::vector<std::string>& boards, const std::vector<std::string>& args)
{
    return retriedWhileNotFound([&] { return checkRun(boards, args); });
}

const std::vector<std::string> threeDiskpacks { "--board", "d", "--id", "0", "--version", "V0.0", //
                                                "--board", "d", "--id", "2", "--version", "V2.1", //
                                                "--board", "d", "--id", "2", "--version", "V2.2" };
}

TEST(ConsoleCheckMode, CountsBoardsOnTheSearchedIdsAndPrintsTheLastFound)
{
    const std::vector<std::string> stations { "--board", "x", "--id", "1", "--version", "V1.1", //
                                              "--board", "x", "--id", "2", "--version", "V1.2" };
    const struct
    {
        std::vector<std::string> boards, args;
        bool found;
        std::string printed;
    } cases[] = {
        { threeDiskpacks, { "d", "2", "c" }, true, "Diskpack board V2.1\n" },
        // A second board with the same id counts too.
        { threeDiskpacks, { "d", "3", "check" }, true, "Diskpack board V2.2\n" },
        { threeDiskpacks, { "d", "4", "c" }, false, "Failed to find diskpack board id 4!\n" },
        // Zero wanted still looks once, and past missing ids.
        { { "--board", "d", "--id", "3", "--version", "V3.0" }, { "d", "0", "c" }, true, "Diskpack board V3.0\n" },
        // Transfer stations are searched on ids 0 and 1 only.
        { stations, { "x", "1", "c" }, true, "Transfer Station board V1.1\n" },
        { stations, { "x", "2", "c" }, false, "Failed to find transfer station board id 2!\n" },
        // Without check mode the id given is the only one tried.
        { stations, { "x", "0" }, false, "Failed to find transfer station board id 0!\n" },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.printed);
        const auto run = c.found ? checkRunFound(c.boards, c.args) : checkRun(c.boards, c.args);
        EXPECT_EQ(run.printed, c.printed);
        EXPECT_EQ(run.status, c.found ? 0 : 255);
    }
}

//==============================================================================
namespace
{
/** The port swallows whatever the throughput test sends. */
void drain(PtyPeer& port)
{
    port.serve([](const std::string&) { return std::vector<std::string> {}; });
}

/** Waits for the throughput test's first rate, then ends the run with Ctrl-C. */
void measureUntilControlC(ConsoleSession& console)
{
    ASSERT_TRUE(console.waitFor("Sending data..\n"));
    ASSERT_TRUE(console.waitFor(" ch/s\n", 60000));
    console.interrupt();
    EXPECT_EQ(console.exitStatus(), 0);
}
}

TEST_F(ConsoleEntry, LinkTestReportsAMissingPort)
{
    const auto run = runToEnd({ "b9" });
    EXPECT_EQ(run.printed, "Couldn't open Bluetooth com port 9\n");
    EXPECT_EQ(run.status, 0);
}

TEST_F(ConsoleEntry, LinkTestMeasuresThroughputUntilControlC)
{
    PtyPeer port(dir.path(), "ttyS3");
    drain(port);
    ConsoleSession console({ "b3" });
    ASSERT_NO_FATAL_FAILURE(measureUntilControlC(console));
    // The first pass's rate is a whole number on its own line.
    const auto out = console.output();
    const auto at = out.find("Sending data..\n");
    ASSERT_NE(at, std::string::npos);
    const auto rate = out.substr(at + 15, out.find('\n', at + 15) - (at + 15));
    EXPECT_GT(rate.size(), 5u) << out;
    EXPECT_EQ(rate.find_first_not_of("0123456789"), rate.size() - 5) << out;
    EXPECT_EQ(rate.substr(rate.size() - 5), " ch/s") << out;
}

TEST_F(ConsoleEntry, LinkTestTerminalOnPortFiveThenThroughputAfterControlA)
{
    PtyPeer port(dir.path(), "ttyS5");
    ConsoleSession console({ "b5" });
    ASSERT_TRUE(console.waitForKeyMode());

    port.write("hello from the port");
    ASSERT_TRUE(console.waitFor("hello from the port"));

    console.type("k");
    std::string sent;
    ASSERT_TRUE(port.readBytes(sent, 1, ConsoleSession::deadlineMs));
    EXPECT_EQ(sent, "k");

    drain(port);
    console.type("\x01");
    measureUntilControlC(console);
}

TEST_F(ConsoleEntry, LinkTestTerminalEndsOnControlC)
{
    PtyPeer port(dir.path(), "ttyS5");
    ConsoleSession console({ "b5" });
    ASSERT_TRUE(console.waitForKeyMode());
    console.interrupt();
    EXPECT_EQ(console.exitStatus(), 0);
    EXPECT_EQ(console.output().find("Sending data.."), std::string::npos);
}
