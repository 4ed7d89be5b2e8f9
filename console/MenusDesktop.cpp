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
            Menus::showPhyErrors(board, &DesktopBoard::getPhyErrorCount);
            break;

        case 'C':
            puts(board.clearErrorCounts() ? "Error counts cleared" : "Failed");
            break;

        case 'E':
            Menus::showExpanderAddress(board);
            break;

        case 'F':
            reportFailure(board.resetPhy(askInt("Phy: ")));
            break;

        case 'H':
            reportFailure(board.setLedId(askInt("Id: ")));
            break;

        case 'N':
        {
            int phy, min, max;
            ask("Phy, Min, Max (0=1.5,1=3): ", "%d %d %d", phy, min, max);
            reportFailure(board.setPhyMinMaxSpeed(phy, Menus::desktopPhySpeed(min), Menus::desktopPhySpeed(max)));
            break;
        }

        case 'R':
            puts(board.sasReset() ? "SAS expander reset" : "Failed");
            break;

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
            return Menus::diskpackSlotMenu(board, key);
    }
    return true;
}
