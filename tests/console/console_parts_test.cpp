// The console's parts with rules of their own, in-process: arguments, link rate, display demo, typed answers.
#include "console/LinkTest.h"
#include "console/Menus.h"
#include "console/RemoteDisplayDemo.h"
#include "console/SerialConsole.h"
#include "support/PtyPeer.h"
#include "support/TestBoard.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <tuple>
#include <unistd.h>

// The rest of the command line is run end to end in console_entry_test.
TEST(ConsoleArguments, FirstCharacterPortIdAndCheckFlag)
{
    using A = ConsoleArguments::Action;
    const struct
    {
        std::vector<const char*> argv;
        A action;
        char letter;
        int port, id;
    } cases[] = {
        { { "avrtest", "diskpack" }, A::serialBoard, 'd', -1, 0 },
        { { "avrtest", "D" }, A::unknown, 'D', -1, 0 },
        { { "avrtest", "b70" }, A::linkTest, 'b', 7, 0 },
        // Only a lower-case c turns check mode on.
        { { "avrtest", "d", "-2", "C" }, A::serialBoard, 'd', -1, -2 },
    };
    for (auto& c : cases)
    {
        SCOPED_TRACE(c.argv.back());
        const auto args = parseArguments((int) c.argv.size(), c.argv.data());
        EXPECT_EQ(args.action, c.action);
        EXPECT_EQ(args.letter, c.letter);
        EXPECT_EQ(args.port, c.port);
        EXPECT_EQ(args.id, c.id);
        EXPECT_FALSE(args.check);
    }
}

TEST(ConsoleLinkTestRate, CountsTwentySixThousandCharactersAPass)
{
    EXPECT_EQ(LinkTest::rate(2000), 13000u);
    EXPECT_EQ(LinkTest::rate(3), 8666666u);
    // A pass inside one millisecond must not divide by zero.
    EXPECT_EQ(LinkTest::rate(0), 26000000u);
}

TEST(ConsoleDisplayDemo, MeterClipsAndHoldsItsPeakAndTimecodeRollsOver)
{
    const struct
    {
        int value, times, level, peak, held;
        bool clip;
    } steps[] = {
        { 5, 1, 5, 5, 0, false },
        { 0x102, 1, 3, 5, 1, false }, // only the low three bits count
        { 4, 1, 0, 5, 2, false },
        { 5, 5, 23, 23, 0, false }, // capped at 23, not by a 7: no clip
        { 7, 1, 23, 23, 1, true },
        { 6, 1, 17, 23, 2, true }, // the clip stays until the meter is at 0
        { 6, 3, 0, 23, 5, false },
        { 7, 1, 7, 23, 6, false },
        { 1, 1, 8, 23, 7, false },
        { 0, 5, 8, 23, 12, false },
        { 0, 1, 8, 8, 0, false }, // the 13th update takes the level
        { 2, 1, 6, 8, 1, false },
    };
    RemoteDisplayDemo::Meter m;
    int step = 0;
    for (auto& s : steps)
    {
        SCOPED_TRACE(++step);
        for (int i = 0; i < s.times; ++i)
            m.update(s.value);
        EXPECT_EQ(m.level, s.level);
        EXPECT_EQ(m.peak, s.peak);
        EXPECT_EQ(m.held, s.held);
        EXPECT_EQ(m.clip, s.clip);
    }

    // The timecode rolls over at 24 frames and at midnight.
    RemoteDisplayDemo::Timecode tc;
    for (int i = 0; i < 24; ++i)
        tc.advance();
    EXPECT_EQ(std::tie(tc.hours, tc.minutes, tc.seconds, tc.frames), std::make_tuple(0, 0, 1, 0));
    tc = { 23, 59, 59, 23 };
    tc.advance();
    EXPECT_EQ(std::tie(tc.hours, tc.minutes, tc.seconds, tc.frames), std::make_tuple(0, 0, 0, 0));
}

namespace
{
/** Texts drawn since the last call; primitives: 1 clear, 2 a fill of six bytes, 3 six bytes and the text. */
std::vector<std::string> drawnTexts(Scripted<RemoteBoard>& board)
{
    std::vector<std::string> texts;
    for (auto& line : board.sent)
    {
        EXPECT_TRUE(line.startsWith("G")) << line;
        std::string b;
        for (int i = 1; i + 1 < line.length(); i += 2)
            b += (char) HardwareBoard::decodeHexByte(line.toRawUTF8() + i);
        for (size_t i = 0; i < b.size(); i += b[i] == 1 ? 1 : 6 + (b[i] == 3 ? (unsigned char) b[i + 5] : 0))
        {
            if (b[i] == 3 && i + 6 <= b.size())
                texts.push_back(b.substr(i + 6, (unsigned char) b[i + 5]));
            else if (b[i] != 1 && b[i] != 2)
            {
                ADD_FAILURE() << "bad primitive " << (int) b[i] << " in " << line;
                break;
            }
        }
    }
    board.clearSent();
    return texts;
}

/** For its lifetime the console reads `typed` as its standard input and prints to a file. */
class TypedAnswers
{
public:
    explicit TypedAnswers(const std::string& typed)
    {
        std::fwrite(typed.data(), 1, typed.size(), in);
        std::rewind(in);
        std::fflush(stdout);
        dup2(fileno(in), STDIN_FILENO);
        dup2(fileno(out), STDOUT_FILENO);
    }
    ~TypedAnswers()
    {
        std::fflush(stdout);
        dup2(savedIn, STDIN_FILENO);
        dup2(savedOut, STDOUT_FILENO);
        close(savedIn);
        close(savedOut);
        std::fclose(in);
        std::fclose(out);
        ConsoleInput::clearPending();
    }
    std::string printed()
    {
        std::fflush(stdout);
        std::string text(4096, 0);
        text.resize((size_t) pread(fileno(out), text.data(), text.size(), 0));
        return text;
    }

private:
    int savedIn = dup(STDIN_FILENO), savedOut = dup(STDOUT_FILENO);
    FILE* in = std::tmpfile();
    FILE* out = std::tmpfile();
};

/** One key of a board's menu in a fresh session over a recording board, with `typed` as the answers. */
struct KeyRun
{
    juce::StringArray sent;
    std::string printed;
};
using Press = std::function<KeyRun(char key, const std::string& typed)>;

template <class Board>
Press press(const BoardMenu& menu)
{
    return [&menu](char key, const std::string& typed) {
        Scripted<Board> board;
        auto session = menu.startSession(board);
        TypedAnswers io(typed);
        EXPECT_TRUE(session->handleKey(key)) << key;
        return KeyRun { board.sent, io.printed() };
    };
}

/** The answer lines of a key with `extreme` as its number `at` and 1 for the others. */
std::string answers(const std::string& fieldsPerLine, size_t at, const std::string& extreme)
{
    std::string typed;
    size_t field = 0;
    for (char count : fieldsPerLine)
    {
        for (int i = 0; i < count - '0'; ++i, ++field)
            typed += (i > 0 ? " " : "") + (field == at ? extreme : std::string("1"));
        typed += "\n";
    }
    return typed;
}
}

TEST(ConsoleDisplayDemo, KeysOpenSubScreensThatPauseTheAnimation)
{
    using Demo = RemoteDisplayDemo;
    RemoteDisplayDemo demo;
    Scripted<RemoteBoard> board;
    demo.begin(board);
    const auto texts = drawnTexts(board);
    for (const char* word : { "Back", "Play", "Storage", "Setup", "Options", Demo::characterSet })
        EXPECT_NE(std::count(texts.begin(), texts.end(), word), 0) << word;
    EXPECT_TRUE(demo.isRunning());

    const struct
    {
        uint32_t keys, rotor;
        int steps;
        std::vector<std::string> drawn;
        bool open;
    } events[] = {
        { Demo::keyTextEntry, 0, 0, { "Text entry", "Backspace" }, true },
        // The held key comes again with a rotor event: not a second press.
        { Demo::keyTextEntry, 9, 0, {}, true },
        { 0, 9, 3, {}, true },
        { Demo::keySelect, 9, 0, {}, true },
        { 0, 9, -1, {}, true },
        { Demo::keySelect, 9, 0, { "$#" }, true }, // characters 3 and 2 of the set
        { Demo::keyBackspace, 9, 0, { "$" }, true },
        { Demo::keyBack, 9, 0, { "Storage" }, false },
        { Demo::keyOptions, 9, 0, { "Contrast" }, true },
        { Demo::keyBack, 9, 0, {}, false },
    };
    int step = 0;
    for (auto& e : events)
    {
        SCOPED_TRACE(++step);
        demo.menuEvent(e.keys, e.rotor, e.steps);
        EXPECT_EQ(demo.subScreenOpen(), e.open);
        const auto now = drawnTexts(board);
        for (auto& text : e.drawn)
            EXPECT_NE(std::count(now.begin(), now.end(), text), 0) << text;
    }

    // The animation keeps its own clock and pauses under a sub-screen.
    demo.animate(3);
    EXPECT_TRUE(board.sent.isEmpty());
    demo.animate(4);
    EXPECT_EQ(drawnTexts(board), (std::vector<std::string> { "00:00:00:01" }));
    demo.animate(8);
    EXPECT_EQ(board.sent.size(), 2) << "timecode and meters";
    EXPECT_EQ(drawnTexts(board), (std::vector<std::string> { "00:00:00:02" }));
    demo.animate(50);
    EXPECT_EQ(board.sent.size(), 3) << "timecode, meters and the count-downs";
    board.clearSent();

    demo.menuEvent(Demo::keyOptions, 0, 0);
    board.clearSent();
    demo.animate(200);
    EXPECT_TRUE(board.sent.isEmpty());
    demo.menuEvent(0, 0, 0);
    demo.menuEvent(Demo::keyBack, 0, 0);
    board.clearSent();
    demo.animate(203);
    EXPECT_TRUE(board.sent.isEmpty()) << "no catching up on the time spent paused";
    demo.animate(204);
    EXPECT_EQ(drawnTexts(board), (std::vector<std::string> { "00:00:00:04" }));

    demo.end();
    EXPECT_FALSE(demo.isRunning());
    board.clearSent();
    demo.menuEvent(Demo::keyOptions, 0, 0);
    EXPECT_TRUE(board.sent.isEmpty()) << "no drawing once the demonstration is over";
}

TEST(ConsoleAnswers, ExtremeNumbersNeitherOverflowNorWrapAndTextReachesTheBoardAsItsBytes)
{
    const LogCapture quiet;
    // After each key, the numbers on each answer line ("S10": a number, then an empty line).
    const std::pair<Press, const char*> menus[] = {
        { press<DiskpackBoard>(diskpackMenu), "A1 B1 E1 G11 L4 Q1 R1 S1 T1 W1 X1" },
        { press<ChassisBoard>(chassisMenu), "A1 C4 E1 F2 H1 I1 L2 P2 R1 S1 V1" },
        { press<TransferBoard>(transferMenu), "D1 E1 F1 H1 L2 P1 R2 S10 T1 W1 X2 Y1" },
        { press<DesktopBoard>(desktopMenu), "A1 B1 D1 F1 H1 L2 N3 P1 W1 X1" },
        { press<XferDualBoard>(xferDualMenu), "A2 B1 D2 F1 G1 H1 I1 J2 L6 M1 N3 P2 R1 T1 U1 V1 W1 X2 Y1" },
        { press<RemoteBoard>(remoteMenu), "A1 C1 F1 Q1 R4" },
    };
    // Beyond an int a number counts as the nearest one.
    const std::pair<const char*, const char*> sameAs[] = {
        { "4294967296", "2147483647" },
        { "-99999999999", "-2147483648" },
    };
    for (auto& [pressKey, keys] : menus)
    {
        for (auto& token : juce::StringArray::fromTokens(keys, false))
        {
            const char key = (char) token[0];
            const std::string lines = token.substring(1).toStdString();
            int fields = 0;
            for (char c : lines)
                fields += c - '0';
            for (int at = 0; at < fields; ++at)
            {
                SCOPED_TRACE(std::string(keys) + ": " + key + " number " + std::to_string(at));
                const auto reference = pressKey(key, answers(lines, (size_t) at, "1"));
                const auto largest = pressKey(key, answers(lines, (size_t) at, "2147483647"));
                // Checked by the sanitizers: nothing to compare it with.
                pressKey(key, answers(lines, (size_t) at, "-2147483648"));
                // A wrapped packed argument goes out negative, without its digits: refused or sent as usual.
                if (!largest.sent.isEmpty())
                {
                    ASSERT_EQ(reference.sent.size(), largest.sent.size());
                    for (int i = 0; i < reference.sent.size(); ++i)
                        EXPECT_EQ(reference.sent[i].length() > 1, largest.sent[i].length() > 1)
                            << reference.sent[i] << " / " << largest.sent[i];
                }
                for (auto& [typed, nearest] : sameAs)
                {
                    const auto beyond = pressKey(key, answers(lines, (size_t) at, typed));
                    const auto within = pressKey(key, answers(lines, (size_t) at, nearest));
                    EXPECT_EQ(within.sent, beyond.sent) << typed;
                    EXPECT_EQ(within.printed, beyond.printed) << typed;
                }
            }
        }
    }

    // Typed text reaches the board as its bytes.
    const auto diskpack = press<DiskpackBoard>(diskpackMenu), transfer = press<TransferBoard>(transferMenu);
    const struct
    {
        const Press& press;
        char key;
        std::string typed;
        std::vector<std::string> sent;
    } cases[] = {
        { diskpack, 'D', "caf\xE9\n", { "Dcaf\xE9" } },
        { diskpack, 'W', "3 \xC3\xA9\n", { "P03", "W \xC3\xA9" } },
        { press<RemoteBoard>(remoteMenu), 'M', "\xC3\xA9\xE9\n", { "M\xC3\xA9\xE9" } },
        { transfer, 'S', "2\n500605BCDA10000\xE9\n", { "S2500605BCDA10000\xE9" } },
        // Sixteen characters but seventeen bytes: not an address.
        { transfer, 'S', "2\n500605BCDA10000\xC3\xA9\n", {} },
    };
    for (auto& c : cases)
    {
        std::vector<std::string> sent;
        for (auto& line : c.press(c.key, c.typed).sent)
            sent.emplace_back(line.toRawUTF8());
        EXPECT_EQ(c.sent, sent) << c.typed;
    }
}
