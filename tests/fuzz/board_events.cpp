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

    const std::map<char, std::function<void(const juce::String&)>> byLetter {
        { 'd', [this](const juce::String& l) { diskpack.eventReceived(l); } },
        { 'c', [this](const juce::String& l) { chassis.eventReceived(l); } },
        { 'x', [this](const juce::String& l) { transfer.eventReceived(l); } },
        { 't', [this](const juce::String& l) { desktop.eventReceived(l); } },
        { 'u', [this](const juce::String& l) { xferDual.eventReceived(l); } },
        { 'r', [this](const juce::String& l) { remote.eventReceived(l); } },
        { 'm', [this](const juce::String& l) { single.eventReceived(l); } },
        { 'n', [this](const juce::String& l) { cd2.eventReceived(l); } },
    };

    Boards()
    {
        diskpack.registerListener(&diskpackListener);
        chassis.registerListener(&chassisListener);
        transfer.registerListener(&transferListener);
        desktop.registerListener(&desktopListener);
        xferDual.registerListener(&xferDualListener);
        remote.registerListener(&remoteListener);
        single.registerListener(&singleListener);
        cd2.registerListener(&cd2Listener);
    }
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
