#include "console/Menus.h"

#include "console/RemoteDisplayDemo.h"

using namespace ConsoleInput;
using Menus::reportFailure;

namespace
{
/** The name is out before the board is asked, so "Failed" follows it on its line. */
void showSetting(RemoteBoard& board, const char* name, bool (RemoteBoard::*read)(int&))
{
    printf("%s: ", name);
    fflush(stdout);
    Menus::printReading(board, read, "%d\n");
}
}

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
            showSetting(board, "Contrast", &RemoteBoard::getContrast);
            break;

        case 'F':
            reportFailure(board.setRingBright(askInt("Set ring brightness: ")));
            break;

        case 'G':
            RemoteDisplayDemo::run(board);
            break;

        case 'I':
            showSetting(board, "Ring brightness", &RemoteBoard::getRingBright);
            break;

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
