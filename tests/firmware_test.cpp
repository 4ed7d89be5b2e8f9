#include "firmware/XBoot2FWUpdater.h"
#include "firmware/XBootFWUpdater.h"
#include "support/JucePrinters.h"
#include "support/PtyPeer.h"
#include "support/TestBoard.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <future>
#include <termios.h>
#include <unistd.h>

namespace
{
using Bytes = std::vector<unsigned char>;

// Worked out here bit by bit rather than with zlib, so that a mistake in how
// the updater calls zlib cannot cancel out in the test.
uint32_t crc32Of(const Bytes& bytes)
{
    uint32_t crc = 0xFFFFFFFFu;
    for (auto b : bytes)
    {
        crc ^= b;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1u) ? 0xEDB88320u : 0u);
    }
    return ~crc;
}

std::string hexOf(const Bytes& bytes, bool upper)
{
    const char* digits = upper ? "0123456789ABCDEF" : "0123456789abcdef";
    std::string s;
    for (auto b : bytes)
    {
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
}

Bytes be32(uint32_t v)
{
    return { (unsigned char) (v >> 24), (unsigned char) (v >> 16), (unsigned char) (v >> 8), (unsigned char) v };
}

Bytes operator+(Bytes a, const Bytes& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

Bytes pattern(size_t n, int seed)
{
    Bytes b(n);
    for (size_t i = 0; i < n; ++i)
        b[i] = (unsigned char) (i * 7 + (size_t) seed);
    return b;
}

/** An XBoot2 request line as the bootloader expects it: "*", request
    character, data in lower-case hex, CRC-32 of the raw bytes. */
juce::String xboot2Request(char request, const Bytes& data)
{
    const auto crc = crc32Of(Bytes { (unsigned char) request } + data);
    return "*" + juce::String(std::string(1, request) + hexOf(data, false) + hexOf(be32(crc), false));
}

/** A board that is open and answers from a script. */
class OpenScriptedBoard : public ScriptedTestBoard
{
public:
    explicit OpenScriptedBoard(int mcuVariant = 0) : variant(mcuVariant) { isOpen = true; }
    ~OpenScriptedBoard() override { isOpen = false; }
    int getMcuVariant() const override { return variant; }
    void setOpen(bool open) { isOpen = open; }

private:
    int variant;
};
}

//==============================================================================
TEST(FirmwareGeometry, FollowsTheMcuVariant)
{
    OpenScriptedBoard small(0), large(1);
    XBootFWUpdater a(&small);
    XBoot2FWUpdater b(&large);
    EXPECT_EQ(256, a.getFlashPageSize());
    EXPECT_EQ(0x1E000, a.getAppSectionSize());
    EXPECT_EQ(0x20000, a.getTotalProgramSize());
    EXPECT_EQ(512, b.getFlashPageSize());
    EXPECT_EQ(0x20000, b.getAppSectionSize());
    EXPECT_EQ(0x22000, b.getTotalProgramSize());
}

TEST(FirmwareGeometryDeathTest, AnUnknownVariantIsFatal)
{
    OpenScriptedBoard odd(2);
    XBootFWUpdater up(&odd);
    EXPECT_DEATH(up.getFlashPageSize(), "");
}

//==============================================================================
TEST(XBoot2, RequestsCarryLowerCaseHexAndTheCrcOfTheRawBytes)
{
    OpenScriptedBoard board;
    XBoot2FWUpdater up(&board);
    const auto page = pattern(256, 0xA5);
    juce::String message;
    ASSERT_TRUE(up.startFirmwareUpdate());
    ASSERT_TRUE(up.eraseApplicationSection());
    ASSERT_TRUE(up.programApplicationPage(page.data(), 0x01AB, message));
    EXPECT_TRUE(message.isEmpty());
    // The end carries only the two known outcomes; anything else goes as 0.
    for (auto status : { firmwareStatusUnknown, firmwareStatusSucceeded, firmwareStatusVerifyFailed,
                         firmwareStatusAborted, (FirmwareStatus) 200 })
        ASSERT_TRUE(up.endFirmwareUpdate(status));
    const juce::StringArray expected { "%UP", xboot2Request('~', {}), xboot2Request(':', Bytes { 0x01, 0xAB } + page),
                                       xboot2Request('#', { 0 }), xboot2Request('#', { 1 }), xboot2Request('#', { 2 }),
                                       xboot2Request('#', { 0 }), xboot2Request('#', { 0 }) };
    EXPECT_EQ(expected, board.sent);
    EXPECT_FALSE(board.expected[2]);
}

TEST(XBoot2, PageWriteRetriesFiveTimesAndCountsTheFailures)
{
    OpenScriptedBoard board;
    XBoot2FWUpdater up(&board);
    const auto page = pattern(256, 3);
    juce::String message;

    for (int i = 0; i < 4; ++i)
        board.willReply("N", false);
    board.willReply("OK");
    EXPECT_TRUE(up.programApplicationPage(page.data(), 7, message));
    EXPECT_EQ(juce::String("wrote page with 4 retries"), message);
    ASSERT_EQ(5, board.sent.size());
    for (auto& line : board.sent)
        EXPECT_EQ(board.sent[0], line);

    board.clearSent();
    for (int i = 0; i < 6; ++i)
        board.willFail();
    EXPECT_FALSE(up.programApplicationPage(page.data(), 7, message));
    EXPECT_EQ(juce::String("failed writing page"), message);
    EXPECT_EQ(5, board.sent.size());
    board.replies.clear();
    // The message of the last call does not leak into the next.
    EXPECT_TRUE(up.programApplicationPage(page.data(), 7, message));
    EXPECT_TRUE(message.isEmpty());
}

TEST(XBoot2, PageReadChecksTheCrcButKeepsTheData)
{
    OpenScriptedBoard board(1);
    XBoot2FWUpdater up(&board);
    const auto page = pattern(512, 9);
    const auto crc = crc32Of(page);
    Bytes data(512);
    juce::String message;

    board.willReply("R" + juce::String(hexOf(page + be32(crc), true)));
    ASSERT_TRUE(up.readApplicationPage(data.data(), 0x0102, message));
    EXPECT_EQ(page, data);
    EXPECT_TRUE(message.isEmpty());
    EXPECT_EQ(xboot2Request('$', { 0x01, 0x02 }), board.lastSent());
    EXPECT_TRUE(board.expected[0]);

    std::fill(data.begin(), data.end(), 0);
    board.willReply("R" + juce::String(hexOf(page + be32(crc ^ 0x10), false)));
    EXPECT_FALSE(up.readApplicationPage(data.data(), 0x0102, message));
    EXPECT_EQ(page, data);
    EXPECT_EQ(juce::String::formatted("Verify CRC fail: expected 0x%08X actual 0x%08X\n", crc, crc ^ 0x10), message);

    // Too short a response is a failed exchange, not a CRC mismatch.
    board.willReply("R" + juce::String(hexOf(page, true)));
    EXPECT_FALSE(up.readApplicationPage(data.data(), 0x0102, message));
    EXPECT_EQ(juce::String("Failed sending verify command"), message);
}

TEST(XBoot2, NothingIsSentToAClosedBoard)
{
    OpenScriptedBoard board;
    board.setOpen(false);
    XBoot2FWUpdater up(&board);
    Bytes page(256);
    juce::String message = "stale";
    EXPECT_FALSE(up.startFirmwareUpdate());
    EXPECT_FALSE(up.eraseApplicationSection());
    EXPECT_FALSE(up.programApplicationPage(page.data(), 0, message));
    EXPECT_TRUE(message.isEmpty());
    EXPECT_FALSE(up.readApplicationPage(page.data(), 0, message));
    EXPECT_FALSE(up.endFirmwareUpdate(firmwareStatusSucceeded));
    EXPECT_TRUE(board.sent.isEmpty());
}

//==============================================================================
namespace
{
/** The pty keeps whatever speed it was given; flipping it makes the next
    configuration of the port a real change (a pty drops the parity flag and
    then refuses an unchanged 8E1 setting). */
void flipSpeed(const std::string& path)
{
    const int fd = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
    ASSERT_GE(fd, 0);
    termios tio;
    ASSERT_EQ(0, tcgetattr(fd, &tio));
    const auto next = cfgetospeed(&tio) == B4800 ? B9600 : B4800;
    cfsetispeed(&tio, next);
    cfsetospeed(&tio, next);
    ASSERT_EQ(0, tcsetattr(fd, TCSANOW, &tio));
    ::close(fd);
}

struct Outcome
{
    bool ok;
    juce::String message;
};

/** A serial board whose bootloader is played by the test on the far end of a pty. */
struct XBoot : ::testing::Test
{
    TempDevDir dev;
    PtyPeer peer { dev.path(), "ttyUSB0" };
    TestBoard board;
    XBootFWUpdater up { &board };

    void SetUp() override
    {
        peer.serve([](const std::string& line) -> std::vector<std::string> {
            return { line == "?" ? "Test board V1.0" : line == "@" ? "R0" : "OK" };
        });
        ASSERT_TRUE(board.findAndOpen(-1));
        ASSERT_TRUE(up.startFirmwareUpdate());
        peer.stopServing();
    }

    std::future<Outcome> program(const Bytes& page, int number)
    {
        return std::async(std::launch::async, [this, page, number] {
            Outcome o;
            o.ok = up.programApplicationPage(page.data(), number, o.message);
            return o;
        });
    }

    std::future<Outcome> read(Bytes& into, int number)
    {
        return std::async(std::launch::async, [this, &into, number] {
            Outcome o;
            o.ok = up.readApplicationPage(into.data(), number, o.message);
            return o;
        });
    }

    std::string take(size_t n, int timeoutMs = 5000)
    {
        std::string bytes;
        EXPECT_TRUE(peer.readBytes(bytes, n, timeoutMs));
        return bytes;
    }

    /** A page request with its checksum, as the bootloader answers it. */
    static std::string pageAnswer(const Bytes& page, int number)
    {
        int sum = (number >> 8) + (number & 0xFF);
        for (auto b : page)
            sum += b;
        return hexOf(page, true) + hexOf({ (unsigned char) -sum }, true);
    }
};
}

TEST_F(XBoot, PageWritesAreHexWithAChecksumAndRetryRefusalsButNothingElse)
{
    // The answers to each sending of the page; "" is none at all (one second,
    // then the code of a timeout).
    const struct
    {
        std::vector<std::string> answers;
        bool ok;
        const char* message;
    } cases[] = { { { "Y" }, true, "" },
                  { { "N", "N", "N", "N", "Y" }, true, "wrote page with 4 retries" },
                  { { "N", "N", "N", "N", "N" }, false, "failed writing page (NACK)" },
                  { { "X" }, false, "failed writing page (88)" },
                  { { "" }, false, "failed writing page (-1)" } };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.message);
        auto done = program(Bytes(256, 0), 0x0102);
        const auto first = take(519);
        EXPECT_EQ(":0102" + std::string(512, '0') + "FD", first);
        for (const auto& answer : c.answers)
        {
            if (&answer != &c.answers.front())
            {
                EXPECT_EQ(first, take(519));
            }
            peer.write(answer);
        }
        const auto o = done.get();
        EXPECT_EQ(c.ok, o.ok);
        EXPECT_EQ(juce::String(c.message), o.message);
    }
    std::string extra;
    EXPECT_FALSE(peer.readBytes(extra, 1, 200));
}

TEST_F(XBoot, ATimedOutCharacterIsAZeroDigitNotAnEarlyStop)
{
    // Page and number chosen so that the checksum is 00: the two characters of
    // the checksum never come, read as zero digits, and the page verifies.
    Bytes page(256, 0);
    page[0] = 0xFF;
    page[1] = 0x01;
    Bytes data(256);
    auto done = read(data, 0);
    take(5);
    peer.write(hexOf(page, true));
    const auto o = done.get();
    EXPECT_TRUE(o.ok) << o.message;
    EXPECT_EQ(page, data);
}

TEST_F(XBoot, ANulOnTheLineReopensThePortAndRepeatsTheRequest)
{
    // What follows the NUL must not be taken for the answer to the repeat.
    const auto page = pattern(256, 0x44);
    Bytes data(256);
    auto done = read(data, 0x0010);
    EXPECT_EQ("$0010", take(5));
    flipSpeed(peer.linkPath());
    peer.write(pageAnswer(page, 0x0010).substr(0, 41) + std::string(1, '\0') + "ABCDEF");
    EXPECT_EQ("$0010", take(5, 10000));
    peer.write(pageAnswer(page, 0x0010));
    EXPECT_TRUE(done.get().ok);
    EXPECT_EQ(page, data);
    EXPECT_TRUE(board.boardIsOpen());
    EXPECT_FALSE(board.isThreadRunning());
}

TEST_F(XBoot, NothingIsSentOnceTheBoardIsClosed)
{
    board.closeBoard(false);
    Bytes page(256);
    juce::String message;
    EXPECT_FALSE(up.programApplicationPage(page.data(), 0, message));
    EXPECT_FALSE(up.readApplicationPage(page.data(), 0, message));
    EXPECT_FALSE(up.endFirmwareUpdate(firmwareStatusSucceeded));
    EXPECT_FALSE(up.startFirmwareUpdate());
    EXPECT_TRUE(up.eraseApplicationSection());
}

//==============================================================================
TEST(FirmwareClose, ARestartingBoardIsClosedWithoutItsClosingCommand)
{
    // Any board class whose close-time duty is a command, as the chassis's is.
    struct CommitsOnClose : TestBoard
    {
        ~CommitsOnClose() override { closeBoard(false); }
        void closingBoard() override { sendCommand('W', -1, 2); }
    };
    TempDevDir dev;
    PtyPeer peer(dev.path(), "ttyUSB0");
    peer.serve([](const std::string& line) -> std::vector<std::string> {
        return { line == "?" ? "Test board V1.0" : line == "@" ? "R0" : "OK" };
    });
    CommitsOnClose board;
    // Only that one close goes without: the next takes its command again.
    for (const bool restarting : { true, false })
    {
        flipSpeed(peer.linkPath());
        ASSERT_TRUE(board.findAndOpen(-1));
        if (restarting)
            board.closeBoardWithoutClosingCommand();
        else
            board.closeBoard(false);
        EXPECT_FALSE(board.boardIsOpen());
    }
    const std::vector<std::string> expected { "?", "@", "?", "@", "W" };
    ASSERT_TRUE(peer.waitForReceived(expected.size()));
    EXPECT_EQ(expected, peer.received());
}
