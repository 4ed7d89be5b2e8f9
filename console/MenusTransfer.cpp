#include "console/Menus.h"

using namespace ConsoleInput;
using Menus::reportFailure;

namespace
{
// What the board reports when it has no battery gauge fitted.
constexpr int capacityNotAvailable = 255;
constexpr int currentNotAvailable = 65535;

void enterSasAddress(TransferBoard& board)
{
    const int expander = askInt("Which expander: ");
    // The answer's line end went with the answer, so the address starts with
    // the next key. No length limit here: the board class refuses anything but
    // an empty or a full-length address, and a cut-off typo must not pass.
    const std::string addr = readRawLine("Address (return to reset): ", std::string::npos);
    reportFailure(board.setSasAddr(expander, juce::String(addr)));
}

/** A battery gauge reading: `notAvailable` from the board means no gauge. */
void showGaugeReading(TransferBoard& board, bool (TransferBoard::*read)(int&), int notAvailable, const char* format,
                      const char* notAvailableLine)
{
    int value = 0;
    if (!(board.*read)(value))
        puts("Failed");
    else if (value == notAvailable)
        puts(notAvailableLine);
    else
        printf(format, value);
}
}

bool transferMenu(TransferBoard& board, int key)
{
    switch (key)
    {
        case 'B':
            showGaugeReading(board, &TransferBoard::getBatteryCapacity, capacityNotAvailable,
                             "Battery Capacity: %d%%\n", "Battery Capacity: not available");
            break;

        case 'C':
            showGaugeReading(board, &TransferBoard::getBatteryCurrent, currentNotAvailable,
                             "Battery Current: %d mA\n", "Battery Current: not available");
            break;

        case 'E':
            Menus::showSasAddress(board);
            break;

        case 'F':
            reportFailure(board.setFanSpeed(askInt("Fan speed: ")));
            break;

        case 'H':
            reportFailure(board.setInternalDiskPower(askInt("Internal drive power: ") != 0));
            break;

        case 'N':
        {
            const int disks = board.getNumInternalDisks();
            const bool tape = board.getTapeDriveFitted();
            printf("%d internal disks, %stape drive\n", disks, tape ? "" : "no ");
            break;
        }

        case 'R':
        {
            int disks, tape;
            ask("Num disks, tape drive: ", "%d %d", disks, tape);
            reportFailure(board.setDevicesFitted(disks, tape != 0));
            break;
        }

        case 'S':
            enterSasAddress(board);
            break;

        case 'T':
            reportFailure(board.setTapeDrivePower(askInt("Tape drive power: ") != 0));
            break;

        case 'W':
            reportFailure(board.setFanPwmFreq(askInt("Fan freq (0 - 5 = 904, 226, 113, 56(default), 28, 7): ")));
            break;

        case 'X':
        {
            int which, enable;
            ask("Set write protect (0 = pack, 1 = internal): ", "%d %d", which, enable);
            reportFailure(which == 0 ? board.setDiskpackWriteProtect(enable != 0)
                                     : board.setInternalDisksWriteProtect(enable != 0));
            break;
        }

        case 'Y':
        {
            const int which = askInt("Get write protect (0 = pack, 1 = internal): ");
            bool protectedNow = false;
            if (which == 0 ? !board.getDiskpackWriteProtect(protectedNow)
                           : !board.getInternalDisksWriteProtect(protectedNow))
                puts("Failed");
            else if (which == 0)
                printf("Diskpack is %swrite protected\n", protectedNow ? "" : "not ");
            else
                printf("Internal disks are %swrite protected\n", protectedNow ? "" : "not ");
            break;
        }

        case 'Z':
            Menus::resetWithConfirmation(board);
            break;

        default:
            return Menus::diskpackSlotMenu(board, key);
    }
    return true;
}
