#include "console/Menus.h"

#include "console/RemoteDisplayDemo.h"

using namespace ConsoleInput;
using Menus::reportFailure;

bool remoteMenu(RemoteBoard& board, int key)
{
    switch (key)
    {
        case 'A':
            reportFailure(board.setAmbientMode(askInt("Ambient: ") != 0));
            break;

        case 'C':
            reportFailure(board.setContrast(askInt("Set contrast: ")));
            break;

        case 'E':
        {
            printf("Contrast: ");
            fflush(stdout);
            int contrast = 0;
            if (board.getContrast(contrast))
                printf("%d\n", contrast);
            else
                puts("Failed");
            break;
        }

        case 'F':
            reportFailure(board.setRingBright(askInt("Set ring brightness: ")));
            break;

        case 'G':
            RemoteDisplayDemo::run(board);
            break;

        case 'I':
        {
            printf("Ring brightness: ");
            fflush(stdout);
            int brightness = 0;
            if (board.getRingBright(brightness))
                printf("%d\n", brightness);
            else
                puts("Failed");
            break;
        }

        case 'M':
        {
            const std::string message = readRawLine("Message: ", Menus::maxBootMessageLength);
            reportFailure(board.bootMessage(message.c_str()));
            break;
        }

        case 'Q':
            reportFailure(board.enableQtEvents(askInt("Enable Qtouch events: ") != 0));
            break;

        case 'R':
        {
            int r, g, b, mode;
            ask("Ring colour: ", "%d %d %d %d", r, g, b, mode);
            reportFailure(board.setColour(r, g, b, mode));
            break;
        }

        default:
            return false;
    }
    return true;
}
