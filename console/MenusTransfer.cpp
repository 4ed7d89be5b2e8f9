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
}

bool transferMenu(TransferBoard& board, int key)
{
    switch (key)
    {
        case 'B':
        {
            int percent = 0;
            if (!board.getBatteryCapacity(percent))
                puts("Failed");
            else if (percent == capacityNotAvailable)
                puts("Battery Capacity: not available");
            else
                printf("Battery Capacity: %d%%\n", percent);
            break;
        }

        case 'C':
        {
            int mA = 0;
            if (!board.getBatteryCurrent(mA))
                puts("Failed");
            else if (mA == currentNotAvailable)
                puts("Battery Current: not available");
            else
                printf("Battery Current: %d mA\n", mA);
            break;
        }

        case 'D':
            reportFailure(board.setDiskpackPower(askInt("Diskpack power: ") != 0));
            break;

        case 'E':
        {
            const int expander = askInt("Which expander: ");
            juce::String addr;
            if (board.getSasAddr(expander, addr))
                printf("SAS address %d: %s\n", expander, addr.toRawUTF8());
            else
                puts("Failed");
            break;
        }

        case 'F':
            reportFailure(board.setFanSpeed(askInt("Fan speed: ")));
            break;

        case 'H':
            reportFailure(board.setInternalDiskPower(askInt("Internal drive power: ") != 0));
            break;

        case 'I':
        {
            int id = 0;
            if (board.getDiskpackId(id))
                printf("Diskpack ID: %x\n", id);
            else
                puts("Failed");
            break;
        }

        case 'L':
        {
            int which, mode;
            ask("LED (which, mode): ", "%d %d", which, mode);
            reportFailure(board.setDiskpackLed(which, (DiskpackLedMode) mode));
            break;
        }

        case 'M':
        {
            int min = 0, max = 0;
            if (board.getMinMaxTemperatures(min, max))
                printf("Diskpack temperature Min: %d Max: %d\n", min, max);
            else
                puts("Failed");
            break;
        }

        case 'N':
        {
            const int disks = board.getNumInternalDisks();
            const bool tape = board.getTapeDriveFitted();
            printf("%d internal disks, %stape drive\n", disks, tape ? "" : "no ");
            break;
        }

        case 'O':
        {
            int hours = 0;
            if (board.getOperatingHours(hours))
                printf("Operating hours: %d\n", hours);
            else
                puts("Failed");
            break;
        }

        case 'P':
            reportFailure(board.enableDiskpackTemperatureEvents(askInt("Diskpack temperature check enable: ") != 0));
            break;

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

        case 'U':
        {
            juce::String guid;
            if (board.getDiskpackGuid(guid))
                printf("Guid: %s\n", guid.toRawUTF8());
            else
                puts("Failed");
            break;
        }

        case 'V':
        {
            int mV = 0;
            if (board.getBatteryVoltage(mV))
                printf("Battery Voltage: %d mV\n", mV);
            else
                puts("Failed");
            break;
        }

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
            return false;
    }
    return true;
}
