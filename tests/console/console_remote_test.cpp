// The remote control menu, its display demonstration and its events, end to end.
#include "console/ConsoleSession.h"

#include <algorithm>

using RemoteConsole = SerialConsoleTest;

TEST_F(RemoteConsole, KeysEventsBootMessageAndDisplayDemonstration)
{
    ASSERT_NO_FATAL_FAILURE(open("r", "Remote Control AVR board V1.00"));
    runAll({
        { 'A', { { "Ambient: ", "1" } }, { { "P1", {} } } },
        { 'C', { { "Set contrast: ", "5" } }, { { "C5", {} } } },
        { 'E', {}, { { "E", { "R7" } } }, "Contrast: 7\n" },
        { 'F', { { "Set ring brightness: ", "3" } }, { { "R3", {} } } },
        { 'I', {}, { { "I", { "R4" } } }, "Ring brightness: 4\n" },
        { 'M', { { "Message: ", "Hello bench" } }, { { "MHello bench", {} } } },
        { 'Q', { { "Enable Qtouch events: ", "1" } }, { { "Q1", {} } } },
        { 'R', { { "Ring colour: ", "1 2 3 1" } }, { { "F5B", {} } } },
        { 'E', {}, { { "E", { "N" } } }, "Contrast: Failed\n" },
        { '@', {}, {}, "Unknown command '@'\n" },
        { '?', {}, {},
          "\nC set contrast, E get contrast, R ring colour\nF set ring brightness, I get ring brightness\nA ambient Q "
          "qtouch events,\nM boot message x exit\n\n" },
    });
    // Touch values share one line.
    expectEvents({
        { "k0102", "Key: 0102\n" },
        { "r7F", "Rotor: 7f\n" },
        { "eFF", "Encoder: -1\n" },
        { "e05", "Encoder: 5\n" },
        { "dBoot ok", "Debug: Boot ok\n" },
        { "q00010002000300040005000600070008000900AB", "\rSig:0001 0002 0003 0004 0005 0006 0007 0008 0009 00ab " },
        { "q0011", "\rSig:0011 0000 0000 0000 0000 0000 0000 0000 0000 0000 " },
        { "f0100020003000400050006000700080009000A00",
          "\rRef:0100 0200 0300 0400 0500 0600 0700 0800 0900 0a00 \n" },
    });

    // A boot message is bounded by the board's line.
    const std::string kept(1079, 'm');
    board->reply("M" + kept, { "OK" });
    ASSERT_TRUE(console->key('M'));
    ASSERT_TRUE(console->waitFor("Message: "));
    console->line(kept + std::string(21, 'm'));
    ASSERT_TRUE(board->waitForReceived(1));
    ASSERT_TRUE(console->waitForKeyMode());
    EXPECT_EQ(console->takeOutput(), kept + "\n") << "the echo stops where the line does";
    EXPECT_EQ(board->takeReceived(), std::vector<std::string> { "M" + kept });

    // The display demonstration runs until a key and follows the remote's keys.
    board->setHandler([](const std::string& line) -> std::optional<std::vector<std::string>> {
        return line[0] == 'G' ? std::optional(std::vector<std::string> { "OK" }) : std::nullopt;
    });
    ASSERT_TRUE(console->key('G'));
    auto sent = [&](const std::function<bool(const std::vector<std::string>&)>& seen) {
        return waitUntil([&] { return seen(board->pty().received()); }, ConsoleSession::deadlineMs);
    };
    auto drawn = [&](const std::string& text) {
        std::string hex;
        for (unsigned char c : text)
            hex += hex2(c);
        return sent([&](auto& lines) {
            return std::any_of(lines.begin(), lines.end(), [&](auto& l) { return l.find(hex) != l.npos; });
        });
    };
    // The timecode moves on while the demonstration runs.
    ASSERT_TRUE(drawn("Storage") && drawn("00:00:00:05"));
    board->event("k0010");
    ASSERT_TRUE(console->waitFor("Key: 0010\n"));
    ASSERT_TRUE(drawn("Backspace"));

    console->type("q"); // any key ends it, and is not taken as a command
    EXPECT_TRUE(sent([](auto& lines) { return !lines.empty() && lines.back() == "G01"; })) << "display cleared";
    runAll({ { 'I', {}, { { "I", { "R2" } } }, "Ring brightness: 2\n" } });
    EXPECT_EQ(console->output().find("Unknown command 'q'"), std::string::npos);
}
