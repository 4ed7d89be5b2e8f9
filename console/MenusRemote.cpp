#include "console/Menus.h"
#include "console/ConsoleListeners.h"
#include "console/RemoteDisplayDemo.h"

using namespace ConsoleInput;
using Menus::reportFailure;

namespace
{
/** The name is out before the board is asked, so "Failed" follows it on its line. */
void showSetting(RemoteBoard& board, const char* name, bool (RemoteBoard::*read)(int&))
{
    printf("%s: ", name);
    fflush(stdout);
    Menus::printReading(board, read, "%d\n");
}

/** The remote's keys run with its display demonstration at hand (key G). */
struct RemoteSession : BoardSession
{
    explicit RemoteSession(RemoteBoard& b) : board(b) {}
    HardwareBoardEventListener& getListener() override { return listener; }
    bool handleKey(int key) override;

    RemoteBoard& board;
    RemoteDisplayDemo demo;
    AVRRemoteEventListener listener { AVRRemoteEventListener::allEvents, demo };
};

// G runs the display demonstration; it is left out of the help on purpose.
const char* const help =
    "\nC set contrast, E get contrast, R ring colour\nF set ring brightness, I get ring brightness\nA ambient Q "
    "qtouch events,\nM boot message x exit\n";

const MenuKey<RemoteSession> keys[] = {
    { 'A', [](RemoteSession& s) { reportFailure(s.board.setAmbientMode(askInt("Ambient: ") != 0)); } },
    { 'C', [](RemoteSession& s) { reportFailure(s.board.setContrast(askInt("Set contrast: "))); } },
    { 'E', [](RemoteSession& s) { showSetting(s.board, "Contrast", &RemoteBoard::getContrast); } },
    { 'F', [](RemoteSession& s) { reportFailure(s.board.setRingBright(askInt("Set ring brightness: "))); } },
    { 'G', [](RemoteSession& s) { s.demo.run(s.board); } },
    { 'I', [](RemoteSession& s) { showSetting(s.board, "Ring brightness", &RemoteBoard::getRingBright); } },
    { 'M', [](RemoteSession& s) {
        const std::string message = readRawLine("Message: ", Menus::maxBootMessageLength);
        reportFailure(s.board.bootMessage(message.c_str()));
      } },
    { 'Q', [](RemoteSession& s) { reportFailure(s.board.enableQtEvents(askInt("Enable Qtouch events: ") != 0)); } },
    { 'R', [](RemoteSession& s) {
        int r, g, b, mode;
        ask("Ring colour: ", "%d %d %d %d", r, g, b, mode);
        reportFailure(s.board.setColour(r, g, b, mode));
      } },
};

bool RemoteSession::handleKey(int key)
{
    return runMenuKey(keys, *this, key);
}
} // namespace

const BoardMenu remoteMenu { help, [](HardwareBoard& board) -> std::unique_ptr<BoardSession> {
                                 return std::make_unique<RemoteSession>(static_cast<RemoteBoard&>(board));
                             } };
