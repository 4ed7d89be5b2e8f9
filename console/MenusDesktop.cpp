#include "console/Menus.h"
#include "console/ConsoleListeners.h"

using namespace ConsoleInput;
using Menus::reportFailure;

namespace
{
const char* const help =
    "\nZ reset EEPROM, I get diskpack ID, O get op hours,\nV get voltage, M get temps, P diskpack temp, U get "
    "guid,\nL set leds, E get SAS addr, A get disk addr, R reset SAS\nD diskpack power, X set write protect, Y "
    "get write protect,\nH set id leds, W program SAS EEPROM, F reset PHY\nC clear phy errors, B get phy "
    "errors, N set phy min/max speed,\nx exit\n";

const MenuKey<DesktopBoard> keys[] = {
    { 'A', [](DesktopBoard& board) {
        const int disk = askInt("Disk:  ");
        juce::String addr;
        if (board.sasGetDiskAddr(disk, addr))
            printf("Disk address: %s\n", addr.toRawUTF8());
        else
            puts("Failed");
      } },
    { 'B', [](DesktopBoard& board) { Menus::showPhyErrors(board, &DesktopBoard::getPhyErrorCount); } },
    { 'C', [](DesktopBoard& board) { puts(board.clearErrorCounts() ? "Error counts cleared" : "Failed"); } },
    { 'E', [](DesktopBoard& board) { Menus::showExpanderAddress(board); } },
    { 'F', [](DesktopBoard& board) { reportFailure(board.resetPhy(askInt("Phy: "))); } },
    { 'H', [](DesktopBoard& board) { reportFailure(board.setLedId(askInt("Id: "))); } },
    { 'N', [](DesktopBoard& board) {
        int phy, min, max;
        ask("Phy, Min, Max (0=1.5,1=3): ", "%d %d %d", phy, min, max);
        reportFailure(board.setPhyMinMaxSpeed(phy, Menus::desktopPhySpeed(min), Menus::desktopPhySpeed(max)));
      } },
    { 'R', [](DesktopBoard& board) { puts(board.sasReset() ? "SAS expander reset" : "Failed"); } },
    { 'W', [](DesktopBoard& board) {
        const int serial = askInt("Serial: ");
        puts("Programming EEPROM...");
        fflush(stdout);
        puts(Menus::programResultText(board.sasProgramEeprom(serial)));
      } },
    { 'X', [](DesktopBoard& board) {
        reportFailure(board.setDiskpackWriteProtect(askInt("Set write protect: ") != 0));
      } },
    { 'Y', [](DesktopBoard& board) {
        bool protectedNow = false;
        if (board.getDiskpackWriteProtect(protectedNow))
            printf("Diskpack is %swrite protected\n", protectedNow ? "" : "not ");
        else
            puts("Failed");
      } },
    { 'Z', [](DesktopBoard& board) { Menus::resetWithConfirmation(board); } },
};

bool runKey(DesktopBoard& board, int key)
{
    return runMenuKey(keys, board, key) || Menus::diskpackSlotMenu(board, key);
}
} // namespace

const BoardMenu desktopMenu { help, BoardSession::start<DesktopBoard, AVRDesktopEventListener, runKey> };
