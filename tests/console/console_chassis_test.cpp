// The chassis menu and events, end to end.
#include "console/ConsoleSession.h"

using ChassisConsole = SerialConsoleTest;

TEST_F(ChassisConsole, KeysAndEventsPrintTheirLines)
{
    // Firmware new enough for the colour, ambient, screen saver and bay commands.
    ASSERT_NO_FATAL_FAILURE(open("c", "Chassis board V2.50"));
    runAll({
        { 'A', { { "Ambient: ", "1" } }, { { "P1", {} } } },
        { 'C', { { "Colour: ", "1 2 3 1" } }, { { "F5B", {} } } },
        { 'E', { { "LEDS: ", "5" } }, { { "L05", {} } } },
        // A bay's first use sends its all-off control byte first.
        { 'F', { { "Fan speed: ", "1 30" } }, { { "B00", {} }, { "B1E", {} } } },
        { 'H', { { "Check bay connected: ", "1" } }, { { "H1", { "R1" } } }, "Bay 1 is connected\n" },
        { 'H', { { "Check bay connected: ", "1" } }, { { "H1", { "R0" } } }, "Bay 1 is not connected\n" },
        // The bay line follows a failed check too.
        { 'H', { { "Check bay connected: ", "0" } }, { { "H0", { "N" } } }, "Failed\nBay 0 is not connected\n" },
        { 'I', { { "Inverter: ", "1" } }, { { "I1", {} } } },
        { 'L', { { "Lock: ", "2 1" } }, { { "C00", {} }, { "C40", {} } } },
        { 'P', { { "Power: ", "2 1" } }, { { "CC0", {} } } },
        { 'R', { { "Set brightness: ", "7" } }, { { "R07", {} } } },
        { 'S', { { "Enable screen saver: ", "1" } }, { { "S1", {} } } },
        { 'T', {}, { { "T", {} } }, "" },
        { 'V', { { "Set volume: ", "20" } }, { { "V14", {} } } },
        { 'Z', {}, {}, "Unknown command 'Z'\n" },
        { '?', {}, {},
          "\nV volume, R brightness, I inverter,\nE leds, L lock, P power, F fan speed,\nT reset shuttle, C colour, A "
          "ambient mode,\nS enable screen saver, H check bay connected,\nx exit\n\n" },
    });
    expectEvents({
        { "c3", "Disk Pack C present locked\n" },
        { "a0", "Disk Pack A absent unlocked\n" },
        { "d1", "Disk Pack D present unlocked\n" },
        { "e", "DVD Eject event\n" },
        { "v10", "Volume event: 16\n" },
        { "r5", "Brightness event: 5\n" },
        { "sFE", "Shuttle event: -2\n" },
        { "t0A", "Button event: 0A\n" },
    });
    // Closing commits the chassis settings to its EEPROM.
    ASSERT_TRUE(console->key('x'));
    EXPECT_EQ(console->exitStatus(), 0);
    EXPECT_EQ(board->takeReceived(), (std::vector<std::string> { "W" }));
    console.reset();
}
