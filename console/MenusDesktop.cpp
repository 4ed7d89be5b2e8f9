#include "console/Menus.h"

using namespace ConsoleInput;
using Menus::reportFailure;

bool desktopMenu(DesktopBoard& board, int key)
{
    switch (key)
    {
        case 'A':
        {
            const int disk = askInt("Disk:  ");
            juce::String addr;
            if (board.sasGetDiskAddr(disk, addr))
                printf("Disk address: %s\n", addr.toRawUTF8());
            else
                puts("Failed");
            break;
        }

        case 'B':
        {
            const int phy = askInt("Phy: ");
            int count = 0;
            if (board.getPhyErrorCount(phy, count))
                printf("Phy %d errors %d\n", phy, count);
            else
                puts("Failed");
            break;
        }

        case 'C':
            puts(board.clearErrorCounts() ? "Error counts cleared" : "Failed");
            break;

        case 'D':
            reportFailure(board.setDiskpackPower(askInt("Diskpack power: ") != 0));
            break;

        case 'E':
        {
            juce::String addr;
            if (board.sasGetExpanderAddr(addr))
                printf("SAS address: %s\n", addr.toRawUTF8());
            else
                puts("Failed");
            break;
        }

        case 'F':
            reportFailure(board.resetPhy(askInt("Phy: ")));
            break;

        case 'H':
            reportFailure(board.setLedId(askInt("Id: ")));
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
            int phy, min, max;
            ask("Phy, Min, Max (0=1.5,1=3): ", "%d %d %d", phy, min, max);
            reportFailure(board.setPhyMinMaxSpeed(phy, Menus::desktopPhySpeed(min), Menus::desktopPhySpeed(max)));
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
            puts(board.sasReset() ? "SAS expander reset" : "Failed");
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
        {
            const int serial = askInt("Serial: ");
            puts("Programming EEPROM...");
            fflush(stdout);
            puts(Menus::programResultText(board.sasProgramEeprom(serial)));
            break;
        }

        case 'X':
            reportFailure(board.setDiskpackWriteProtect(askInt("Set write protect: ") != 0));
            break;

        case 'Y':
        {
            bool protectedNow = false;
            if (board.getDiskpackWriteProtect(protectedNow))
                printf("Diskpack is %swrite protected\n", protectedNow ? "" : "not ");
            else
                puts("Failed");
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
