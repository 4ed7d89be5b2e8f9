// Firmware updates against the emulated bootloader, through the product's own
// serial link, and the avrflash program end to end.

#include "FirmwareImage.h"
#include "FlashSession.h"
#include "boards/DiskpackBoard.h"
#include "firmware/XBootFWUpdater.h"
#include "support/JucePrinters.h"
#include "support/PtyPeer.h"
#include "support/SimProcess.h"

#include <gtest/gtest.h>

#include <cstdio>

#ifndef AVRTEST_BIN_DIR
#error "AVRTEST_BIN_DIR must name the directory of the built programs"
#endif

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

juce::MemoryBlock pages(const juce::MemoryBlock& image)
{
    const size_t whole = (image.getSize() + pageSize - 1) / pageSize * pageSize;
    juce::MemoryBlock padded(whole);
    padded.fillWith(0xFF);
    padded.copyFrom(image.getData(), 0, image.getSize());
    return padded;
}

/** Whether `printed` holds every one of `parts`; a failure shows it all. */
::testing::AssertionResult printedAll(const std::string& printed, std::initializer_list<const char*> parts)
{
    for (const char* part : parts)
        if (printed.find(part) == std::string::npos)
            return ::testing::AssertionFailure() << "no \"" << part << "\" in:\n" << printed;
    return ::testing::AssertionSuccess();
}

/** One emulated diskpack board, and the product's board and updater for it. */
struct SimBoard : ::testing::Test
{
    TempDevDir dev;
    LogCapture log;
    std::unique_ptr<SimProcess> sim;
    std::unique_ptr<DiskpackBoard> board;
    std::unique_ptr<HardwareBoardFWUpdater> updater;
    FILE* progressOut = std::tmpfile();
    FlashProgress progress { progressOut, false };

    ~SimBoard() override { std::fclose(progressOut); }

    void startSim(std::vector<std::string> extra = {})
    {
        std::vector<std::string> args { "--log", "--board", "d", "--id", "1" };
        args.insert(args.end(), extra.begin(), extra.end());
        sim = std::make_unique<SimProcess>(dev.path(), args);
        ASSERT_TRUE(sim->isReady());
    }

    void open()
    {
        board = std::make_unique<DiskpackBoard>();
        ASSERT_TRUE(board->findAndOpen(1));
        updater.reset(board->getFWUpdater());
    }

    std::string progressText() const
    {
        std::fflush(progressOut);
        std::rewind(progressOut);
        std::string s;
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, progressOut)) > 0)
            s.append(buf, n);
        return s;
    }

    /** The application section as the bootloader holds it now. */
    juce::MemoryBlock readBack(int pageCount)
    {
        open();
        FlashSession session(*updater, progress);
        juce::MemoryBlock out;
        const auto report = session.read(pageCount, out);
        EXPECT_TRUE(report.ok) << report.failure;
        board.reset();
        return out;
    }

    size_t received(const std::string& line)
    {
        const auto lines = sim->output();
        return (size_t) std::count(lines.begin(), lines.end(), "rx 0 " + line);
    }
};
}

TEST_F(SimBoard, AMultiPageUpdateSurvivesARefusalAndAStall)
{
    startSim({ "--fault", "refuse-writes=2", "--fault", "stall-read" });
    open();
    const auto image = pages(imageOf(9 * pageSize + 77, 3));

    FlashSession session(*updater, progress);
    const auto report = session.update(image);
    EXPECT_TRUE(report.ok) << report.failure << "\n" << progressText();
    EXPECT_EQ(firmwareStatusSucceeded, report.status);
    EXPECT_EQ(10, report.pagesWritten);
    EXPECT_EQ(10, report.pagesVerified);
    EXPECT_FALSE(report.endFailed);
    EXPECT_TRUE(printedAll(progressText(), { "page 0 at 0x00000: wrote page with 2 retries\n",
                                             "page 0 at 0x00000: Read page with 1 retries\n" }));

    // The board got "#" and runs its application again...
    ASSERT_TRUE(sim->waitForOutput("rx 0 #"));
    board.reset();
    // ...with the new image in its flash.
    const auto back = readBack(10);
    EXPECT_EQ(image, back);
}

TEST_F(SimBoard, AnApplicationHandsOverOnUpAndIsBackAfterHash)
{
    startSim();
    open();
    EXPECT_EQ(juce::String("V1.00"), board->getVersionString());
    ASSERT_TRUE(updater->startFirmwareUpdate());
    EXPECT_FALSE(board->isThreadRunning());
    ASSERT_TRUE(updater->endFirmwareUpdate(firmwareStatusSucceeded));
    board.reset();

    // Restarted: an ordinary board again, found by its own identity and
    // answering board commands.
    open();
    EXPECT_TRUE(board->syncState());
}

TEST_F(SimBoard, FiveRefusalsAbortTheUpdateAndTheBoardIsToldSo)
{
    startSim({ "--fault", "refuse-writes=5" });
    open();
    FlashSession session(*updater, progress);
    const auto report = session.update(pages(imageOf(3 * pageSize, 1)));
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(firmwareStatusAborted, report.status);
    EXPECT_EQ(juce::String("page 0 at 0x00000: failed writing page (NACK)"), report.failure);
    EXPECT_EQ(0, report.pagesWritten);
    ASSERT_TRUE(sim->waitForOutput("rx 0 #"));
    EXPECT_EQ(0u, received("$0000"));
}

TEST_F(SimBoard, AWrongReadChecksumFailsThatPageOnly)
{
    startSim();
    open();
    const auto image = pages(imageOf(4 * pageSize, 7));
    FlashSession session(*updater, progress);
    ASSERT_TRUE(session.update(image).ok);
    board.reset();

    ASSERT_EQ("ok", sim->control("fault 0 corrupt-read"));
    open();
    FlashSession again(*updater, progress);
    const auto report = again.verify(image);
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(firmwareStatusVerifyFailed, report.status);
    EXPECT_EQ((juce::Array<int> { 0 }), report.badPages);
    EXPECT_EQ(3, report.pagesVerified);
    EXPECT_TRUE(printedAll(progressText(), { "page 0 at 0x00000: Verify checksum fail: expected 0x" }));
}

TEST_F(SimBoard, ABoardWaitingInItsBootloaderIsFoundByTheBootloaderIdentity)
{
    startSim({ "--bootloader", "--version", "V1.00-build-7" });

    // The application's identity does not match the bootloader's answer...
    DiskpackBoard application;
    EXPECT_FALSE(application.findAndOpen(-1));

    // ...one that begins with "(bootloader)" does. Its version is the reply
    // from 13 characters past the identity on, which here leaves only the
    // last character of the board's version text.
    struct Recovering : DiskpackBoard
    {
        // Closed here, while this is still the object the board's thread runs.
        ~Recovering() override { closeBoard(false); }
        const char* boardIdString() const override { return "(bootloader) Diskpack board"; }
    } recovering;
    ASSERT_TRUE(recovering.findAndOpen(1));
    const juce::String reply = "(bootloader) Diskpack board V1.00-build-7";
    EXPECT_EQ(reply.substring((int) std::strlen(recovering.boardIdString()) + 13), recovering.getVersionString());
    EXPECT_EQ(juce::String("7"), recovering.getVersionString());
}

//==============================================================================
namespace
{
ProgramRun avrflash(const std::string& args)
{
    return runProgram(std::string(AVRTEST_BIN_DIR) + "/avrflash " + args);
}

struct Avrflash : SimBoard
{
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
    startSim({ "--fault", "stall-read", "--fault", "refuse-writes=1" });
    const auto image = imageOf(5 * pageSize + 10, 11);
    const auto hex = writeHex(image, "app.hex");

    auto run = avrflash("--id 1 d " + hex);
    EXPECT_EQ(0, run.status) << run.output;
    EXPECT_TRUE(printedAll(run.output, { "Found Diskpack board V1.00 on ", "Writing app.hex: Intel HEX, 1290 bytes in 6 pages of 256",
                                  "wrote page with 1 retries", "Read page with 1 retries",
                                  "Updated and verified: 6 pages written, 6 read back equal" }));

    run = avrflash("--verify-only d " + hex);
    EXPECT_EQ(0, run.status) << run.output;
    EXPECT_TRUE(printedAll(run.output, { "Verified: all 6 pages match app.hex" }));

    const auto back = scratch.getChildFile("back.bin");
    run = avrflash("--read " + back.getFullPathName().toStdString() + " d");
    EXPECT_EQ(0, run.status) << run.output;
    juce::MemoryBlock flash;
    ASSERT_TRUE(back.loadFileAsData(flash));
    ASSERT_EQ((size_t) 0x1E000, flash.getSize());
    EXPECT_EQ(0, std::memcmp(image.getData(), flash.getData(), image.getSize()));
    EXPECT_EQ((char) 0xFF, flash[image.getSize()]);

    // Another image: verify-only tells the difference and says where.
    const auto other = writeHex(imageOf(5 * pageSize + 10, 12), "other.hex");
    run = avrflash("--verify-only d " + other);
    EXPECT_EQ(1, run.status) << run.output;
    EXPECT_TRUE(printedAll(run.output, { "avrflash: 6 of 6 pages did not verify: 0, 1, 2, 3, 4, 5" }));
}

TEST_F(Avrflash, RefusesAnImageLargerThanTheApplicationSectionWithoutTouchingTheBoard)
{
    startSim();
    const auto hex = writeHex(imageOf(0x1E000 + 1, 0), "big.hex");
    const auto run = avrflash("d " + hex);
    EXPECT_EQ(1, run.status);
    EXPECT_TRUE(printedAll(run.output, { "the image is 122881 bytes, larger than the 122880-byte (0x1E000) application section" }));
    EXPECT_EQ(std::string::npos, run.output.find("Looking for")) << run.output;
    // A control round trip: every line the board printed before it has arrived.
    ASSERT_EQ("ok", sim->control("fault 0 clear"));
    EXPECT_EQ(0u, received("?"));
}

TEST_F(Avrflash, RecoversABoardLeftInItsBootloader)
{
    startSim({ "--bootloader" });
    const auto image = imageOf(2 * pageSize, 5);
    const auto hex = writeHex(image, "app.hex");

    auto run = avrflash("d " + hex);
    EXPECT_EQ(1, run.status) << run.output;
    EXPECT_TRUE(printedAll(run.output, { "avrflash: no Diskpack board answered on the serial ports" }));

    run = avrflash("--bootloader d " + hex);
    EXPECT_EQ(0, run.status) << run.output;
    EXPECT_TRUE(printedAll(run.output, { "Found (bootloader) Diskpack board V1.00 on " }));

    // Out of the bootloader, the application answers as usual.
    run = avrflash("--verify-only d " + hex);
    EXPECT_EQ(0, run.status) << run.output;
}

TEST_F(Avrflash, ExitStatusTwoForBadUsage)
{
    for (auto args : { "", "q img.hex", "d", "d a.hex b.hex", "--read x.bin d img.hex", "--id 12 d img.hex",
                       "--format srec d img.hex", "--frobnicate d img.hex" })
    {
        const auto run = avrflash(args);
        EXPECT_EQ(2, run.status) << args << "\n" << run.output;
        EXPECT_TRUE(printedAll(run.output, { "Try 'avrflash --help'." })) << args;
    }
    const auto help = avrflash("--help");
    EXPECT_EQ(0, help.status);
    EXPECT_EQ(0u, help.output.find("Usage: avrflash"));
}
