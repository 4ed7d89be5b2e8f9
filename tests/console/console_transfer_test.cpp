// The transfer station menu and events, end to end.
#include "console/ConsoleSession.h"

namespace
{
struct TransferConsole : SerialConsoleTest
{
    void SetUp() override { open("x", "Transfer Station board V1.00"); }
};
}

TEST_F(TransferConsole, EveryKeyReachesTheWireAndPrintsItsLine)
{
    runAll({
        { 'B', {}, { { "B", { "R50" } } }, "Battery Capacity: 80%\n" },
        { 'C', {}, { { "C", { "R0010" } } }, "Battery Current: 160 mA\n" },
        // The three power switches share one control value.
        { 'D', { { "Diskpack power: ", "1" } }, { { "D1", {} } }, "Diskpack power: 1\n" },
        { 'H', { { "Internal drive power: ", "1" } }, { { "D3", {} } }, "Internal drive power: 1\n" },
        { 'T', { { "Tape drive power: ", "1" } }, { { "D7", {} } }, "Tape drive power: 1\n" },
        { 'E', { { "Which expander: ", "2" } }, { { "E2", { "R5000C50012345678" } } },
          "Which expander: 2\nSAS address 2: 5000C50012345678\n" },
        { 'F', { { "Fan speed: ", "300" } }, { { "FFF", {} } }, "Fan speed: 300\n" },
        { 'I', {}, { { "I", { "RA" } } }, "Diskpack ID: a\n" },
        { 'L', { { "LED (which, mode): ", "1 2" } }, { { "L8", {} } }, "LED (which, mode): 1 2\n" },
        { 'M', {}, { { "M", { "RF619" } } }, "Diskpack temperature Min: -10 Max: 25\n" },
        { 'N', {}, { { "N", { "R13" } }, { "N", { "R13" } } }, "3 internal disks, tape drive\n" },
        { 'O', {}, { { "O", { "R0010" } } }, "Operating hours: 16\n" },
        { 'P', { { "Diskpack temperature check enable: ", "1" } }, { { "P1", {} } },
          "Diskpack temperature check enable: 1\n" },
        { 'R', { { "Num disks, tape drive: ", "3 1" } }, { { "R13", {} } }, "Num disks, tape drive: 3 1\n" },
        { 'S', { { "Which expander: ", "2" }, { "Address (return to reset): ", "5000C50012345678" } },
          { { "S25000C50012345678", {} } }, "Which expander: 2\nAddress (return to reset): 5000C50012345678\n" },
        { 'U', {}, { { "U", { "R0011-2233" } } }, "Guid: 0011-2233\n" },
        { 'V', {}, { { "V", { "R10" } } }, "Battery Voltage: 3200 mV\n" },
        { 'W', { { "Fan freq (0 - 5 = 904, 226, 113, 56(default), 28, 7): ", "3" } }, { { "W3", {} } },
          "Fan freq (0 - 5 = 904, 226, 113, 56(default), 28, 7): 3\n" },
        { 'X', { { "Set write protect (0 = pack, 1 = internal): ", "0 1" } }, { { "X01", {} } },
          "Set write protect (0 = pack, 1 = internal): 0 1\n" },
        { 'X', { { "Set write protect (0 = pack, 1 = internal): ", "5 1" } }, { { "X11", {} } },
          "Set write protect (0 = pack, 1 = internal): 5 1\n" },
        { 'Y', { { "Get write protect (0 = pack, 1 = internal): ", "0" } }, { { "Y0", { "R1" } } },
          "Get write protect (0 = pack, 1 = internal): 0\nDiskpack is write protected\n" },
        { 'Y', { { "Get write protect (0 = pack, 1 = internal): ", "1" } }, { { "Y1", { "R0" } } },
          "Get write protect (0 = pack, 1 = internal): 1\nInternal disks are not write protected\n" },
        { 'Z', { { "Reset eeprom: sure? ", "y" } }, { { "Z", {} } }, "Reset eeprom: sure? y\nDone\n" },
    });
}

TEST_F(TransferConsole, NotAvailableReadingsAndRefusals)
{
    runAll({
        { 'B', {}, { { "B", { "RFF" } } }, "Battery Capacity: not available\n" },
        { 'C', {}, { { "C", { "RFFFF" } } }, "Battery Current: not available\n" },
        { 'N', {}, { { "N", { "R02" } }, { "N", { "R02" } } }, "2 internal disks, no tape drive\n" },
        { 'W', { { "Fan freq (0 - 5 = 904, 226, 113, 56(default), 28, 7): ", "6" } }, {},
          "Fan freq (0 - 5 = 904, 226, 113, 56(default), 28, 7): 6\nFailed\n" },
        { 'I', {}, { { "I", { "N" } } }, "Failed\n" },
        // The same LED mode again is not sent.
        { 'L', { { "LED (which, mode): ", "0 1" } }, { { "L1", {} } }, "LED (which, mode): 0 1\n" },
        { 'L', { { "LED (which, mode): ", "0 1" } }, {}, "LED (which, mode): 0 1\n" },
    });
}

TEST_F(TransferConsole, ManualSasAddressResetAndTypos)
{
    runAll({
        // Return at once hands the port back its own address.
        { 'S', { { "Which expander: ", "1" }, { "Address (return to reset): ", "" } }, { { "S1", {} } },
          "Which expander: 1\nAddress (return to reset): \n" },
        // Anything but a full address is refused by the board class.
        { 'S', { { "Which expander: ", "1" }, { "Address (return to reset): ", "5000C5001234567" } }, {},
          "Which expander: 1\nAddress (return to reset): 5000C5001234567\nFailed\n" },
        { 'S', { { "Which expander: ", "3" }, { "Address (return to reset): ", "5000C500123456789" } }, {},
          "Which expander: 3\nAddress (return to reset): 5000C500123456789\nFailed\n" },
    });
}

TEST_F(TransferConsole, EventsArePrintedAsTheyArrive)
{
    expectEvents({
        { "p1E", "Diskpack temperature: 30 deg\n" },
        { "pF6", "Diskpack temperature: -10 deg\n" },
        { "d1", "Door event: open\n" },
        { "d0", "Door event: closed\n" },
        { "i1", "Diskpack event: present\n" },
        { "i0", "Diskpack event: absent\n" },
        { "l5", "LED event: 5\n" },
    });
}
