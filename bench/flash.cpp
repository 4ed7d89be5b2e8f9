// A full application-section update and verify through the XBoot bootloader of
// an emulated diskpack board paced at a real line rate, and the throughput
// achieved as a fraction of what the wire allows.
//
// Usage: bench_flash [PAGES [BAUD]]   (default: the whole section, 19200 baud)
#include "BenchKit.h"
#include "FlashSession.h"
#include "boards/DiskpackBoard.h"
#include "firmware/XBootFWUpdater.h"
#include "support/SimProcess.h"

#include <juce_events/juce_events.h>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

namespace
{
// 8 data bits, even parity, one start and one stop bit.
constexpr double bitsPerCharacter = 11.0;

/** Characters that cross the wire for one page, both directions: a write is
    ":", the page number, the data and a checksum in hex, answered "Y"; a read
    is "$" and the page number, answered with the data and a checksum in hex. */
double charactersPerPage(int pageSize)
{
    const double write = 1 + 4 + 2.0 * pageSize + 2 + 1;
    const double read = 1 + 4 + 2.0 * pageSize + 2;
    return write + read;
}
}

int main(int argc, char** argv)
{
    const juce::ScopedJuceInitialiser_GUI juceRuntime;

    const BenchDir dir("flash-bench");
    if (!dir.ok())
    {
        std::fprintf(stderr, "bench_flash: cannot make a device directory\n");
        return 1;
    }

    const int baud = argc > 2 ? std::atoi(argv[2]) : 19200;
    int status = 1;
    {
        SimProcess sim(dir.path(), { "--board", "d", "--fault", "baud=" + std::to_string(baud) });
        DiskpackBoard board;
        if (!sim.isReady() || !board.findAndOpen(-1))
        {
            std::fprintf(stderr, "bench_flash: the emulated board did not come up\n");
        }
        else
        {
            XBootFWUpdater updater(&board);
            const int pageSize = updater.getFlashPageSize();
            const int sectionPages = updater.getAppSectionSize() / pageSize;
            const int pages = argc > 1 ? juce::jlimit(1, sectionPages, std::atoi(argv[1])) : sectionPages;

            juce::MemoryBlock image((size_t) pages * (size_t) pageSize);
            juce::Random random(20261122);
            random.fillBitsRandomly(image.getData(), image.getSize());

            std::printf("bench_flash: %d pages of %d bytes, update and verify at %d baud\n", pages, pageSize, baud);
            FlashProgress progress(stdout, false);
            FlashSession session(updater, progress);
            const double t0 = juce::Time::getMillisecondCounterHiRes();
            const auto report = session.update(image);
            const double seconds = (juce::Time::getMillisecondCounterHiRes() - t0) / 1000.0;

            if (!report.ok)
            {
                std::fprintf(stderr, "bench_flash: the update failed: %s\n", report.failure.toRawUTF8());
            }
            else
            {
                // The protocol waits for each answer before the next request,
                // so the wire carries one direction at a time: the least time
                // an update and verify can take is all its characters end to end.
                const double wireSeconds = pages * charactersPerPage(pageSize) * bitsPerCharacter / baud;
                const double imageBytes = (double) image.getSize();
                std::printf("bench_flash: %.0f bytes written and verified in %.1f s: %.0f B/s of image (%.0f B/s "
                            "each way)\n",
                            imageBytes, seconds, imageBytes / seconds, 2 * imageBytes / seconds);
                std::printf("bench_flash: the wire allows %.1f s at best (%.0f B/s of image): %.3f of the wire "
                            "limit\n",
                            wireSeconds, imageBytes / wireSeconds, wireSeconds / seconds);
                addTableRow({ "flash update and verify (B/s of image)", fixed(imageBytes / seconds, 0),
                              fixed(imageBytes / wireSeconds, 0) + " (wire limit, " + std::to_string(baud) + " baud)",
                              fixed(wireSeconds / seconds, 3), "-" });
                status = 0;
            }
        }
    }
    return status;
}
