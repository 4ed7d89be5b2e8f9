// avrflash: replaces a serial board's or a Thunderbolt dock's application
// firmware through its bootloader and verifies it page by page.

#include "FirmwareImage.h"
#include "FlashSession.h"
#include "InBootloader.h"

#include "boards/ChassisBoard.h"
#include "boards/DesktopBoard.h"
#include "boards/DiskpackBoard.h"
#include "boards/RemoteBoard.h"
#include "boards/TransferBoard.h"
#include "boards/XferDualBoard.h"
#include "docks/thunderbolt/TbtCd2Board.h"
#include "docks/thunderbolt/TbtSingleBoard.h"
#include "link/ComPort.h"

#include <juce_events/juce_events.h>

#include <atomic>
#include <cstdio>
#include <memory>
#include <string>
#include <unistd.h>

namespace
{
constexpr int exitFailed = 1;
constexpr int exitUsage = 2;

std::atomic<bool> interruptRequested { false };

const char* usageText =
    "Usage: avrflash [OPTIONS] BOARD IMAGE\n"
    "       avrflash [OPTIONS] --verify-only BOARD IMAGE\n"
    "       avrflash [OPTIONS] --read FILE BOARD\n"
    "\n"
    "Replaces the application firmware of a serial board or a Thunderbolt dock\n"
    "through its bootloader, then reads every page back and compares it with the\n"
    "image.\n"
    "\n"
    "BOARD is the board type letter:\n"
    "  c  chassis board              r  remote control board\n"
    "  d  diskpack board             t  desktop transfer station board\n"
    "  x  transfer station board     u  xfer drive dual board\n"
    "  m  Thunderbolt single dock    n  Thunderbolt CD2 dock\n"
    "\n"
    "IMAGE is an Intel HEX file (.hex, .ihx, .ihex) or a raw binary image that\n"
    "starts at flash address 0. It must fit in the application section.\n"
    "\n"
    "Options:\n"
    "  -i, --id N          update the board with id N (default: the first board of\n"
    "                      the type that answers)\n"
    "  -f, --format FMT    read IMAGE (or write FILE) as 'ihex' or 'binary' instead of\n"
    "                      going by the file name\n"
    "      --verify-only   compare the board's flash with IMAGE; write nothing\n"
    "      --read FILE     read the whole application section into FILE (Intel HEX\n"
    "                      if FILE ends in .hex, else raw binary)\n"
    "      --bootloader    the board is already waiting in its bootloader and\n"
    "                      answers with its \"(bootloader)\" identity\n"
    "  -h, --help          show this help\n"
    "\n"
    "Progress goes to standard output: a bar on a terminal, otherwise a line at\n"
    "every tenth of each pass. Diagnostics of the board link go to standard error.\n"
    "\n"
    "Exit status: 0 when every page was written and verified (or read), 1 when the\n"
    "board was not found, the image was refused or any page failed, 2 on bad usage.\n";

struct Options
{
    char board = 0;
    int id = -1;
    juce::File image;
    juce::File readTo;
    bool reading = false;
    bool verifyOnly = false;
    bool inBootloader = false;
    bool help = false;
    FirmwareImage::Format format = FirmwareImage::Format::guess;
};

template <class Board, class... Args>
std::unique_ptr<HardwareBoard> make(bool inBootloader, Args... args)
{
    if (inBootloader)
        return std::make_unique<InBootloader<Board>>(args...);
    return std::make_unique<Board>(args...);
}

template <class Board>
std::unique_ptr<HardwareBoard> serialBoard(bool inBootloader)
{
    return make<Board>(inBootloader);
}

// The docks are reached through the dock platform: the operating system's
// driver, or the dock emulator when AVRTEST_DOCKSIM names its socket.
template <class Board>
std::unique_ptr<HardwareBoard> dockBoard(bool inBootloader)
{
    return make<Board>(inBootloader, DockPlatform::create());
}

juce::String serialPortOf(HardwareBoard& board)
{
    return static_cast<ControlBoard&>(board).getPort().getDevicePath();
}

juce::String registryPathOf(HardwareBoard& board)
{
    return static_cast<MarvellCommsBoard&>(board).getServicePath();
}

/** A board type the tool updates: its letter, how the board is made, where
    it is looked for and how the place it was found is named. */
struct BoardKind
{
    char letter;
    std::unique_ptr<HardwareBoard> (*make)(bool inBootloader);
    const char* searchedOn;
    juce::String (*foundOn)(HardwareBoard& board);
};

const BoardKind boardKinds[] = {
    { 'c', serialBoard<ChassisBoard>, "the serial ports", serialPortOf },
    { 'd', serialBoard<DiskpackBoard>, "the serial ports", serialPortOf },
    { 'm', dockBoard<TbtSingleBoard>, "the Thunderbolt dock driver", registryPathOf },
    { 'n', dockBoard<TbtCd2Board>, "the Thunderbolt dock driver", registryPathOf },
    { 'r', serialBoard<RemoteBoard>, "the serial ports", serialPortOf },
    { 't', serialBoard<DesktopBoard>, "the serial ports", serialPortOf },
    { 'u', serialBoard<XferDualBoard>, "the serial ports", serialPortOf },
    { 'x', serialBoard<TransferBoard>, "the serial ports", serialPortOf },
};

const BoardKind* findBoardKind(juce::juce_wchar letter)
{
    for (const auto& kind : boardKinds)
        if (kind.letter == letter)
            return &kind;
    return nullptr;
}

juce::String boardLetters()
{
    juce::StringArray letters;
    for (const auto& kind : boardKinds)
        letters.add(juce::String::charToString(kind.letter));
    return letters.joinIntoString(", ", 0, letters.size() - 1) + " or " + letters[letters.size() - 1];
}

bool parseNumber(const juce::String& text, int& value)
{
    if (text.isEmpty() || !text.containsOnly("0123456789"))
        return false;
    value = text.getIntValue();
    return text.length() <= 3;
}

bool parseOptions(int argc, char** argv, Options& options, juce::String& error)
{
    juce::StringArray positional;
    for (int i = 1; i < argc; ++i)
    {
        juce::String arg(argv[i]);
        juce::String value;
        const bool joined = arg.startsWith("--") && arg.containsChar('=');
        if (joined)
        {
            value = arg.fromFirstOccurrenceOf("=", false, false);
            arg = arg.upToFirstOccurrenceOf("=", false, false);
        }
        auto takeValue = [&]() -> bool {
            if (joined)
                return true;
            if (i + 1 >= argc)
            {
                error = "option " + arg + " needs a value";
                return false;
            }
            value = argv[++i];
            return true;
        };

        if (arg == "-h" || arg == "--help")
            options.help = true;
        else if (arg == "--verify-only")
            options.verifyOnly = true;
        else if (arg == "--bootloader")
            options.inBootloader = true;
        else if (arg == "-i" || arg == "--id")
        {
            if (!takeValue())
                return false;
            if (!parseNumber(value, options.id) || options.id > 9)
            {
                error = "the board id must be a digit from 0 to 9, not '" + value + "'";
                return false;
            }
        }
        else if (arg == "-f" || arg == "--format")
        {
            if (!takeValue())
                return false;
            if (value == "ihex" || value == "hex")
                options.format = FirmwareImage::Format::intelHex;
            else if (value == "binary" || value == "bin")
                options.format = FirmwareImage::Format::binary;
            else
            {
                error = "unknown image format '" + value + "' (use ihex or binary)";
                return false;
            }
        }
        else if (arg == "--read")
        {
            if (!takeValue())
                return false;
            options.reading = true;
            options.readTo = juce::File::getCurrentWorkingDirectory().getChildFile(value);
        }
        else if (arg.startsWith("-") && arg.length() > 1)
        {
            error = "unknown option " + arg;
            return false;
        }
        else
            positional.add(arg);
    }

    if (options.help)
        return true;
    if (positional.isEmpty())
    {
        error = "no board type given";
        return false;
    }
    if (positional[0].length() != 1 || findBoardKind(positional[0][0]) == nullptr)
    {
        error = "unknown board type '" + positional[0] + "' (use " + boardLetters() + ")";
        return false;
    }
    options.board = (char) positional[0][0];

    const int imagesWanted = options.reading ? 0 : 1;
    if (positional.size() - 1 != imagesWanted)
    {
        error = options.reading ? "--read takes no image" : "give exactly one image file";
        return false;
    }
    if (options.reading && options.verifyOnly)
    {
        error = "--read and --verify-only do not go together";
        return false;
    }
    if (!options.reading)
        options.image = juce::File::getCurrentWorkingDirectory().getChildFile(positional[1]);
    return true;
}

void fail(const juce::String& text)
{
    std::fflush(stdout);
    std::fprintf(stderr, "avrflash: %s\n", text.toRawUTF8());
}

juce::String pageList(const juce::Array<int>& pages)
{
    juce::StringArray shown;
    for (int i = 0; i < pages.size() && i < 10; ++i)
        shown.add(juce::String(pages[i]));
    if (pages.size() > 10)
        shown.add("...");
    return shown.joinIntoString(", ");
}
}

int main(int argc, char** argv)
{
    const juce::ScopedJuceInitialiser_GUI juceRuntime;

    Options options;
    juce::String error;
    if (!parseOptions(argc, argv, options, error))
    {
        fail(error + "\nTry 'avrflash --help'.");
        return exitUsage;
    }
    if (options.help)
    {
        std::fputs(usageText, stdout);
        return 0;
    }

    const auto& kind = *findBoardKind(options.board);
    auto board = kind.make(options.inBootloader);
    std::unique_ptr<HardwareBoardFWUpdater> updater(board->getFWUpdater());
    const int pageSize = updater->getFlashPageSize();
    const int appSection = updater->getAppSectionSize();

    // The image is checked before the board is touched: a refused image must
    // leave the board exactly as it was.
    FirmwareImage image;
    if (!options.reading)
    {
        if (!image.load(options.image, options.format, error))
        {
            fail(error);
            return exitFailed;
        }
        if (image.size() > (size_t) appSection)
        {
            fail(options.image.getFullPathName()
                 + juce::String::formatted(": the image is %d bytes, larger than the %d-byte (0x%05X) application "
                                           "section of this board; the flash above it holds the bootloader. Nothing was "
                                           "written.",
                                           (int) image.size(), appSection, appSection));
            return exitFailed;
        }
    }

    const juce::String idText = options.id >= 0 ? " id " + juce::String(options.id) : juce::String();
    std::printf("Looking for %s%s...\n", board->boardIdString(), idText.toRawUTF8());
    std::fflush(stdout);
    if (!board->findAndOpen(options.id))
    {
        fail("no " + juce::String(board->boardIdString()) + idText + " answered on " + kind.searchedOn);
        return exitFailed;
    }
    const auto version = board->getVersionString();
    std::printf("Found %s%s%s on %s\n", board->boardIdString(), version.isEmpty() ? "" : " ", version.toRawUTF8(),
                kind.foundOn(*board).toRawUTF8());

    setControlCHandler([] { interruptRequested = true; });
    FlashProgress progress(stdout, isatty(STDOUT_FILENO) == 1);
    FlashSession session(*updater, progress);
    session.setCancelFlag(&interruptRequested);

    FlashReport report;
    juce::MemoryBlock readBack;
    if (options.reading)
    {
        report = session.read(appSection / pageSize, readBack);
    }
    else
    {
        const auto padded = image.paddedTo(pageSize);
        std::printf("%s %s: %s, %d bytes in %d pages of %d\n", options.verifyOnly ? "Verifying against" : "Writing",
                    options.image.getFileName().toRawUTF8(), FirmwareImage::formatName(image.format()),
                    (int) image.size(), image.pageCount(pageSize), pageSize);
        report = options.verifyOnly ? session.verify(padded) : session.update(padded);
    }
    // The board is now restarting (or was never handed to its bootloader, and
    // left as it was): its class's close-time command would only reach it as
    // noise.
    board->closeBoardWithoutClosingCommand();

    if (report.endFailed)
        fail("the bootloader did not acknowledge the end of the session");

    if (!report.failure.isEmpty())
    {
        fail((options.reading ? "read failed: " : options.verifyOnly ? "verify failed: " : "update failed: ")
             + report.failure);
        return exitFailed;
    }
    if (!report.badPages.isEmpty())
    {
        fail(juce::String(report.badPages.size()) + " of " + juce::String(report.pages)
             + (options.reading ? " pages could not be read: " : " pages did not verify: ") + pageList(report.badPages));
        return exitFailed;
    }

    if (options.reading)
    {
        if (!FirmwareImage::save(options.readTo, options.format, readBack, error))
        {
            fail(error);
            return exitFailed;
        }
        std::printf("Read %d pages (%d bytes) into %s\n", report.pages, (int) readBack.getSize(),
                    options.readTo.getFullPathName().toRawUTF8());
    }
    else if (options.verifyOnly)
    {
        std::printf("Verified: all %d pages match %s\n", report.pagesVerified, options.image.getFileName().toRawUTF8());
    }
    else
    {
        std::printf("Updated and verified: %d pages written, %d read back equal\n", report.pagesWritten,
                    report.pagesVerified);
    }
    return report.ok ? 0 : exitFailed;
}
