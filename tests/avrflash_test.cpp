#include "FirmwareImage.h"
#include "FlashProgress.h"
#include "FlashSession.h"
#include "support/JucePrinters.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <functional>
#include <set>

namespace
{
/** A scratch directory for image files, removed afterwards. */
struct ScratchDir
{
    juce::File dir = juce::File::createTempFile("avrflash-test");
    ScratchDir() { dir.createDirectory(); }
    ~ScratchDir() { dir.deleteRecursively(); }

    juce::File write(const juce::String& name, const juce::String& text) const
    {
        auto f = dir.getChildFile(name);
        f.replaceWithText(text, false, false, "\n");
        return f;
    }
    juce::File write(const juce::String& name, const juce::MemoryBlock& bytes) const
    {
        auto f = dir.getChildFile(name);
        f.replaceWithData(bytes.getData(), bytes.getSize());
        return f;
    }
};

/** One Intel HEX record with its checksum. */
juce::String hexRecord(int type, int address, const std::vector<int>& data)
{
    int sum = (int) data.size() + (address >> 8) + (address & 0xFF) + type;
    juce::String line = juce::String::formatted(":%02X%04X%02X", (int) data.size(), address, type);
    for (int b : data)
    {
        line << juce::String::formatted("%02X", b);
        sum += b;
    }
    return line + juce::String::formatted("%02X", (-sum) & 0xFF) + "\n";
}

const juce::String hexEnd = ":00000001FF\n";

int byteAt(const FirmwareImage& image, size_t i)
{
    return static_cast<const unsigned char*>(image.bytes().getData())[i];
}
}

//==============================================================================
TEST(FirmwareImage, IntelHexPlacesDataAtItsAddressesAndLeavesGapsErased)
{
    ScratchDir scratch;
    // A record at 0x0000, a gap, one at 0x0110, and one past 64 KiB through an
    // extended linear address record.
    const auto file = scratch.write("app.hex", hexRecord(0, 0x0000, { 0x0C, 0x94, 0x34, 0x00 })
                                                   + hexRecord(0, 0x0110, { 0x11, 0x22 })
                                                   + hexRecord(4, 0x0000, { 0x00, 0x01 })
                                                   + hexRecord(0, 0x0002, { 0xAB }) + hexEnd);
    FirmwareImage image;
    juce::String error;
    ASSERT_TRUE(image.load(file, FirmwareImage::Format::guess, error)) << error;
    EXPECT_EQ(FirmwareImage::Format::intelHex, image.format());
    EXPECT_EQ((size_t) 0x10003, image.size());
    EXPECT_EQ(0x0C, byteAt(image, 0));
    EXPECT_EQ(0x00, byteAt(image, 3));
    EXPECT_EQ(0xFF, byteAt(image, 4));
    EXPECT_EQ(0x11, byteAt(image, 0x110));
    EXPECT_EQ(0x22, byteAt(image, 0x111));
    EXPECT_EQ(0xFF, byteAt(image, 0x10001));
    EXPECT_EQ(0xAB, byteAt(image, 0x10002));

    const auto padded = image.paddedTo(256);
    EXPECT_EQ((size_t) 0x10100, padded.getSize());
    EXPECT_EQ(257, image.pageCount(256));
    EXPECT_EQ(0xAB, static_cast<const unsigned char*>(padded.getData())[0x10002]);
    EXPECT_EQ(0xFF, static_cast<const unsigned char*>(padded.getData())[0x100FF]);
}

TEST(FirmwareImage, BadFilesAreRefusedWithTheFileNamed)
{
    ScratchDir scratch;
    FirmwareImage image;
    juce::String error;

    auto bad = hexRecord(0, 0, { 1, 2, 3 });
    bad = bad.substring(0, bad.length() - 3) + "00\n";
    EXPECT_FALSE(image.load(scratch.write("sum.hex", bad + hexEnd), FirmwareImage::Format::guess, error));
    EXPECT_TRUE(error.contains("sum.hex") && error.contains("checksum")) << error;

    // Two different values for one address: not one image.
    EXPECT_FALSE(image.load(scratch.write("twice.hex", hexRecord(0, 0, { 1 }) + hexRecord(0, 0, { 2 }) + hexEnd),
                            FirmwareImage::Format::guess, error));
    EXPECT_TRUE(error.contains("twice.hex")) << error;

    EXPECT_FALSE(image.load(scratch.write("nodata.hex", hexEnd), FirmwareImage::Format::guess, error));
    EXPECT_TRUE(error.contains("nodata.hex")) << error;

    EXPECT_FALSE(image.load(scratch.write("empty.bin", juce::String()), FirmwareImage::Format::guess, error));
    EXPECT_EQ(scratch.dir.getChildFile("empty.bin").getFullPathName() + ": the file is empty", error);

    EXPECT_FALSE(image.load(scratch.dir.getChildFile("missing.hex"), FirmwareImage::Format::guess, error));
    EXPECT_TRUE(error.endsWith("missing.hex: no such file")) << error;
    EXPECT_EQ((size_t) 0, image.size());
}

TEST(FirmwareImage, BinaryImagesAreTakenAsTheyAreUnlessTheyAreHexText)
{
    ScratchDir scratch;
    const unsigned char cycle[] = { 0x3A, 0x00, 0xFF, 0x10 };
    juce::MemoryBlock raw;
    for (int i = 0; i < 300; ++i)
        raw.append(cycle + i % 4, 1);
    FirmwareImage image;
    juce::String error;
    ASSERT_TRUE(image.load(scratch.write("app.bin", raw), FirmwareImage::Format::guess, error)) << error;
    EXPECT_EQ(FirmwareImage::Format::binary, image.format());
    EXPECT_EQ(raw, image.bytes());

    // Intel HEX under another name is recognised by its content...
    const auto text = hexRecord(0, 0, { 0x5A, 0xA5 }) + hexEnd;
    ASSERT_TRUE(image.load(scratch.write("app.img", text), FirmwareImage::Format::guess, error)) << error;
    EXPECT_EQ((size_t) 2, image.size());
    // ...but not under a binary name, and it can be forced to load as the
    // bytes of its text.
    ASSERT_TRUE(image.load(scratch.write("text.bin", text), FirmwareImage::Format::guess, error)) << error;
    EXPECT_EQ((size_t) text.length(), image.size());
    ASSERT_TRUE(image.load(scratch.dir.getChildFile("app.img"), FirmwareImage::Format::binary, error)) << error;
    EXPECT_EQ((size_t) text.length(), image.size());
}

TEST(FirmwareImage, SavedImagesReadBackTheSame)
{
    ScratchDir scratch;
    juce::MemoryBlock flash(0x1300);
    for (size_t i = 0; i < flash.getSize(); ++i)
        flash[i] = (char) (i * 13 + 7);
    juce::String error;
    for (auto name : { "back.hex", "back.bin" })
    {
        const auto file = scratch.dir.getChildFile(name);
        ASSERT_TRUE(FirmwareImage::save(file, FirmwareImage::Format::guess, flash, error)) << error;
        FirmwareImage image;
        ASSERT_TRUE(image.load(file, FirmwareImage::Format::guess, error)) << error;
        EXPECT_EQ(flash, image.bytes()) << name;
    }
    EXPECT_TRUE(scratch.dir.getChildFile("back.hex").loadFileAsString().startsWith(":"));
    EXPECT_FALSE(FirmwareImage::save(scratch.dir.getChildFile("no/such/dir/x.hex"), FirmwareImage::Format::guess,
                                     flash, error));
}

//==============================================================================
namespace
{
/** Captures what the progress display writes. */
struct Captured
{
    FILE* file = std::tmpfile();
    ~Captured() { std::fclose(file); }
    std::string text() const
    {
        std::fflush(file);
        std::string s;
        std::rewind(file);
        char buf[4096];
        size_t n;
        while ((n = std::fread(buf, 1, sizeof buf, file)) > 0)
            s.append(buf, n);
        return s;
    }
};
}

TEST(FlashProgress, PlainOutputIsALineAtEachTenthAndATotal)
{
    Captured out;
    double now = 100.0;
    FlashProgress progress(out.file, false, [&] { return now; });
    progress.begin("Writing", 20, 256);
    for (int i = 0; i < 20; ++i)
    {
        now += 0.5;
        progress.pageDone();
        if (i == 4)
            progress.note("page 4 at 0x00400: wrote page with 1 retries");
    }
    progress.end();

    juce::StringArray lines;
    lines.addLines(juce::String(out.text()));
    lines.removeEmptyStrings();
    // Nine tenths (the tenth tenth is the total), the note and the total.
    ASSERT_EQ(11, lines.size()) << out.text();
    // 2 pages of 256 bytes a second, 18 pages to go at 0.5 s each.
    EXPECT_EQ(juce::String("Writing: 2/20 pages, 512 B/s, 0:09 left"), lines[0]);
    EXPECT_EQ(juce::String("page 4 at 0x00400: wrote page with 1 retries"), lines[2]);
    EXPECT_EQ(juce::String("Writing: 18/20 pages, 512 B/s, 0:01 left"), lines[9]);
    EXPECT_EQ(juce::String("Writing: 20/20 pages in 0:10, 512 B/s"), lines[10]);
    EXPECT_EQ(std::string::npos, out.text().find('\r'));
}

TEST(FlashProgress, TerminalOutputRedrawsOneBar)
{
    Captured out;
    double now = 0;
    FlashProgress progress(out.file, true, [&] { return now; });
    progress.begin("Reading", 4, 512);
    for (int i = 0; i < 4; ++i)
    {
        now += 1;
        progress.pageDone();
    }
    progress.end();
    const auto text = out.text();
    EXPECT_NE(std::string::npos, text.find("\rReading   [" + std::string(24, '.') + "] 0/4 pages"));
    EXPECT_NE(std::string::npos, text.find("[" + std::string(12, '#') + std::string(12, '.') + "] 2/4 pages, 512 B/s, 0:02 left"));
    EXPECT_NE(std::string::npos, text.find("\r\x1b[KReading: 4/4 pages in 0:04, 512 B/s\n"));
    EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n'));
}

TEST(FlashProgress, RatesAndDurationsReadNaturally)
{
    EXPECT_EQ(juce::String("873 B/s"), FlashProgress::formatRate(872.7));
    EXPECT_EQ(juce::String("1.5 KiB/s"), FlashProgress::formatRate(1536));
    EXPECT_EQ(juce::String("0:00"), FlashProgress::formatDuration(0.2));
    EXPECT_EQ(juce::String("4:41"), FlashProgress::formatDuration(281.4));
    EXPECT_EQ(juce::String("1:02:03"), FlashProgress::formatDuration(3723));
}

//==============================================================================
namespace
{
/** An in-memory bootloader with scripted misbehaviour; records every call. */
class FakeUpdater : public HardwareBoardFWUpdater
{
public:
    static constexpr int pageSize = 256;

    FakeUpdater() : HardwareBoardFWUpdater(nullptr), flash(0x1E000) { flash.fillWith(0x00); }

    bool startFirmwareUpdate() override { calls.add("start"); return startOk; }
    bool endFirmwareUpdate(FirmwareStatus status) override
    {
        calls.add("end " + juce::String((int) status));
        return true;
    }
    bool eraseApplicationSection() override
    {
        calls.add("erase");
        flash.fillWith(0xFF);
        return true;
    }
    bool programApplicationPage(const void* data, int page, juce::String& message) override
    {
        calls.add("write " + juce::String(page));
        message.clear();
        if (onWrite)
            onWrite(page);
        if (refuseWrite.count(page))
        {
            message = "failed writing page (NACK)";
            return false;
        }
        if (retriedWrite.count(page))
            message = "wrote page with 2 retries";
        flash.copyFrom(data, page * pageSize, pageSize);
        return true;
    }
    bool readApplicationPage(void* data, int page, juce::String& message) override
    {
        calls.add("read " + juce::String(page));
        message.clear();
        flash.copyTo(data, page * pageSize, pageSize);
        if (corruptRead.count(page))
            static_cast<unsigned char*>(data)[0x21] ^= 0x40;
        if (unreadable.count(page))
        {
            message = "Verify read time out at offset 0x010";
            return false;
        }
        return true;
    }
    int getFlashPageSize() const override { return pageSize; }
    int getAppSectionSize() const override { return 0x1E000; }
    int getTotalProgramSize() const override { return 0x20000; }

    juce::MemoryBlock flash;
    juce::StringArray calls;
    bool startOk = true;
    std::function<void(int)> onWrite;
    std::set<int> refuseWrite, retriedWrite, corruptRead, unreadable;
};

juce::MemoryBlock imageOf(int pages)
{
    juce::MemoryBlock b((size_t) pages * FakeUpdater::pageSize);
    for (size_t i = 0; i < b.getSize(); ++i)
        b[i] = (char) (i * 31 + 5);
    return b;
}

struct Session : ::testing::Test
{
    Captured out;
    FlashProgress progress { out.file, false };
    FakeUpdater fake;
    FlashSession session { fake, progress };

    juce::StringArray callsLike(const juce::String& prefix) const
    {
        juce::StringArray r;
        for (auto& c : fake.calls)
            if (c.startsWith(prefix))
                r.add(c);
        return r;
    }
};
}

TEST_F(Session, AnUpdateWritesEverythingThenVerifiesAndReportsSuccess)
{
    const auto image = imageOf(5);
    fake.retriedWrite = { 2 };
    const auto report = session.update(image);
    EXPECT_TRUE(report.ok);
    EXPECT_EQ(firmwareStatusSucceeded, report.status);
    EXPECT_EQ(5, report.pagesWritten);
    EXPECT_EQ(5, report.pagesVerified);
    EXPECT_TRUE(report.failure.isEmpty());
    EXPECT_EQ((juce::StringArray { "start", "erase", "write 0", "write 1", "write 2", "write 3", "write 4", "read 0",
                                   "read 1", "read 2", "read 3", "read 4", "end 1" }),
              fake.calls);
    EXPECT_EQ(0, std::memcmp(image.getData(), fake.flash.getData(), image.getSize()));
    EXPECT_NE(std::string::npos, out.text().find("page 2 at 0x00200: wrote page with 2 retries\n"));
}

TEST_F(Session, ARefusedPageStopsTheUpdateAndEndsItAborted)
{
    fake.refuseWrite = { 3 };
    const auto report = session.update(imageOf(6));
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(firmwareStatusAborted, report.status);
    EXPECT_EQ(3, report.pagesWritten);
    EXPECT_EQ(juce::String("page 3 at 0x00300: failed writing page (NACK)"), report.failure);
    EXPECT_TRUE(callsLike("read").isEmpty());
    EXPECT_EQ(juce::String("write 3"), callsLike("write").strings.getLast());
    EXPECT_EQ(juce::String("end 3"), fake.calls.strings.getLast());
}

TEST_F(Session, VerifyReportsEveryBadPageAndEndsWithVerifyFailed)
{
    const auto image = imageOf(6);
    fake.corruptRead = { 1 };
    fake.unreadable = { 4 };
    auto report = session.update(image);
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(firmwareStatusVerifyFailed, report.status);
    EXPECT_EQ((juce::Array<int> { 1, 4 }), report.badPages);
    EXPECT_EQ(4, report.pagesVerified);
    EXPECT_EQ(6, callsLike("read").size());
    EXPECT_EQ(juce::String("end 2"), fake.calls.strings.getLast());
    const auto text = out.text();
    EXPECT_NE(std::string::npos, text.find("page 1 at 0x00100: differs at offset 0x021 (board 0x"));
    EXPECT_NE(std::string::npos, text.find("page 4 at 0x00400: Verify read time out at offset 0x010\n"));

    // Verify-only writes nothing and judges the same way.
    fake.calls.clear();
    fake.corruptRead.clear();
    fake.unreadable.clear();
    report = session.verify(image);
    EXPECT_TRUE(report.ok);
    EXPECT_EQ((juce::StringArray { "start", "read 0", "read 1", "read 2", "read 3", "read 4", "read 5", "end 1" }),
              fake.calls);
}

TEST_F(Session, ABoardThatStopsAnsweringIsGivenUpAfterThreePages)
{
    fake.unreadable = { 2, 3, 4, 5, 6 };
    const auto report = session.verify(imageOf(9));
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(juce::String("gave up after 3 pages in a row could not be read"), report.failure);
    EXPECT_EQ(juce::String("read 4"), callsLike("read").strings.getLast());
    EXPECT_EQ(juce::String("end 2"), fake.calls.strings.getLast());
}

TEST_F(Session, EverySessionIsEndedEvenWhenTheBootloaderNeverCame)
{
    fake.startOk = false;
    const auto report = session.update(imageOf(2));
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(juce::String("the board did not enter its bootloader"), report.failure);
    EXPECT_EQ((juce::StringArray { "start", "end 3" }), fake.calls);
}

TEST_F(Session, AnInterruptStopsBetweenPagesAndEndsAborted)
{
    std::atomic<bool> stop { false };
    session.setCancelFlag(&stop);
    fake.onWrite = [&](int page) {
        if (page == 1)
            stop = true;
    };
    const auto report = session.update(imageOf(4));
    EXPECT_TRUE(report.interrupted);
    EXPECT_EQ(juce::String("interrupted"), report.failure);
    EXPECT_EQ(firmwareStatusAborted, report.status);
    EXPECT_EQ((juce::StringArray { "start", "erase", "write 0", "write 1", "end 3" }), fake.calls);
}

TEST_F(Session, AReadBackFillsTheBufferAndEndsWithNoOutcome)
{
    const auto image = imageOf(3);
    fake.flash.copyFrom(image.getData(), 0, image.getSize());
    juce::MemoryBlock back;
    const auto report = session.read(3, back);
    EXPECT_TRUE(report.ok);
    EXPECT_EQ(image, back);
    EXPECT_EQ(juce::String("end 0"), fake.calls.strings.getLast());
    EXPECT_TRUE(callsLike("write").isEmpty());
    EXPECT_FALSE(fake.calls.contains("erase"));
}
