#include "console/Menus.h"

using namespace ConsoleInput;
using Menus::reportFailure;

bool diskpackMenu(DiskpackBoard& board, int key)
{
    switch (key)
    {
        case 'A':
            reportFailure(board.monitorDiskActivity(askInt("Set monitor disk activity: ") != 0));
            break;

        case 'B':
            // The board class maps the level onto the display's drive range;
            // out-of-range levels are its business.
            reportFailure(board.setDisplayBrightness(askInt("Brightness (0-15): ")));
            break;

        case 'C':
            reportFailure(board.prepareClosedown());
            break;

        case 'D':
        {
            printf("Display text: ");
            const std::string text = readTextLine();
            reportFailure(board.setDisplayText(text.c_str()));
            break;
        }

        case 'E':
            Menus::showSasAddress(board);
            break;

        case 'G':
        {
            const int backplane = askInt("Which backplane: ");
            const int rail = askInt("Rail (0-3=12V,5V,3V3,1V2): ");
            int value = 0;
            if (board.getBackplaneVoltageRail(backplane, rail, value))
                printf("Voltage: %d mV\n", value);
            else
                puts("Failed");
            break;
        }

        case 'I':
        {
            bool parallel = false;
            if (board.getParallelScsiType(parallel))
                puts(parallel ? "Parallel SCSI" : "SAS");
            else
                puts("Failed");
            break;
        }

        case 'L':
        {
            int r, g, b, flash;
            ask("Set LED (r,g,b,flash): ", "%d %d %d %d", r, g, b, flash);
            reportFailure(board.setLed(r, g, b, flash));
            break;
        }

        case 'M':
            Menus::showTemperatures(board, "Temperatures");
            break;

        case 'O':
            Menus::showOperatingHours(board);
            break;

        case 'Q':
            reportFailure(board.setNumTextPages(askInt("Num text pages: ")));
            break;

        case 'R':
        {
            const int page = askInt("Read text (page): ");
            juce::String text;
            if (board.readText(page, text))
                puts(text.toRawUTF8());
            else
                puts("Failed");
            break;
        }

        case 'S':
            reportFailure(board.setScsiIdMsb(askInt("Scsi Id Msb: ") != 0));
            break;

        case 'T':
            reportFailure(board.enableTemperatureEvents(askInt("Temperature check enable: ") != 0));
            break;

        case 'U':
            Menus::showGuid(board, &DiskpackBoard::getGuid);
            break;

        case 'V':
            Menus::showBatteryVoltage(board);
            break;

        case 'W':
        {
            printf("Write text (page, text): ");
            int page = 0;
            std::string text;
            readNumberAndText(page, text);
            reportFailure(board.writeText(page, text.c_str()));
            break;
        }

        case 'X':
            reportFailure(board.setWriteProtect(askInt("Write protect: ") != 0));
            break;

        case 'Y':
        {
            bool protectedNow = false;
            if (board.getWriteProtect(protectedNow))
                printf("%sWrite Protected\n", protectedNow ? "" : "Not ");
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
