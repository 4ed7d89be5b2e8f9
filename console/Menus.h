#pragma once

#include "boards/ChassisBoard.h"
#include "boards/DesktopBoard.h"
#include "boards/DiskpackBoard.h"
#include "boards/RemoteBoard.h"
#include "boards/TransferBoard.h"
#include "boards/XferDualBoard.h"
#include "console/ConsoleInput.h"

#include <cstdio>

// The key tables of the six serial boards. Each runs the command of one key
// and returns false when the key is not in its table (the keystroke loop then
// reports it). `?`, `x` and the line-end keys never reach them.
//
// Set operations print "Failed" only on failure; get operations print their
// result line or "Failed".

bool diskpackMenu(DiskpackBoard& board, int key);
bool chassisMenu(ChassisBoard& board, int key);
bool transferMenu(TransferBoard& board, int key);
bool desktopMenu(DesktopBoard& board, int key);
bool xferDualMenu(XferDualBoard& board, int key);
bool remoteMenu(RemoteBoard& board, int key);

namespace Menus
{
    /** Prints "Failed" as a line when `ok` is false. */
    void reportFailure(bool ok);

    /** The reset with confirmation shared by every board with an EEPROM:
        anything but y or Y leaves it alone without a word. */
    template <class Board>
    void resetWithConfirmation(Board& board)
    {
        if (!ConsoleInput::confirm("Reset eeprom: sure? "))
            return;
        puts(board.resetEeprom() ? "Done" : "Failed");
    }

    /** Result line of the desktop expander's EEPROM programming. */
    const char* programResultText(int code);

    /** The speed codes the console passes for a typed PHY rate. */
    SasPhyConnectSpeed desktopPhySpeed(int typed);
    SasPhyConnectSpeed xferDualPhySpeed(int typed);

    /** Title of an xfer drive dual temperature zone. */
    const char* xferDualZoneName(int zone);

    /** The low byte of its own address, which the xfer drive dual EEPROM test
        writes into every byte. */
    inline unsigned char eepromTestPattern(int address) { return (unsigned char) (address & 0xFF); }

    /** The remote's longest boot message: the board keeps at most a line's
        worth of characters, less the command letter. */
    constexpr size_t maxBootMessageLength = 1079;
}
