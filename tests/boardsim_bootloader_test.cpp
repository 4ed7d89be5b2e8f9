// The emulated bootloader on its own: what it accepts, what it answers, and the
// hand-over to and from every board's application (its faults are used up by
// the avrflash runs against it).
#include "boardsim/personality.h"
#include "boardsim/personality_bootloader.h"
#include "support/EmulatedBoard.h"
#include "support/EmulatorTestKit.h"
#include "support/SimProcess.h"

#include <gtest/gtest.h>

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

std::string readAnswer(int page, const std::vector<unsigned char>& data)
{
    unsigned sum = static_cast<unsigned>((page >> 8) + (page & 0xFF));
    for (auto b : data)
        sum += b;
    auto withSum = data;
    withSum.push_back(static_cast<unsigned char>(-sum));
    return hex(withSum);
}

/** A board of type `letter` with id 3, running its application or waiting
    in its bootloader. */
struct Emulated : EmulatedBoard
{
    explicit Emulated(char letter, bool inBootloader = false) : EmulatedBoard(letter, "V1.00", 3, inBootloader) {}
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
    Emulated board('x', true);
    const auto page = pageBytes(7);
    const std::string requests = writeRequest(2, page) + "$0002" + "?\n" + writeRequest(3, page, 2) + "#?\n";
    const std::string expected = "Y" + readAnswer(2, page) + "(bootloader) Transfer Station board V1.00\r\n" + "N"
                                 + "Transfer Station board V1.00\r\n";
    EXPECT_EQ(expected, board.feed(requests, 1));

    Emulated again('x', true);
    EXPECT_EQ(expected, again.feed(requests, 97));
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
