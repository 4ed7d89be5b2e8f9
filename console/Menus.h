#pragma once

#include "boards/ChassisBoard.h"
#include "boards/DesktopBoard.h"
#include "boards/DiskpackBoard.h"
#include "boards/RemoteBoard.h"
#include "boards/TransferBoard.h"
#include "boards/XferDualBoard.h"
#include "console/ConsoleInput.h"
#include "console/MenuKeys.h"

#include <cstdio>

// The menus of the six serial boards, each with its key table and help text
// in its own file. `?`, `x` and the line-end keys never reach them.
//
// Set operations print "Failed" only on failure; get operations print their
// result line or "Failed".

extern const BoardMenu diskpackMenu;
extern const BoardMenu chassisMenu;
extern const BoardMenu transferMenu;
extern const BoardMenu desktopMenu;
extern const BoardMenu xferDualMenu;
extern const BoardMenu remoteMenu;

namespace Menus
{
    /** Prints "Failed" as a line when `ok` is false. */
    void reportFailure(bool ok);

    /** The keys of the one diskpack slot that the desktop and the transfer
        station both have: the same commands on the wire, the same lines.
        False when `key` is not one of them. */
    template <class Board>
    bool diskpackSlotMenu(Board& board, int key);

    /** A value as printf takes it. */
    inline int printable(int value) { return value; }
    inline const char* printable(const juce::String& value) { return value.toRawUTF8(); }

    /** Asks the board for one value and prints it with `format`, or "Failed". */
    template <class Board, class Value>
    void printReading(Board& board, bool (Board::*read)(Value&), const char* format)
    {
        Value value {};
        if ((board.*read)(value))
            printf(format, printable(value));
        else
            puts("Failed");
    }

    /** The same for a value of one of several (expanders, diskpacks, PHYs):
        asks which first, and `format` takes its number before the value. */
    template <class Board, class Value>
    void printReadingOf(Board& board, const char* prompt, bool (Board::*read)(int, Value&), const char* format)
    {
        const int which = ConsoleInput::askInt(prompt);
        Value value {};
        if ((board.*read)(which, value))
            printf(format, which, printable(value));
        else
            puts("Failed");
    }

    // Readings that several boards print alike.
    template <class Board>
    void showOperatingHours(Board& board)
    {
        printReading(board, &Board::getOperatingHours, "Operating hours: %d\n");
    }

    template <class Board>
    void showBatteryVoltage(Board& board)
    {
        printReading(board, &Board::getBatteryVoltage, "Battery Voltage: %d mV\n");
    }

    template <class Board>
    void showGuid(Board& board, bool (Board::*read)(juce::String&))
    {
        printReading(board, read, "Guid: %s\n");
    }

    template <class Board>
    void showTemperatures(Board& board, const char* title)
    {
        int min = 0, max = 0;
        if (board.getMinMaxTemperatures(min, max))
            printf("%s Min: %d Max: %d\n", title, min, max);
        else
            puts("Failed");
    }

    /** The address of one of the board's SAS ports. */
    template <class Board>
    void showSasAddress(Board& board)
    {
        printReadingOf(board, "Which expander: ", &Board::getSasAddr, "SAS address %d: %s\n");
    }

    /** The address of the board's own SAS expander. */
    template <class Board>
    void showExpanderAddress(Board& board)
    {
        printReading(board, &Board::sasGetExpanderAddr, "SAS address: %s\n");
    }

    template <class Board>
    void showPhyErrors(Board& board, bool (Board::*read)(int, int&))
    {
        printReadingOf(board, "Phy: ", read, "Phy %d errors %d\n");
    }

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
