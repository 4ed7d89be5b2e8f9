#include "console/Menus.h"

using namespace ConsoleInput;
using namespace Menus;

namespace
{
template <class Board>
const MenuKey<Board> slotKeys[] = {
    { 'D', [](Board& board) { reportFailure(board.setDiskpackPower(askInt("Diskpack power: ") != 0)); } },
    { 'I', [](Board& board) { printReading(board, &Board::getDiskpackId, "Diskpack ID: %x\n"); } },
    { 'L', [](Board& board) {
        int which, mode;
        ask("LED (which, mode): ", "%d %d", which, mode);
        reportFailure(board.setDiskpackLed(which, (DiskpackLedMode) mode));
      } },
    { 'M', [](Board& board) { showTemperatures(board, "Diskpack temperature"); } },
    { 'O', [](Board& board) { showOperatingHours(board); } },
    { 'P', [](Board& board) {
        reportFailure(board.enableDiskpackTemperatureEvents(askInt("Diskpack temperature check enable: ") != 0));
      } },
    { 'U', [](Board& board) { showGuid(board, &Board::getDiskpackGuid); } },
    { 'V', [](Board& board) { showBatteryVoltage(board); } },
};
} // namespace

template <class Board>
bool Menus::diskpackSlotMenu(Board& board, int key)
{
    return runMenuKey(slotKeys<Board>, board, key);
}

template bool Menus::diskpackSlotMenu(DesktopBoard& board, int key);
template bool Menus::diskpackSlotMenu(TransferBoard& board, int key);
