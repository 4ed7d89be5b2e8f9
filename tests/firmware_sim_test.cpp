#include "FirmwareImage.h"
#include "support/JucePrinters.h"
#include "support/PtyPeer.h"
#include "support/SimProcess.h"

#include <gtest/gtest.h>

namespace
{
constexpr int pageSize = 256;

juce::MemoryBlock imageOf(int bytes, int seed)
{
    juce::MemoryBlock b((size_t) bytes);
    for (int i = 0; i < bytes; ++i)
        b[i] = (char) ((i * 29 + seed) ^ (i >> 8));
    return b;
}

ProgramRun avrflash(const std::string& args) { return runProgram(std::string(AVRTEST_BIN_DIR) + "/avrflash " + args); }

struct Avrflash : ::testing::Test
{
    TempDevDir dev;
    juce::File scratch = juce::File::createTempFile("avrflash-e2e");
    Avrflash() { scratch.createDirectory(); }
    ~Avrflash() override { scratch.deleteRecursively(); }

    std::string writeHex(const juce::MemoryBlock& image, const char* name)
    {
        const auto file = scratch.getChildFile(name);
        juce::String error;
        EXPECT_TRUE(FirmwareImage::save(file, FirmwareImage::Format::intelHex, image, error)) << error;
        return file.getFullPathName().toStdString();
    }
};
}

TEST_F(Avrflash, UpdatesVerifiesAndReadsBackAnEmulatedBoard)
{
    SimProcess sim(dev.path(), { "--log", "--board", "d", "--id", "1", "--fault", "stall-read",
                                 "--fault", "refuse-writes=1" });
    ASSERT_TRUE(sim.isReady());
    const auto image = imageOf(5 * pageSize + 10, 11);
    const auto hex = writeHex(image, "app.hex");

    auto run = avrflash("--id 1 d " + hex);
    EXPECT_EQ(0, run.status) << run.output;
    for (auto part : { "Found Diskpack board V1.00 on ", "Writing app.hex: Intel HEX, 1290 bytes in 6 pages of 256",
                       "wrote page with 1 retries", "Read page with 1 retries",
                       "Updated and verified: 6 pages written, 6 read back equal" })
        EXPECT_NE(std::string::npos, run.output.find(part)) << part << " in:\n" << run.output;

    run = avrflash("--verify-only d " + hex);
    EXPECT_EQ(0, run.status) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("Verified: all 6 pages match app.hex")) << run.output;

    const auto back = scratch.getChildFile("back.bin");
    run = avrflash("--read " + back.getFullPathName().toStdString() + " d");
    EXPECT_EQ(0, run.status) << run.output;
    juce::MemoryBlock flash;
    ASSERT_TRUE(back.loadFileAsData(flash));
    ASSERT_EQ((size_t) 0x1E000, flash.getSize());
    EXPECT_EQ(0, std::memcmp(image.getData(), flash.getData(), image.getSize()));
    EXPECT_EQ((char) 0xFF, flash[image.getSize()]);

    // Another image: verify-only tells the difference and says where.
    run = avrflash("--verify-only d " + writeHex(imageOf(5 * pageSize + 10, 12), "other.hex"));
    EXPECT_EQ(1, run.status) << run.output;
    EXPECT_NE(std::string::npos, run.output.find("avrflash: 6 of 6 pages did not verify: 0, 1, 2, 3, 4, 5"))
        << run.output;
}

TEST_F(Avrflash, TheBoardHearsNothingAfterTheSessionNorAfterARefusal)
{
    // Emulator and avrflash arguments, status, words, and five characters of each line the board got from %UP on.
    using Lines = std::vector<std::string>;
    const std::tuple<Lines, std::string, int, std::string, Lines> cases[] = {
        // The chassis board commits its settings when closed; restarting, it must not be asked to.
        { { "--board", "c" }, "c", 0, "Found Chassis board V1.00 on ", { "%UP", ":0000", "$0000", "#" } },
        // The third line it receives, the request to enter the bootloader, is refused.
        { { "--board", "c", "--fault", "nack-every=3" }, "c", 1,
          "avrflash: update failed: the board did not enter its bootloader; nothing was written", { "%UP" } },
        { { "--board", "d", "--bootloader", "--version", "V1.00-build-7" }, "--bootloader d", 0,
          "Found (bootloader) Diskpack board V1.00-build-7 on ", { "%UP", ":0000", "$0000", "#" } },
        { { "--board", "d", "--bootloader" }, "d", 1, "avrflash: no Diskpack board answered on the serial ports", {} },
        // Five refusals of one page end the update, and no page is read back.
        { { "--board", "d", "--fault", "refuse-writes=5" }, "d", 1,
          "avrflash: update failed: page 0 at 0x00000: failed writing page (NACK)",
          { "%UP", ":0000", ":0000", ":0000", ":0000", ":0000", "#" } },
        // The emulator's checksum is one too high; this image's page 0 sums to 0x80.
        { { "--board", "d", "--fault", "corrupt-read" }, "d", 1,
          "page 0 at 0x00000: Verify checksum fail: expected 0x80 actual 0x81\n", { "%UP", ":0000", "$0000", "#" } },
        // Each read breaks off mid-page; the fifth failure is the last.
        { { "--board", "d", "--fault", "stall-read=5" }, "d", 1,
          "page 0 at 0x00000: Verify read time out at offset 0x064\n",
          { "%UP", ":0000", "$0000", "$0000", "$0000", "$0000", "$0000", "#" } },
    };
    const auto image = scratch.getChildFile("one.bin");
    ASSERT_TRUE(image.replaceWithData(imageOf(pageSize, 5).getData(), pageSize));
    for (const auto& [sim, args, status, said, expected] : cases)
    {
        SCOPED_TRACE(args + ": " + said);
        auto simArgs = sim;
        simArgs.insert(simArgs.begin(), "--log");
        SimProcess board(dev.path(), simArgs);
        ASSERT_TRUE(board.isReady());
        const auto run = avrflash(args + " " + image.getFullPathName().toStdString());
        EXPECT_EQ(status, run.status) << run.output;
        EXPECT_NE(std::string::npos, run.output.find(said)) << run.output;
        // A control round trip: every line received before it has been logged.
        ASSERT_EQ("ok", board.control("fault 0 clear"));
        std::vector<std::string> received;
        for (auto& line : board.output())
            if (line.rfind("rx 0 ", 0) == 0 && (!received.empty() || line == "rx 0 %UP"))
                received.push_back(line.substr(5, 5));
        EXPECT_EQ(expected, received);
    }
}

TEST_F(Avrflash, BadUsageIsStatusTwoAndATooLargeImageIsRefusedBeforeAnyBoardIsSought)
{
    for (auto args : { "", "q img.hex", "d", "d a.hex b.hex", "--read x.bin d img.hex", "--id 12 d img.hex",
                       "--format srec d img.hex", "--frobnicate d img.hex" })
    {
        const auto run = avrflash(args);
        EXPECT_EQ(2, run.status) << args << "\n" << run.output;
        EXPECT_NE(std::string::npos, run.output.find("Try 'avrflash --help'.")) << args;
    }
    const auto help = avrflash("--help");
    EXPECT_EQ(0, help.status);
    EXPECT_EQ(0u, help.output.find("Usage: avrflash"));
    // No board runs here: looking for one first would end in another message.
    const auto big = avrflash("d " + writeHex(imageOf(0x1E000 + 1, 0), "big.hex"));
    EXPECT_EQ(1, big.status);
    EXPECT_NE(std::string::npos,
              big.output.find("the image is 122881 bytes, larger than the 122880-byte (0x1E000) application section"));
    EXPECT_EQ(std::string::npos, big.output.find("Looking for")) << big.output;
}
