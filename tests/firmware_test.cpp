#include "firmware/XBoot2FWUpdater.h"
#include "firmware/XBootFWUpdater.h"
#include "support/JucePrinters.h"
#include "support/PtyPeer.h"
#include "support/TestBoard.h"

#include <gtest/gtest.h>

#include <future>
#include <numeric>
#include <zlib.h>

namespace
{
using Bytes = std::vector<unsigned char>;

std::string hexOf(const Bytes& bytes, bool upper = true)
{
    const auto hex = juce::String::toHexString(bytes.data(), (int) bytes.size(), 0);
    return (upper ? hex.toUpperCase() : hex).toStdString();
}

uint32_t crcOf(const Bytes& bytes) { return (uint32_t) crc32(0, bytes.data(), (uInt) bytes.size()); }

/** An XBoot2 request line: "*", request character, data in lower-case hex, CRC-32 of the raw bytes. */
juce::String xboot2Request(char request, const Bytes& data)
{
    Bytes raw { (unsigned char) request };
    raw.insert(raw.end(), data.begin(), data.end());
    return "*" + juce::String::charToString(request) + hexOf(data, false) + juce::String::formatted("%08x", crcOf(raw));
}

struct OpenScriptedBoard : ScriptedTestBoard
{
    explicit OpenScriptedBoard(int mcuVariant = 0) : variant(mcuVariant) { isOpen = true; }
    ~OpenScriptedBoard() override { isOpen = false; }
    int getMcuVariant() const override { return variant; }
    void setOpen(bool open) { isOpen = open; }
    const int variant;
};

std::vector<std::string> discovery(const std::string& line)
{
    return { line == "?" ? "Test board V1.0" : line == "@" ? "R0" : "OK" };
}

/** Any board class whose close-time duty is a command, as the chassis's is. */
struct CommitsOnClose : TestBoard
{
    ~CommitsOnClose() override { closeBoard(false); }
    void closingBoard() override { sendCommand('W', -1, 2); }
};

/** A serial board whose bootloader is played by the test on the far end of a pty. */
struct XBoot : ::testing::Test
{
    TempDevDir dev;
    PtyPeer peer { dev.path(), "ttyUSB0" };
    CommitsOnClose board;
    XBootFWUpdater up { &board };
    Bytes page = Bytes(256, 0), data = Bytes(256);

    void SetUp() override
    {
        peer.serve(discovery);
        ASSERT_TRUE(board.findAndOpen(-1));
        ASSERT_TRUE(up.startFirmwareUpdate());
        peer.stopServing();
    }
    void TearDown() override { board.closeBoardWithoutClosingCommand(); }

    /** Writes `page` (or reads into `data`) on a thread of its own while the test plays the bootloader. */
    std::future<std::pair<bool, juce::String>> later(bool write, int number)
    {
        return std::async(std::launch::async, [this, write, number] {
            juce::String message;
            const bool ok = write ? up.programApplicationPage(page.data(), number, message)
                                  : up.readApplicationPage(data.data(), number, message);
            return std::make_pair(ok, message);
        });
    }

    std::string take(size_t n, int timeoutMs = 5000)
    {
        std::string bytes;
        EXPECT_TRUE(peer.readBytes(bytes, n, timeoutMs));
        return bytes;
    }
};
}

TEST(FirmwareGeometryDeathTest, FollowsTheMcuVariantAndAnUnknownOneIsFatal)
{
    OpenScriptedBoard small(0), large(1), odd(2);
    const XBootFWUpdater a(&small), c(&odd);
    const XBoot2FWUpdater b(&large);
    const std::vector<int> got { a.getFlashPageSize(), a.getAppSectionSize(), a.getTotalProgramSize(),
                                 b.getFlashPageSize(), b.getAppSectionSize(), b.getTotalProgramSize() };
    EXPECT_EQ((std::vector<int> { 256, 0x1E000, 0x20000, 512, 0x20000, 0x22000 }), got);
    EXPECT_DEATH(c.getFlashPageSize(), "");
}

TEST(XBoot2, RequestsCarryLowerCaseHexAndTheCrcOfTheRawBytes)
{
    OpenScriptedBoard board;
    XBoot2FWUpdater up(&board);
    Bytes page(256);
    std::iota(page.begin(), page.end(), (unsigned char) 0xA5);
    juce::String message = "stale";
    ASSERT_TRUE(up.startFirmwareUpdate());
    ASSERT_TRUE(up.eraseApplicationSection());
    ASSERT_TRUE(up.programApplicationPage(page.data(), 0x01AB, message));
    EXPECT_TRUE(message.isEmpty());
    // The end carries only the two known outcomes; anything else goes as 0.
    for (auto status : { firmwareStatusUnknown, firmwareStatusSucceeded, firmwareStatusVerifyFailed,
                         firmwareStatusAborted, (FirmwareStatus) 200 })
        ASSERT_TRUE(up.endFirmwareUpdate(status));
    page.insert(page.begin(), { 0x01, 0xAB });
    const juce::StringArray expected { "%UP", xboot2Request('~', {}), xboot2Request(':', page),
                                       xboot2Request('#', { 0 }), xboot2Request('#', { 1 }), xboot2Request('#', { 2 }),
                                       xboot2Request('#', { 0 }), xboot2Request('#', { 0 }) };
    EXPECT_EQ(expected, board.sent);
    EXPECT_FALSE(board.expected[2]);

    // Nothing goes to a closed board, and no message survives from before.
    board.setOpen(false);
    board.clearSent();
    message = "stale";
    EXPECT_FALSE(up.startFirmwareUpdate() || up.eraseApplicationSection() || up.endFirmwareUpdate(firmwareStatusAborted)
                 || up.readApplicationPage(page.data(), 0, message)
                 || up.programApplicationPage(page.data(), 0, message));
    EXPECT_TRUE(message.isEmpty());
    EXPECT_TRUE(board.sent.isEmpty());
}

TEST(XBoot2, PageWritesAreRetriedFiveTimesAndReadsCheckTheCrcButKeepTheData)
{
    OpenScriptedBoard board(1);
    XBoot2FWUpdater up(&board);
    Bytes page(512);
    std::iota(page.begin(), page.end(), (unsigned char) 9);
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
    for (int i = 0; i < 5; ++i)
        board.willFail();
    EXPECT_FALSE(up.programApplicationPage(page.data(), 7, message));
    EXPECT_EQ(juce::String("failed writing page"), message);
    EXPECT_EQ(5, board.sent.size());

    const auto crc = crcOf(page);
    Bytes data(512);
    board.willReply("R" + juce::String(hexOf(page)) + juce::String::formatted("%08X", crc));
    ASSERT_TRUE(up.readApplicationPage(data.data(), 0x0102, message));
    EXPECT_EQ(page, data);
    EXPECT_TRUE(message.isEmpty());
    EXPECT_EQ(xboot2Request('$', { 0x01, 0x02 }), board.lastSent());
    EXPECT_TRUE(board.expected.getLast());

    std::fill(data.begin(), data.end(), 0);
    board.willReply("R" + juce::String(hexOf(page, false)) + juce::String::formatted("%08x", crc ^ 0x10));
    EXPECT_FALSE(up.readApplicationPage(data.data(), 0x0102, message));
    EXPECT_EQ(page, data);
    EXPECT_EQ(juce::String::formatted("Verify CRC fail: expected 0x%08X actual 0x%08X\n", crc, crc ^ 0x10), message);
    // Too short a response is a failed exchange, not a CRC mismatch.
    board.willReply("R" + juce::String(hexOf(page)));
    EXPECT_FALSE(up.readApplicationPage(data.data(), 0x0102, message));
    EXPECT_EQ(juce::String("Failed sending verify command"), message);
}

// Refusals ("N") are retried; the avrflash runs against the emulated bootloader count the repeats.
TEST_F(XBoot, APageWriteIsHexWithAChecksumAndNeitherAWrongAnswerNorNoneIsRetried)
{
    // "" is no answer at all: one second, then the code of a timeout.
    const std::tuple<std::string, bool, const char*> cases[] = {
        { "Y", true, "" }, { "X", false, "failed writing page (88)" }, { "", false, "failed writing page (-1)" }
    };
    for (const auto& [answer, ok, message] : cases)
    {
        SCOPED_TRACE(message);
        auto done = later(true, 0x0102);
        EXPECT_EQ(":0102" + std::string(512, '0') + "FD", take(519));
        peer.write(answer);
        EXPECT_EQ(std::make_pair(ok, juce::String(message)), done.get());
    }
    std::string extra;
    EXPECT_FALSE(peer.readBytes(extra, 1, 200));
}

TEST_F(XBoot, ANulOnTheLineReopensThePortAndRepeatsTheReadWhereATimeOutIsAZeroDigit)
{
    // The page sums to zero with its number: its checksum 00, never sent, reads as zero digits, not an end.
    page.assign(256, 0x11);
    page[0] = 0x01;
    auto done = later(false, 0x0010);
    EXPECT_EQ("$0010", take(5));
    // What follows the NUL must not be taken for the answer to the repeat.
    peer.write(hexOf(page).substr(0, 41) + std::string(1, '\0') + "ABCDEF");
    EXPECT_EQ("$0010", take(5, 10000));
    peer.write(hexOf(page));
    const auto [ok, message] = done.get();
    EXPECT_TRUE(ok) << message;
    EXPECT_EQ(juce::String("Read page with 1 retries"), message);
    EXPECT_EQ(page, data);
    EXPECT_TRUE(board.boardIsOpen());
    EXPECT_FALSE(board.isThreadRunning());
}

TEST_F(XBoot, ARestartingBoardIsClosedWithoutItsClosingCommandButTheNextCloseHasItAndThenNothingIsSent)
{
    peer.serve(discovery);
    board.closeBoardWithoutClosingCommand();
    EXPECT_FALSE(board.boardIsOpen());
    ASSERT_TRUE(board.findAndOpen(-1));
    board.closeBoard(false);
    const std::vector<std::string> expected { "?", "@", "%UP", "?", "@", "W" };
    ASSERT_TRUE(peer.waitForReceived(expected.size()));
    EXPECT_EQ(expected, peer.received());
    // Nothing is sent once the board is closed.
    juce::String message;
    EXPECT_FALSE(up.programApplicationPage(page.data(), 0, message) || up.readApplicationPage(data.data(), 0, message)
                 || up.endFirmwareUpdate(firmwareStatusSucceeded) || up.startFirmwareUpdate());
    EXPECT_TRUE(up.eraseApplicationSection());
    EXPECT_EQ(expected, peer.received());
}
