// The chassis menu and events, end to end.
#include "console/ConsoleSession.h"

namespace
{
struct ChassisConsole : SerialConsoleTest
{
    // Firmware new enough for the colour, ambient, screen saver and bay
    // connection commands.
    void SetUp() override { open("c", "Chassis board V2.50"); }
};
}

TEST_F(ChassisConsole, EveryKeyReachesTheWire)
{
    runAll({
        { 'A', { { "Ambient: ", "1" } }, { { "P1", {} } }, "Ambient: 1\n" },
        { 'C', { { "Colour: ", "1 2 3 1" } }, { { "F5B", {} } }, "Colour: 1 2 3 1\n" },
        { 'E', { { "LEDS: ", "5" } }, { { "L05", {} } }, "LEDS: 5\n" },
        // A bay's first use sends its all-off control byte first.
        { 'F', { { "Fan speed: ", "1 30" } }, { { "B00", {} }, { "B1E", {} } }, "Fan speed: 1 30\n" },
        { 'H', { { "Check bay connected: ", "1" } }, { { "H1", { "R1" } } },
          "Check bay connected: 1\nBay 1 is connected\n" },
        { 'I', { { "Inverter: ", "1" } }, { { "I1", {} } }, "Inverter: 1\n" },
        { 'L', { { "Lock: ", "2 1" } }, { { "C00", {} }, { "C40", {} } }, "Lock: 2 1\n" },
        { 'P', { { "Power: ", "2 1" } }, { { "CC0", {} } }, "Power: 2 1\n" },
        { 'R', { { "Set brightness: ", "7" } }, { { "R07", {} } }, "Set brightness: 7\n" },
        { 'S', { { "Enable screen saver: ", "1" } }, { { "S1", {} } }, "Enable screen saver: 1\n" },
        { 'T', {}, { { "T", {} } }, "" },
        { 'V', { { "Set volume: ", "20" } }, { { "V14", {} } }, "Set volume: 20\n" },
    });
}

TEST_F(ChassisConsole, BayLineFollowsAFailedCheck)
{
    runAll({
        { 'H', { { "Check bay connected: ", "0" } }, { { "H0", { "N" } } },
          "Check bay connected: 0\nFailed\nBay 0 is not connected\n" },
        // Only bays 0 and 1 can be asked: refused without a command.
        { 'H', { { "Check bay connected: ", "2" } }, {}, "Check bay connected: 2\nFailed\nBay 2 is not connected\n" },
        // An unlocked pack may not be powered.
        { 'P', { { "Power: ", "3 1" } }, { { "D00", {} } }, "Power: 3 1\nFailed\n" },
        { 'Z', {}, {}, "Unknown command 'Z'\n" },
        { '?', {}, {},
          "\nV volume, R brightness, I inverter,\nE leds, L lock, P power, F fan speed,\nT reset shuttle, C colour, A "
          "ambient mode,\nS enable screen saver, H check bay connected,\nx exit\n\n" },
    });
}

TEST_F(ChassisConsole, EventsArePrintedAsTheyArrive)
{
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
}
