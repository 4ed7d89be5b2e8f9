#include "FirmwareImage.h"
#include "FlashProgress.h"
#include "FlashSession.h"
#include "support/JucePrinters.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <numeric>
#include <vector>

namespace
{
struct ScratchDir
{
    juce::File dir = juce::File::createTempFile("avrflash-test");
    ScratchDir() { dir.createDirectory(); }
    ~ScratchDir() { dir.deleteRecursively(); }

    juce::File write(const juce::String& name, const juce::MemoryBlock& bytes) const
    {
        auto f = dir.getChildFile(name);
        f.create();
        f.appendData(bytes.getData(), bytes.getSize());
        return f;
    }
};

juce::MemoryBlock bytesOf(const juce::String& text) { return { text.toRawUTF8(), text.getNumBytesAsUTF8() }; }

/** `size` bytes of erased flash with `data` placed at their addresses. */
juce::MemoryBlock flashWith(size_t size, const std::vector<std::pair<size_t, juce::MemoryBlock>>& data)
{
    juce::MemoryBlock b(size);
    b.fillWith(0xFF);
    for (const auto& [address, bytes] : data)
        b.copyFrom(bytes.getData(), (int) address, bytes.getSize());
    return b;
}

juce::String hexRecord(int type, int address, const std::vector<int>& data)
{
    const int sum = std::accumulate(data.begin(), data.end(), (address >> 8) + (address & 0xFF) + type)
                    + (int) data.size();
    juce::String line = juce::String::formatted(":%02X%04X%02X", (int) data.size(), address, type);
    for (int b : data)
        line << juce::String::formatted("%02X", b);
    return line + juce::String::formatted("%02X", (-sum) & 0xFF) + "\n";
}

const juce::String hexEnd = ":00000001FF\n";

struct Captured
{
    FILE* file = std::tmpfile();
    ~Captured() { std::fclose(file); }
    std::string text() const
    {
        std::string s((size_t) std::ftell(file), '\0');
        std::rewind(file);
        s.resize(std::fread(s.data(), 1, s.size(), file));
        return s;
    }
};

/** What the display shows for a pass of `pages` pages, each taking `step` seconds. */
std::string progressOf(bool terminal, const char* phase, int pages, int pageSize, double step, int noteAfter = -1)
{
    Captured out;
    double now = 100.0;
    FlashProgress progress(out.file, terminal, [&] { return now; });
    progress.begin(phase, pages, pageSize);
    for (int i = 1; i <= pages; ++i)
    {
        now += step;
        progress.pageDone();
        if (i == noteAfter)
            progress.note("page 4 at 0x00400: wrote page with 1 retries");
    }
    progress.end();
    return out.text();
}

/** An in-memory bootloader that logs every call and misbehaves as scripted: "w3=refuse r1=corrupt". */
struct FakeUpdater : HardwareBoardFWUpdater
{
    static constexpr int pageSize = 256;

    explicit FakeUpdater(std::string s) : HardwareBoardFWUpdater(nullptr), flash(0x1E000, true), script(" " + s + " ") {}

    bool startFirmwareUpdate() override { return log("start"); }
    bool endFirmwareUpdate(FirmwareStatus status) override { return log("end" + std::to_string((int) status)); }
    bool eraseApplicationSection() override
    {
        flash.fillWith(0xFF);
        return log("erase");
    }
    bool programApplicationPage(const void* data, int page, juce::String& message) override
    {
        const auto f = fault("w" + std::to_string(page));
        message = f == "refuse" ? "failed writing page (NACK)" : f == "retry" ? "wrote page with 2 retries" : "";
        if (f != "refuse")
            flash.copyFrom(data, page * pageSize, pageSize);
        if (f == "interrupt")
            stop = true;
        return log("w" + std::to_string(page));
    }
    bool readApplicationPage(void* data, int page, juce::String& message) override
    {
        const auto f = fault("r" + std::to_string(page));
        flash.copyTo(data, page * pageSize, pageSize);
        if (f == "corrupt")
            static_cast<unsigned char*>(data)[0x21] ^= 0x40;
        message = f == "unreadable" ? "Verify read time out at offset 0x010" : "";
        return log("r" + std::to_string(page));
    }
    int getFlashPageSize() const override { return pageSize; }

    bool log(const std::string& call)
    {
        calls += (calls.empty() ? "" : " ") + call;
        return fault(call) != "refuse" && fault(call) != "unreadable";
    }
    std::string fault(const std::string& call) const
    {
        const auto at = script.find(" " + call + "=");
        const auto from = at + call.size() + 2;
        return at == std::string::npos ? std::string() : script.substr(from, script.find(' ', from) - from);
    }

    juce::MemoryBlock flash;
    const std::string script;
    std::string calls;
    std::atomic<bool> stop { false };
};

juce::MemoryBlock imageOf(int pages)
{
    juce::MemoryBlock b((size_t) pages * FakeUpdater::pageSize);
    for (size_t i = 0; i < b.getSize(); ++i)
        b[i] = (char) (i * 31 + 5);
    return b;
}
}

TEST(FirmwareImage, FilesAreReadByTheirNameOrElseTheirContent)
{
    ScratchDir scratch;
    // Records at 0x0000, 0x0110 and, through an extended linear address, past 64 KiB: gaps read as erased.
    const auto spread = bytesOf(hexRecord(0, 0x0000, { 0x0C, 0x94, 0x34, 0x00 }) + hexRecord(0, 0x0110, { 0x11, 0x22 })
                                + hexRecord(4, 0x0000, { 0x00, 0x01 }) + hexRecord(0, 0x0002, { 0xAB }) + hexEnd);
    // Binary that starts like a hex record but holds bytes no text file does.
    juce::MemoryBlock raw(300);
    for (size_t i = 0; i < raw.getSize(); ++i)
        raw[i] = "\x3A\x00\xFF\x10"[i % 4];
    const auto hex = bytesOf(hexRecord(0, 0, { 0x5A, 0xA5 }) + hexEnd);
    using F = FirmwareImage::Format;
    const std::tuple<const char*, juce::MemoryBlock, F, F, juce::MemoryBlock, int> cases[] = {
        { "app.hex", spread, F::guess, F::intelHex,
          flashWith(0x10003, { { 0, { "\x0C\x94\x34\x00", 4 } }, { 0x110, { "\x11\x22", 2 } }, { 0x10002, { "\xAB", 1 } } }), 257 },
        { "raw.img", raw, F::guess, F::binary, raw, 2 },
        { "app.img", hex, F::guess, F::intelHex, { "\x5A\xA5", 2 }, 1 },
        { "text.bin", hex, F::guess, F::binary, hex, 1 },
        { "forced.hex", hex, F::binary, F::binary, hex, 1 },
    };
    for (const auto& [name, content, asked, readAs, bytes, pages] : cases)
    {
        FirmwareImage image;
        juce::String error;
        ASSERT_TRUE(image.load(scratch.write(name, content), asked, error)) << error;
        EXPECT_EQ(readAs, image.format()) << name;
        EXPECT_EQ(bytes, image.bytes()) << name;
        // Whole pages, the last one filled up with erased flash.
        EXPECT_EQ(pages, image.pageCount(256)) << name;
        EXPECT_EQ(flashWith((size_t) pages * 256, { { 0, bytes } }), image.paddedTo(256)) << name;
    }
}

TEST(FirmwareImage, BadFilesAreRefusedWithTheFileNamedAndSoIsASaveWhereNoFileCanBe)
{
    ScratchDir scratch;
    const auto badSum = hexRecord(0, 0, { 1, 2, 3 }).dropLastCharacters(3) + "00\n";
    const std::tuple<const char*, juce::String, const char*> cases[] = {
        { "sum.hex", badSum + hexEnd, "checksum" },
        // Two different values for one address: not one image.
        { "twice.hex", hexRecord(0, 0, { 1 }) + hexRecord(0, 0, { 2 }) + hexEnd, "" },
        { "nodata.hex", hexEnd, "no data" },
        // 16 MiB up: no board's flash reaches that far.
        { "far.hex", hexRecord(4, 0, { 0x01, 0x00 }) + hexRecord(0, 0, { 0xAB }) + hexEnd, "far past any board's flash" },
        { "empty.bin", {}, ": the file is empty" },
        { nullptr, {}, ": no such file" },
    };
    for (const auto& [name, content, why] : cases)
    {
        const auto file = name ? scratch.write(name, bytesOf(content)) : scratch.dir.getChildFile("missing.hex");
        FirmwareImage image;
        juce::String error;
        EXPECT_FALSE(image.load(file, FirmwareImage::Format::guess, error)) << file.getFileName();
        EXPECT_TRUE(error.startsWith(file.getFullPathName()) && error.contains(why)) << error;
        EXPECT_EQ((size_t) 0, image.size()) << file.getFileName();
    }
    // Saved images are read back end to end (avrflash's --read); here only a save where no file can be.
    const auto nowhere = scratch.dir.getChildFile("no/such/dir/x.hex");
    juce::String error;
    EXPECT_FALSE(FirmwareImage::save(nowhere, FirmwareImage::Format::guess, juce::MemoryBlock(16, true), error));
    EXPECT_TRUE(error.startsWith(nowhere.getFullPathName())) << error;
}

TEST(FlashProgress, PlainOutputIsALineAtEachTenthATerminalRedrawsOneBarAndRatesReadNaturally)
{
    // 2 pages of 256 bytes a second; the tenth tenth is the total.
    std::string expected;
    for (int tenth = 1; tenth < 10; ++tenth)
    {
        expected += juce::String::formatted("Writing: %d/20 pages, 512 B/s, 0:%02d left\n", tenth * 2, 10 - tenth).toStdString();
        if (tenth == 2)
            expected += "page 4 at 0x00400: wrote page with 1 retries\n";
    }
    EXPECT_EQ(expected + "Writing: 20/20 pages in 0:10, 512 B/s\n", progressOf(false, "Writing", 20, 256, 0.5, 5));

    const auto text = progressOf(true, "Reading", 4, 512, 1.0);
    EXPECT_NE(std::string::npos, text.find("\rReading   [" + std::string(24, '.') + "] 0/4 pages"));
    EXPECT_NE(std::string::npos, text.find("[" + std::string(12, '#') + std::string(12, '.') + "] 2/4 pages, 512 B/s, 0:02 left"));
    EXPECT_NE(std::string::npos, text.find("\r\x1b[KReading: 4/4 pages in 0:04, 512 B/s\n"));
    EXPECT_EQ(1, std::count(text.begin(), text.end(), '\n'));

    EXPECT_EQ(juce::StringArray({ "873 B/s", "1.5 KiB/s", "0:00", "4:41", "1:02:03" }),
              juce::StringArray(FlashProgress::formatRate(872.7), FlashProgress::formatRate(1536),
                                FlashProgress::formatDuration(0.2), FlashProgress::formatDuration(281.4),
                                FlashProgress::formatDuration(3723)));
}

TEST(Session, EverySessionEndsWithTheOutcomeWhateverHappened)
{
    const std::string unreadable = "r2=unreadable r3=unreadable r4=unreadable r5=unreadable r6=unreadable";
    // Each session updates the board, verifies it (v) or reads it back (r).
    const struct
    {
        std::string script;
        char kind;
        int pages;
        std::string calls;
        FirmwareStatus status;
        juce::String failure;
        std::vector<int> badPages;
        int written, verified;
        std::vector<const char*> notes;
    } cases[] = {
        { "", 'u', 3, "start erase w0 w1 w2 r0 r1 r2 end1", firmwareStatusSucceeded, {}, {}, 3, 3, {} },
        // Nothing is verified after a refused page.
        { "w3=refuse", 'u', 6, "start erase w0 w1 w2 w3 end3", firmwareStatusAborted,
          "page 3 at 0x00300: failed writing page (NACK)", {}, 3, 0, {} },
        { "w2=retry r1=corrupt r4=unreadable", 'u', 6, "start erase w0 w1 w2 w3 w4 w5 r0 r1 r2 r3 r4 r5 end2",
          firmwareStatusVerifyFailed, {}, { 1, 4 }, 6, 4,
          { "page 2 at 0x00200: wrote page with 2 retries\n", "page 1 at 0x00100: differs at offset 0x021 (board 0x",
            "page 4 at 0x00400: Verify read time out at offset 0x010\n" } },
        { "r2=corrupt", 'v', 3, "start r0 r1 r2 end2", firmwareStatusVerifyFailed, {}, { 2 }, 0, 2, {} },
        { unreadable, 'v', 9, "start r0 r1 r2 r3 r4 end2", firmwareStatusVerifyFailed,
          "gave up after 3 pages in a row could not be read", { 2, 3, 4 }, 0, 2, {} },
        // A read-back changes nothing, so the bootloader learns no outcome.
        { "", 'r', 3, "start r0 r1 r2 end0", firmwareStatusUnknown, {}, {}, 0, 3, {} },
        // Still in its application: nothing more goes to the board, not even an end.
        { "start=refuse", 'u', 2, "start", firmwareStatusUnknown,
          "the board did not enter its bootloader; nothing was written", {}, 0, 0, {} },
        // Stops between pages, not in the middle of one.
        { "w1=interrupt", 'u', 4, "start erase w0 w1 end3", firmwareStatusAborted, "interrupted", {}, 2, 0, {} },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.kind + (" " + c.script));
        Captured out;
        FlashProgress progress { out.file, false };
        FakeUpdater fake(c.script);
        FlashSession session { fake, progress };
        session.setCancelFlag(&fake.stop);
        const auto image = imageOf(c.pages);
        if (c.kind != 'u')
            fake.flash.copyFrom(image.getData(), 0, image.getSize());
        juce::MemoryBlock back;
        const auto report = c.kind == 'r' ? session.read(c.pages, back)
                            : c.kind == 'v' ? session.verify(image) : session.update(image);
        EXPECT_EQ(c.calls, fake.calls);
        EXPECT_EQ(c.status, report.status);
        EXPECT_EQ(c.failure.isEmpty() && c.badPages.empty(), report.ok);
        EXPECT_EQ(c.failure, report.failure);
        EXPECT_EQ(c.failure == "interrupted", report.interrupted);
        EXPECT_EQ(c.badPages, std::vector<int>(report.badPages.begin(), report.badPages.end()));
        EXPECT_EQ(c.written, report.pagesWritten);
        EXPECT_EQ(c.verified, report.pagesVerified);
        EXPECT_EQ(0, std::memcmp(image.getData(), fake.flash.getData(), (size_t) c.written * FakeUpdater::pageSize));
        EXPECT_TRUE(c.kind != 'r' || back == image);
        for (auto note : c.notes)
            EXPECT_NE(std::string::npos, out.text().find(note)) << note;
    }
}
