#include "console/Menus.h"

using namespace ConsoleInput;
using Menus::reportFailure;

template <class Board>
bool Menus::diskpackSlotMenu(Board& board, int key)
{
    switch (key)
    {
        case 'D':
            reportFailure(board.setDiskpackPower(askInt("Diskpack power: ") != 0));
            break;

        case 'I':
            printReading(board, &Board::getDiskpackId, "Diskpack ID: %x\n");
            break;

        case 'L':
        {
            int which, mode;
            ask("LED (which, mode): ", "%d %d", which, mode);
            reportFailure(board.setDiskpackLed(which, (DiskpackLedMode) mode));
            break;
        }

        case 'M':
            showTemperatures(board, "Diskpack temperature");
            break;

        case 'O':
            showOperatingHours(board);
            break;

        case 'P':
            reportFailure(board.enableDiskpackTemperatureEvents(askInt("Diskpack temperature check enable: ") != 0));
            break;

        case 'U':
            showGuid(board, &Board::getDiskpackGuid);
            break;

        case 'V':
            showBatteryVoltage(board);
            break;

        default:
            return false;
    }
    return true;
}

template bool Menus::diskpackSlotMenu(DesktopBoard& board, int key);
template bool Menus::diskpackSlotMenu(TransferBoard& board, int key);
