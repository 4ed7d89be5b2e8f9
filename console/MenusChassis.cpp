#include "console/Menus.h"
#include "console/ConsoleListeners.h"

using namespace ConsoleInput;
using Menus::reportFailure;

namespace
{
const char* const help =
    "\nV volume, R brightness, I inverter,\nE leds, L lock, P power, F fan speed,\nT reset shuttle, C colour, A "
    "ambient mode,\nS enable screen saver, H check bay connected,\nx exit\n";

const MenuKey<ChassisBoard> keys[] = {
    { 'A', [](ChassisBoard& board) { reportFailure(board.setAmbientMode(askInt("Ambient: ") != 0)); } },
    { 'C', [](ChassisBoard& board) {
        int a, b, c, d;
        ask("Colour: ", "%d %d %d %d", a, b, c, d);
        reportFailure(board.setColour(a, b, c, d));
      } },
    { 'E', [](ChassisBoard& board) { reportFailure(board.setLedState(askInt("LEDS: "))); } },
    { 'F', [](ChassisBoard& board) {
        int which, speed;
        ask("Fan speed: ", "%d %d", which, speed);
        reportFailure(board.setDiskPackFanSpeed(which, speed));
      } },
    { 'H', [](ChassisBoard& board) {
        const int bay = askInt("Check bay connected: ");
        // The board leaves the flag alone when it cannot answer; the bay
        // line still follows "Failed" and then reads "not connected".
        bool connected = false;
        reportFailure(board.checkBayConnected(bay, connected));
        printf("Bay %d is %sconnected\n", bay, connected ? "" : "not ");
      } },
    { 'I', [](ChassisBoard& board) { reportFailure(board.setInverter(askInt("Inverter: ") != 0)); } },
    { 'L', [](ChassisBoard& board) {
        int which, lock;
        ask("Lock: ", "%d %d", which, lock);
        reportFailure(board.setDiskPackLock(which, lock != 0));
      } },
    { 'P', [](ChassisBoard& board) {
        int which, on;
        ask("Power: ", "%d %d", which, on);
        reportFailure(board.setDiskPackPower(which, on != 0));
      } },
    { 'R', [](ChassisBoard& board) { reportFailure(board.setBrightness(askInt("Set brightness: "))); } },
    { 'S', [](ChassisBoard& board) {
        reportFailure(board.setScreenSaverEnable(askInt("Enable screen saver: ") != 0));
      } },
    { 'T', [](ChassisBoard& board) { reportFailure(board.resetShuttle()); } },
    { 'V', [](ChassisBoard& board) { reportFailure(board.setVolume(askInt("Set volume: "))); } },
};
} // namespace

const BoardMenu chassisMenu {
    help, BoardSession::start<ChassisBoard, AVRChassisEventListener, runKeyTable<ChassisBoard, keys>>
};
