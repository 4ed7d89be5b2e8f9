// The remote control menu, its display demonstration and its events, end to end.
#include "console/ConsoleSession.h"
#include "link/HardwareBoard.h"

namespace
{
struct RemoteConsole : SerialConsoleTest
{
    void SetUp() override { open("r", "Remote Control AVR board V1.00"); }
};

/** The hex form of a drawn text, as it appears inside a graphics command. */
std::string hexOf(const std::string& text)
{
    juce::String hex;
    for (unsigned char c : text)
        HardwareBoard::appendHexByte(c, hex);
    return hex.toStdString();
}
}

TEST_F(RemoteConsole, EveryKeyReachesTheWireAndPrintsItsLine)
{
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
        { 'S', {}, {}, "Unknown command 'S'\n" },
        { '@', {}, {}, "Unknown command '@'\n" },
        { '?', {}, {},
          "\nC set contrast, E get contrast, R ring colour\nF set ring brightness, I get ring brightness\nA ambient Q "
          "qtouch events,\nM boot message x exit\n\n" },
    });
}

TEST_F(RemoteConsole, BootMessageIsBoundedByTheBoardsLine)
{
    const std::string kept(1079, 'm');
    board->reply("M" + kept, { "OK" });
    ASSERT_TRUE(console->key('M'));
    ASSERT_TRUE(console->waitFor("Message: "));
    console->line(kept + std::string(21, 'm'));
    ASSERT_TRUE(board->waitForReceived(1));
    ASSERT_TRUE(console->waitForKeyMode());
    EXPECT_EQ(console->takeOutput(), kept + "\n") << "the echo stops where the line does";
    EXPECT_EQ(board->takeReceived(), std::vector<std::string> { "M" + kept });
}

TEST_F(RemoteConsole, DisplayDemonstrationRunsUntilAKeyAndFollowsTheRemotesKeys)
{
    board->setHandler([](const std::string& line) -> std::optional<std::vector<std::string>> {
        if (line[0] == 'G')
            return std::vector<std::string> { "OK" };
        return std::nullopt;
    });
    board->takeReceived();
    ASSERT_TRUE(console->key('G'));

    auto drawn = [&](const std::string& text) {
        return waitUntil(
            [&] {
                for (auto& line : board->pty().received())
                    if (line[0] == 'G' && line.find(hexOf(text)) != std::string::npos)
                        return true;
                return false;
            },
            ConsoleSession::deadlineMs);
    };
    ASSERT_TRUE(drawn("Storage"));
    // The timecode moves on while the demonstration runs.
    ASSERT_TRUE(drawn("00:00:00:05"));

    board->event("k0010");
    ASSERT_TRUE(console->waitFor("Key: 0010\n"));
    ASSERT_TRUE(drawn("Backspace"));
    board->event("k0000");
    board->event("k0004");
    ASSERT_TRUE(console->waitFor("Key: 0004\n"));

    console->type("q"); // any key ends it, and is not taken as a command
    ASSERT_TRUE(waitUntil(
        [&] {
            const auto lines = board->pty().received();
            return !lines.empty() && lines.back() == "G01";
        },
        ConsoleSession::deadlineMs))
        << "the display is cleared at the end";
    runAll({ { 'I', {}, { { "I", { "R2" } } }, "Ring brightness: 2\n" } });
    EXPECT_EQ(console->output().find("Unknown command"), std::string::npos);
}

TEST_F(RemoteConsole, EventsArePrintedAndTouchValuesShareOneLine)
{
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
}
