// The transfer station menu and events, end to end.
#include "console/ConsoleSession.h"

using TransferConsole = SerialConsoleTest;

TEST_F(TransferConsole, KeysAndEventsPrintTheirLines)
{
    ASSERT_NO_FATAL_FAILURE(open("x", "Transfer Station board V1.00"));
    runAll({
        { 'B', {}, { { "B", { "R50" } } }, "Battery Capacity: 80%\n" },
        { 'B', {}, { { "B", { "RFF" } } }, "Battery Capacity: not available\n" },
        { 'C', {}, { { "C", { "R0010" } } }, "Battery Current: 160 mA\n" },
        { 'C', {}, { { "C", { "RFFFF" } } }, "Battery Current: not available\n" },
        // The three power switches share one control value.
        { 'D', { { "Diskpack power: ", "1" } }, { { "D1", {} } } },
        { 'H', { { "Internal drive power: ", "1" } }, { { "D3", {} } } },
        { 'T', { { "Tape drive power: ", "1" } }, { { "D7", {} } } },
        { 'E', { { "Which expander: ", "2" } }, { { "E2", { "R5000C50012345678" } } },
          "SAS address 2: 5000C50012345678\n" },
        { 'F', { { "Fan speed: ", "300" } }, { { "FFF", {} } } },
        { 'I', {}, { { "I", { "RA" } } }, "Diskpack ID: a\n" },
        { 'I', {}, { { "I", { "N" } } }, "Failed\n" },
        { 'L', { { "LED (which, mode): ", "1 2" } }, { { "L8", {} } } },
        { 'M', {}, { { "M", { "RF619" } } }, "Diskpack temperature Min: -10 Max: 25\n" },
        { 'N', {}, { { "N", { "R13" } }, { "N", { "R13" } } }, "3 internal disks, tape drive\n" },
        { 'N', {}, { { "N", { "R02" } }, { "N", { "R02" } } }, "2 internal disks, no tape drive\n" },
        { 'O', {}, { { "O", { "R0010" } } }, "Operating hours: 16\n" },
        { 'P', { { "Diskpack temperature check enable: ", "1" } }, { { "P1", {} } } },
        { 'R', { { "Num disks, tape drive: ", "3 1" } }, { { "R13", {} } } },
        { 'S', { { "Which expander: ", "2" }, { "Address (return to reset): ", "5000C50012345678" } },
          { { "S25000C50012345678", {} } } },
        // Return at once hands the port back its own address; a typo is refused.
        { 'S', { { "Which expander: ", "1" }, { "Address (return to reset): ", "" } }, { { "S1", {} } } },
        { 'S', { { "Which expander: ", "3" }, { "Address (return to reset): ", "5000C500123456789" } }, {},
          "Failed\n" },
        { 'U', {}, { { "U", { "R0011-2233" } } }, "Guid: 0011-2233\n" },
        { 'V', {}, { { "V", { "R10" } } }, "Battery Voltage: 3200 mV\n" },
        { 'W', { { "Fan freq (0 - 5 = 904, 226, 113, 56(default), 28, 7): ", "3" } }, { { "W3", {} } } },
        { 'X', { { "Set write protect (0 = pack, 1 = internal): ", "0 1" } }, { { "X01", {} } } },
        { 'X', { { "Set write protect (0 = pack, 1 = internal): ", "5 1" } }, { { "X11", {} } } },
        { 'Y', { { "Get write protect (0 = pack, 1 = internal): ", "0" } }, { { "Y0", { "R1" } } },
          "Diskpack is write protected\n" },
        { 'Y', { { "Get write protect (0 = pack, 1 = internal): ", "1" } }, { { "Y1", { "R0" } } },
          "Internal disks are not write protected\n" },
        { 'Z', { { "Reset eeprom: sure? ", "y" } }, { { "Z", {} } }, "Done\n" },
    });
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
