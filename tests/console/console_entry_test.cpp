// The command line, exit statuses, board search and link test, run on a terminal against emulated boards.
#include "console/ConsoleSession.h"
#include "support/SimProcess.h"

namespace
{
struct Finished
{
    std::string printed; // after the banner
    int status;
};

Finished runToEnd(const std::vector<std::string>& args)
{
    ConsoleSession console(args);
    const int status = console.exitStatus();
    const auto out = console.output();
    // The banner is its line, a notice and an empty line.
    const auto body = out.find("\n\n");
    EXPECT_EQ(out.rfind("AVR Test Utility\n", 0), 0u) << out;
    return { body == std::string::npos ? out : out.substr(body + 2), status };
}

/** Runs again while the board was missed (see findAttempts). */
Finished retriedWhileNotFound(const std::function<Finished()>& run)
{
    Finished result = run();
    for (int i = 1; i < findAttempts && result.printed.rfind("Failed to find", 0) == 0; ++i)
        result = run();
    return result;
}

// Check mode: a fresh emulator per case, as an emulated pty cannot tell a run's leftover settings from none.
Finished checkRun(const std::vector<std::string>& boards, const std::vector<std::string>& args)
{
    TempDevDir dir;
    SimProcess sim(dir.path(), boards);
    EXPECT_TRUE(sim.isReady());
    return runToEnd(args);
}

const std::vector<std::string> threeDiskpacks { "--board", "d", "--id", "0", "--version", "V0.0", //
                                                "--board", "d", "--id", "2", "--version", "V2.1", //
                                                "--board", "d", "--id", "2", "--version", "V2.2" };

/** Waits for the first rate, a whole number on its own line, then ends the run with Ctrl-C. */
void measureUntilControlC(ConsoleSession& console)
{
    ASSERT_TRUE(console.waitFor("Sending data..\n"));
    ASSERT_TRUE(console.waitFor(" ch/s\n", 60000));
    console.interrupt();
    EXPECT_EQ(console.exitStatus(), 0);
    const auto out = console.output();
    const auto at = out.find("Sending data..\n") + 15;
    const auto rate = out.substr(at, out.find('\n', at) - at);
    EXPECT_GT(rate.size(), 5u) << out;
    EXPECT_EQ(rate.find_first_not_of("0123456789"), rate.size() - 5) << out;
}
}

TEST(ConsoleEntry, WhatEachCommandLinePrintsWithNoBoardThere)
{
    TempDevDir dir;
    unsetenv("AVRTEST_DOCKSIM");
    const struct
    {
        std::vector<std::string> args;
        std::string printed;
        int status;
        bool whole = true; // or only how the output begins
    } cases[] = {
        { { "a" }, "Unknown board type!\n", 255 },
        { { "z" }, "Unknown board type!\n", 255 },
        { { "e" }, "Unknown board type!\n", 255 },
        { { "h" }, "Unknown board type!\n", 255 },
        { { "bq" }, "Unknown board type!\n", 255 },
        { { "b" }, "Unknown board type!\n", 255 },
        { { "" }, "Unknown board type!\n", 255 },
        // The dock letters go to the dock console, which prints its own banner.
        { { "m", "0" }, "Hardware Test Utility\n", 255, false },
        { { "n", "0" }, "Hardware Test Utility\n", 255, false },
        { { "s", "0" }, "Hardware Test Utility\n", 255, false },
        // No arguments means the chassis with id 0.
        { {}, "Failed to find chassis board id 0!\n", 255 },
        { { "u" }, "Failed to find xfer drive dual board id 0!\n", 255 },
        { { "t", "7" }, "Failed to find desktop transfer station board id 7!\n", 255 },
        { { "r", "junk" }, "Failed to find remote board id 0!\n", 255 },
        { { "b9" }, "Couldn't open Bluetooth com port 9\n", 0 },
    };
    for (auto& c : cases)
    {
        SCOPED_TRACE(c.args.empty() ? "(none)" : "'" + c.args[0] + "'");
        const auto run = runToEnd(c.args);
        EXPECT_EQ(c.whole ? run.printed : run.printed.substr(0, c.printed.size()), c.printed);
        EXPECT_EQ(run.status, c.status);
    }

    // A negative count in check mode fails before any port is touched.
    ScriptedBoard diskpack(dir.path(), "tty.usbserial-DP", "Diskpack board V1.00");
    const auto run = runToEnd({ "d", "-1", "c" });
    EXPECT_EQ(run.printed, "Failed to find diskpack board id -1!\n");
    EXPECT_EQ(run.status, 255);
    EXPECT_TRUE(diskpack.takeReceived().empty());

    // A refused sync ends the run normally.
    diskpack.reply("!", { "N" });
    const auto refused = retriedWhileNotFound([] { return runToEnd({ "d" }); });
    EXPECT_EQ(refused.printed, "Diskpack board V1.00\nType ? for help\n\nsyncState command failed\n");
    EXPECT_EQ(refused.status, 0);
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
        const auto run = c.found ? retriedWhileNotFound([&] { return checkRun(c.boards, c.args); })
                                 : checkRun(c.boards, c.args);
        EXPECT_EQ(run.printed, c.printed);
        EXPECT_EQ(run.status, c.found ? 0 : 255);
    }
}

TEST(ConsoleEntry, LinkTestMeasuresOnPortThreeAndRunsATerminalOnPortFive)
{
    TempDevDir dir;
    PtyPeer port3(dir.path(), "ttyS3");
    port3.serve([](const std::string&) { return std::vector<std::string> {}; }); // swallows the data
    ConsoleSession direct({ "b3" });
    measureUntilControlC(direct);

    PtyPeer port(dir.path(), "ttyS5");
    {
        // Ctrl-C ends the terminal without measuring.
        ConsoleSession first({ "b5" });
        ASSERT_TRUE(first.waitForKeyMode());
        first.interrupt();
        EXPECT_EQ(first.exitStatus(), 0);
        EXPECT_EQ(first.output().find("Sending data.."), std::string::npos);
    }
    ConsoleSession console({ "b5" });
    ASSERT_TRUE(console.waitForKeyMode());

    port.write("hello from the port");
    ASSERT_TRUE(console.waitFor("hello from the port"));

    console.type("k");
    std::string sent;
    ASSERT_TRUE(port.readBytes(sent, 1, ConsoleSession::deadlineMs));
    EXPECT_EQ(sent, "k");

    port.serve([](const std::string&) { return std::vector<std::string> {}; });
    console.type("\x01");
    measureUntilControlC(console);
}
