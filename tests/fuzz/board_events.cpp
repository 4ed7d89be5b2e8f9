// Event lines of every board that sends them, delivered to the console's own
// listeners. Input: the console's letter for the board, then the event line.
#include "FuzzSupport.h"

#include "console/ConsoleListeners.h"
#include "console/dock/DockConsoleListeners.h"

#include <functional>
#include <map>

namespace
{
constexpr uint32_t everyEvent = 0xFFFFFFFFu;
using Handler = std::function<void(const juce::String&)>;

template <typename Board, typename Listener>
Handler wire(Board& board, Listener& listener)
{
    board.registerListener(&listener);
    return [&board](const juce::String& line) { board.eventReceived(line); };
}

struct Boards
{
    std::shared_ptr<DockPlatform> platform = std::make_shared<NullDockPlatform>();
    DiskpackBoard diskpack;
    ChassisBoard chassis;
    TransferBoard transfer;
    DesktopBoard desktop;
    XferDualBoard xferDual;
    RemoteBoard remote;
    TbtSingleBoard single { platform };
    TbtCd2Board cd2 { platform };

    AVRDiskpackEventListener diskpackListener { everyEvent };
    AVRChassisEventListener chassisListener { everyEvent };
    AVRTransferEventListener transferListener { everyEvent };
    AVRDesktopEventListener desktopListener { everyEvent };
    AVRXferDualEventListener xferDualListener { everyEvent };
    RemoteDisplayDemo demo;
    AVRRemoteEventListener remoteListener { everyEvent, demo };
    AVRTbtSingleBoardEventListener singleListener { everyEvent };
    AVRTbtCd2BoardEventListener cd2Listener { everyEvent };

    const std::map<char, Handler> byLetter {
        { 'd', wire(diskpack, diskpackListener) },
        { 'c', wire(chassis, chassisListener) },
        { 'x', wire(transfer, transferListener) },
        { 't', wire(desktop, desktopListener) },
        { 'u', wire(xferDual, xferDualListener) },
        { 'r', wire(remote, remoteListener) },
        { 'm', wire(single, singleListener) },
        { 'n', wire(cd2, cd2Listener) },
    };
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::silenceOutput();
    static Boards boards;
    juce::String line;
    if (size < 1 || !fuzz::textOf(data + 1, size - 1, line))
        return 0;
    const auto board = boards.byLetter.find((char) data[0]);
    if (board != boards.byLetter.end())
        board->second(line);
    return 0;
}
