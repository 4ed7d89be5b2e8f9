#include "FlashSession.h"

namespace
{
/** What the bootloader is told once a verify pass has run. */
FirmwareStatus outcomeOf(const FlashReport& report)
{
    if (report.ok)
        return firmwareStatusSucceeded;
    return report.interrupted ? firmwareStatusAborted : firmwareStatusVerifyFailed;
}

const unsigned char* pageOf(const juce::MemoryBlock& block, int page, int pageSize)
{
    return static_cast<const unsigned char*>(block.getData()) + (size_t) page * (size_t) pageSize;
}
}

FlashSession::FlashSession(HardwareBoardFWUpdater& u, FlashProgress& p)
    : updater(u), progress(p), pageSize(u.getFlashPageSize())
{
}

juce::String FlashSession::pageName(int page) const
{
    return juce::String::formatted("page %d at 0x%05X", page, page * pageSize);
}

bool FlashSession::cancelled(FlashReport& report) const
{
    if (cancel == nullptr || !cancel->load())
        return false;
    report.failure = "interrupted";
    report.interrupted = true;
    return true;
}

bool FlashSession::start(FlashReport& report)
{
    if (updater.startFirmwareUpdate())
        return true;
    // The board is still running its application, which has no session to
    // end: "#" or an outcome would only reach it as noise.
    report.failure = "the board did not enter its bootloader; nothing was written";
    return false;
}

void FlashSession::finish(FlashReport& report, FirmwareStatus status)
{
    report.status = status;
    report.endFailed = !updater.endFirmwareUpdate(status);
}

FlashReport FlashSession::update(const juce::MemoryBlock& image)
{
    FlashReport report;
    report.pages = (int) (image.getSize() / (size_t) pageSize);
    if (!start(report))
        return report;

    if (!updater.eraseApplicationSection())
    {
        report.failure = "the bootloader did not erase the application section";
        finish(report, firmwareStatusAborted);
        return report;
    }
    if (!writePages(image, report))
    {
        finish(report, firmwareStatusAborted);
        return report;
    }
    // Read back only once everything is written, so that the comparison sees
    // the flash as the board will run it.
    verifyPages(image, report);
    finish(report, outcomeOf(report));
    return report;
}

FlashReport FlashSession::verify(const juce::MemoryBlock& image)
{
    FlashReport report;
    report.pages = (int) (image.getSize() / (size_t) pageSize);
    if (!start(report))
        return report;
    verifyPages(image, report);
    finish(report, outcomeOf(report));
    return report;
}

FlashReport FlashSession::read(int pageCount, juce::MemoryBlock& out)
{
    FlashReport report;
    report.pages = pageCount;
    out.setSize((size_t) pageCount * (size_t) pageSize);
    out.fillWith(0xFF);
    if (!start(report))
        return report;

    progress.begin("Reading", pageCount, pageSize);
    int unreadable = 0;
    for (int page = 0; page < pageCount && !cancelled(report); ++page)
    {
        auto* into = static_cast<unsigned char*>(out.getData()) + (size_t) page * (size_t) pageSize;
        const auto result = readPage(page, into, unreadable, report);
        if (result == PageRead::gaveUp)
            break;
        if (result == PageRead::read)
            ++report.pagesVerified;
        progress.pageDone();
    }
    progress.end();
    report.ok = report.failure.isEmpty() && report.badPages.isEmpty();
    // Nothing was changed: the bootloader learns no outcome, unless the
    // technician broke the session off.
    finish(report, report.interrupted ? firmwareStatusAborted : firmwareStatusUnknown);
    return report;
}

FlashSession::PageRead FlashSession::readPage(int page, unsigned char* into, int& unreadable, FlashReport& report)
{
    juce::String message;
    if (updater.readApplicationPage(into, page, message))
    {
        unreadable = 0;
        if (message.isNotEmpty())
            progress.note(pageName(page) + ": " + message.trim());
        return PageRead::read;
    }
    report.badPages.add(page);
    progress.note(pageName(page) + ": " + (message.isEmpty() ? juce::String("not read") : message.trim()));
    if (++unreadable < unreadablePagesBeforeGivingUp)
        return PageRead::unreadable;
    report.failure = "gave up after " + juce::String(unreadable) + " pages in a row could not be read";
    return PageRead::gaveUp;
}

bool FlashSession::writePages(const juce::MemoryBlock& image, FlashReport& report)
{
    progress.begin("Writing", report.pages, pageSize);
    for (int page = 0; page < report.pages; ++page)
    {
        if (cancelled(report))
        {
            progress.end();
            return false;
        }
        juce::String message;
        if (!updater.programApplicationPage(pageOf(image, page, pageSize), page, message))
        {
            // A half-written application must not be verified as if it were
            // the image: stop here and say where.
            report.failure = pageName(page) + ": " + (message.isEmpty() ? juce::String("not written") : message.trim());
            progress.end();
            return false;
        }
        if (message.isNotEmpty())
            progress.note(pageName(page) + ": " + message.trim());
        ++report.pagesWritten;
        progress.pageDone();
    }
    progress.end();
    return true;
}

void FlashSession::verifyPages(const juce::MemoryBlock& image, FlashReport& report)
{
    progress.begin("Verifying", report.pages, pageSize);
    juce::HeapBlock<unsigned char> readBack((size_t) pageSize);
    int unreadable = 0;
    for (int page = 0; page < report.pages && !cancelled(report); ++page)
    {
        const auto result = readPage(page, readBack.get(), unreadable, report);
        if (result == PageRead::gaveUp)
            break;
        if (result == PageRead::unreadable)
        {
            progress.pageDone();
            continue;
        }

        const auto* expected = pageOf(image, page, pageSize);
        int offset = 0;
        while (offset < pageSize && readBack[offset] == expected[offset])
            ++offset;
        if (offset < pageSize)
        {
            report.badPages.add(page);
            progress.note(pageName(page) + juce::String::formatted(": differs at offset 0x%03X (board 0x%02X, image 0x%02X)",
                                                                   offset, readBack[offset], expected[offset]));
        }
        else
        {
            ++report.pagesVerified;
        }
        progress.pageDone();
    }
    progress.end();
    report.ok = report.failure.isEmpty() && report.badPages.isEmpty() && report.pagesVerified == report.pages;
}
