#pragma once

#include "FlashProgress.h"
#include "firmware/HardwareBoardFWUpdater.h"

#include <atomic>

/** What a session did. `ok` only when every page it meant to handle was
    written (for an update) and read back equal (or read, for a read-back). */
struct FlashReport
{
    bool ok = false;
    /** The outcome handed to the bootloader at the end. */
    FirmwareStatus status = firmwareStatusUnknown;
    int pages = 0;
    int pagesWritten = 0;
    /** Pages read back: equal to the image when comparing, or just read. */
    int pagesVerified = 0;
    /** Pages that could not be read or differ from the image. */
    juce::Array<int> badPages;
    /** Why the session stopped short, for the technician. */
    juce::String failure;
    /** Stopped by the cancel flag. */
    bool interrupted = false;
    /** The bootloader did not take the end of the session. */
    bool endFailed = false;
};

/** Drives one bootloader session through an updater, page by page. Once the
    board has entered its bootloader the session ends with the outcome whatever
    happens; a board that refuses to enter it is sent nothing more. Notes on
    single pages (retries, mismatches) go to the progress display. */
class FlashSession
{
public:
    /** A verify pass gives up after this many pages in a row could not be read:
        a board that stopped answering would otherwise take minutes per page. */
    static constexpr int unreadablePagesBeforeGivingUp = 3;

    FlashSession(HardwareBoardFWUpdater& updater, FlashProgress& progress);

    /** Checked between pages: once set, the session stops and ends as aborted. */
    void setCancelFlag(const std::atomic<bool>* flag) noexcept { cancel = flag; }

    /** Erases, writes `image` (whole pages), reads every page back and compares. */
    FlashReport update(const juce::MemoryBlock& image);
    /** Reads every page of `image` back and compares, writing nothing. */
    FlashReport verify(const juce::MemoryBlock& image);
    /** Reads `pageCount` pages from page 0 into `out`. */
    FlashReport read(int pageCount, juce::MemoryBlock& out);

private:
    bool start(FlashReport& report);
    bool writePages(const juce::MemoryBlock& image, FlashReport& report);
    void verifyPages(const juce::MemoryBlock& image, FlashReport& report);

    enum class PageRead { read, unreadable, gaveUp };
    /** Reads one page; an unreadable one is noted and counted in `unreadable`
        (reset by a good read) until the session gives up. */
    PageRead readPage(int page, unsigned char* into, int& unreadable, FlashReport& report);
    void finish(FlashReport& report, FirmwareStatus status);
    juce::String pageName(int page) const;

    bool cancelled(FlashReport& report) const;

    HardwareBoardFWUpdater& updater;
    FlashProgress& progress;
    const int pageSize;
    const std::atomic<bool>* cancel = nullptr;
};
