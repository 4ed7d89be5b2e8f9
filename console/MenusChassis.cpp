#include "console/Menus.h"

using namespace ConsoleInput;
using Menus::reportFailure;

bool chassisMenu(ChassisBoard& board, int key)
{
    switch (key)
    {
        case 'A':
            reportFailure(board.setAmbientMode(askInt("Ambient: ") != 0));
            break;

        case 'C':
        {
            int a, b, c, d;
            ask("Colour: ", "%d %d %d %d", a, b, c, d);
            reportFailure(board.setColour(a, b, c, d));
            break;
        }

        case 'E':
            reportFailure(board.setLedState(askInt("LEDS: ")));
            break;

        case 'F':
        {
            int which, speed;
            ask("Fan speed: ", "%d %d", which, speed);
            reportFailure(board.setDiskPackFanSpeed(which, speed));
            break;
        }

        case 'H':
        {
            const int bay = askInt("Check bay connected: ");
            // The board leaves the flag alone when it cannot answer; the bay
            // line still follows "Failed" and then reads "not connected".
            bool connected = false;
            reportFailure(board.checkBayConnected(bay, connected));
            printf("Bay %d is %sconnected\n", bay, connected ? "" : "not ");
            break;
        }

        case 'I':
            reportFailure(board.setInverter(askInt("Inverter: ") != 0));
            break;

        case 'L':
        {
            int which, lock;
            ask("Lock: ", "%d %d", which, lock);
            reportFailure(board.setDiskPackLock(which, lock != 0));
            break;
        }

        case 'P':
        {
            int which, on;
            ask("Power: ", "%d %d", which, on);
            reportFailure(board.setDiskPackPower(which, on != 0));
            break;
        }

        case 'R':
            reportFailure(board.setBrightness(askInt("Set brightness: ")));
            break;

        case 'S':
            reportFailure(board.setScreenSaverEnable(askInt("Enable screen saver: ") != 0));
            break;

        case 'T':
            reportFailure(board.resetShuttle());
            break;

        case 'V':
            reportFailure(board.setVolume(askInt("Set volume: ")));
            break;

        default:
            return false;
    }
    return true;
}
