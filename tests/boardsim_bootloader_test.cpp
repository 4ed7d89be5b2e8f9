// The emulated bootloader on its own: what it accepts, what it answers, and the
// hand-over to and from every board's application (its faults are used up by
// the avrflash runs against it).
#include "boardsim/faults.h"
#include "boardsim/personality.h"
#include "boardsim/personality_bootloader.h"
#include "support/EmulatorTestKit.h"
#include "support/SimProcess.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cctype>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

using namespace boardsim;
using emutest::hex;

namespace
{
std::vector<unsigned char> pageBytes(int seed)
{
    std::vector<unsigned char> page(BootloaderState::kPageSize);
    for (std::size_t i = 0; i < page.size(); ++i)
        page[i] = static_cast<unsigned char>(i * 3 + static_cast<std::size_t>(seed));
    return page;
}

/** ":" PPPP DATA CC with the checksum that zeroes the sum, plus `delta`. */
std::string writeRequest(int page, const std::vector<unsigned char>& data, int delta = 0)
{
    std::vector<unsigned char> body { static_cast<unsigned char>(page >> 8), static_cast<unsigned char>(page) };
    body.insert(body.end(), data.begin(), data.end());
    unsigned sum = 0;
    for (auto b : body)
        sum += b;
    body.push_back(static_cast<unsigned char>(-sum + static_cast<unsigned>(delta)));
    return ":" + hex(body);
}

/** What "$" PPPP reads back: the page's bytes and the same checksum as a write of them. */
std::string readAnswer(int page, const std::vector<unsigned char>& data) { return writeRequest(page, data).substr(5); }

/** A board of type `letter` with id 3, driven without a pty, handing over to its next personality when told. */
struct Emulated
{
    std::unique_ptr<Personality> personality;
    Faults faults;

    explicit Emulated(char letter, bool inBootloader = false)
    {
        BoardInfo info(letter, 3, "V1.00");
        info.inBootloader = inBootloader;
        personality = makePersonality(info);
    }

    /** What the board sends back for `bytes` fed `chunk` at a time: raw to a bootloader, lines to an application. */
    std::string feed(const std::string& bytes, std::size_t chunk = 4096)
    {
        std::string sent;
        for (std::size_t at = 0; at < bytes.size();)
        {
            const std::size_t n = std::min(chunk, bytes.size() - at);
            Replier r;
            std::size_t used = n;
            if (personality->takesBytes())
                used = personality->receive(bytes.data() + at, n, faults, r).consumed;
            else if (const auto nl = bytes.find('\n', at); nl != std::string::npos)
            {
                used = nl - at + 1;
                personality->handle(bytes.substr(at, nl - at), r);
            }
            for (auto& item : r.items())
                sent += item.kind == Replier::Kind::Raw ? item.bytes : item.bytes + "\r\n";
            if (auto next = r.takeSuccessor())
                personality = std::move(next);
            at += used;
        }
        return sent;
    }
};
}

TEST(Bootloader, EveryBoardHandsOverOnUpAndComesBackOnHash)
{
    for (char letter : knownBoardLetters())
    {
        Emulated board(letter);
        ASSERT_FALSE(board.personality->takesBytes()) << letter;
        EXPECT_EQ("OK\r\n", board.feed("%UP\n")) << letter;
        ASSERT_TRUE(board.personality->takesBytes()) << letter;
        EXPECT_EQ("(bootloader) " + identityForLetter(letter) + " V1.00\r\n", board.feed("?\n")) << letter;
        EXPECT_EQ("R3\r\nOK\r\nN\r\n", board.feed("@\n%UP\n!\n")) << letter;
        EXPECT_EQ("", board.feed("#"));
        EXPECT_FALSE(board.personality->takesBytes()) << letter;
        EXPECT_EQ(identityForLetter(letter) + " V1.00\r\n", board.feed("?\n")) << letter;
    }
}

TEST(Bootloader, WritesAreCheckedAndTheFlashOutlivesARestart)
{
    Emulated board('d');
    board.feed("%UP\n");
    const auto page = pageBytes(1);
    EXPECT_EQ("Y", board.feed(writeRequest(0x01DF, page)));          // the last application page
    EXPECT_EQ("N", board.feed(writeRequest(0x01E0, page)));          // the bootloader's own flash
    EXPECT_EQ("N", board.feed(writeRequest(0x0005, page, 1)));       // wrong checksum
    std::string lower = writeRequest(0x0005, pageBytes(0x0A));
    for (auto& c : lower)
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    EXPECT_EQ("N", board.feed(lower));                               // hex is upper case
    EXPECT_EQ(readAnswer(0x0005, std::vector<unsigned char>(256, 0xFF)), board.feed("$0005"));

    // Restart into the application and back: the page is still there.
    board.feed("#");
    board.feed("%UP\n");
    EXPECT_EQ(readAnswer(0x01DF, page), board.feed("$01DF"));
    // Beyond the application section the bootloader reads as erased.
    EXPECT_EQ(readAnswer(0x01E0, std::vector<unsigned char>(256, 0xFF)), board.feed("$01E0"));
}

TEST(Bootloader, RequestsMayArriveInAnyPieces)
{
    const auto page = pageBytes(7);
    const std::string requests = writeRequest(2, page) + "$0002" + "?\n" + writeRequest(3, page, 2) + "#?\n";
    const std::string expected = "Y" + readAnswer(2, page) + "(bootloader) Transfer Station board V1.00\r\n" + "N"
                                 + "Transfer Station board V1.00\r\n";
    for (std::size_t chunk : {1, 97})
        EXPECT_EQ(expected, Emulated('x', true).feed(requests, chunk)) << chunk;
}

TEST(Bootloader, APacedLineHoldsTheAnswerUntilTheRequestHasCrossed)
{
    emutest::TempDir dir;
    SimProcess sim(dir.path, { "--board", "d", "--bootloader", "--name", "B", "--fault", "baud=19200" });
    ASSERT_TRUE(sim.isReady());
    emutest::Stream port(::open((dir.path + "/tty.usbserial-B").c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK));
    termios tio {};
    ASSERT_EQ(0, tcgetattr(port.fd, &tio));
    cfmakeraw(&tio);
    ASSERT_EQ(0, tcsetattr(port.fd, TCSANOW, &tio));

    const auto t0 = std::chrono::steady_clock::now();
    ASSERT_TRUE(port.write(writeRequest(1, pageBytes(2))));
    EXPECT_EQ("Y", port.bytes(1));
    // 519 characters of 11 bits at 19200 baud take 297 ms on a real line,
    // however fast the host wrote them.
    EXPECT_GE(std::chrono::steady_clock::now() - t0, std::chrono::milliseconds(297));
}
