// The diskpack menu, events and Ctrl-C, end to end: keys typed, command lines received, lines printed.
#include "console/ConsoleSession.h"

using DiskpackConsole = SerialConsoleTest;

TEST_F(DiskpackConsole, KeysHelpEventsAndControlCPrintTheirLines)
{
    ASSERT_NO_FATAL_FAILURE(open("d", "Diskpack board V1.00"));
    const std::string forty = "0123456789012345678901234567890123456789";
    runAll({
        { 'A', { { "Set monitor disk activity: ", "1" } }, { { "A1", {} } } },
        { 'B', { { "Brightness (0-15): ", "15" } }, { { "BC8", {} } } },
        { 'C', {}, { { "C", {} } }, "" },
        { 'D', { { "Display text: ", "Hello bench" } }, { { "DHello bench", {} } } },
        { 'E', { { "Which expander: ", "1" } }, { { "E1", { "R5000C50012345678" } } },
          "SAS address 1: 5000C50012345678\n" },
        { 'G', { { "Which backplane: ", "1" }, { "Rail (0-3=12V,5V,3V3,1V2): ", "2" } }, { { "G12", { "R2EE0" } } },
          "Voltage: 12000 mV\n" },
        { 'I', {}, { { "I", { "R1" } } }, "Parallel SCSI\n" },
        { 'I', {}, { { "I", { "R0" } } }, "SAS\n" },
        { 'L', { { "Set LED (r,g,b,flash): ", "1 2 3 0" } }, { { "L1B", {} } } },
        // Missing numbers pass 0, and so does an answer that does not parse.
        { 'L', { { "Set LED (r,g,b,flash): ", "3" } }, { { "L30", {} } } },
        { 'Q', { { "Num text pages: ", "many" } }, { { "Q00", {} } } },
        { 'M', {}, { { "M", { "RF619" } } }, "Temperatures Min: -10 Max: 25\n" },
        { 'O', {}, { { "O", { "R1234" } } }, "Operating hours: 4660\n" },
        { 'R', { { "Read text (page): ", "3" } }, { { "P03", {} }, { "R", { "RPage three" } } }, "Page three\n" },
        { 'R', { { "Read text (page): ", "24" } }, {}, "Failed\n" },
        { 'S', { { "Scsi Id Msb: ", "1" } }, { { "S1", {} } } },
        { 'T', { { "Temperature check enable: ", "1" } }, { { "T1", {} } } },
        { 'U', {}, { { "U", { "R0123-4567-89AB" } } }, "Guid: 0123-4567-89AB\n" },
        { 'V', {}, { { "V", { "R96" } } }, "Battery Voltage: 3000 mV\n" },
        // The blank after the page number is part of the text.
        { 'W', { { "Write text (page, text): ", "4 Bay 4" } }, { { "P04", {} }, { "W Bay 4", {} } } },
        { 'X', { { "Write protect: ", "1" } }, { { "X1", {} } } },
        { 'X', { { "Write protect: ", "0" } }, { { "X0", { "N" } } }, "Failed\n" },
        { 'Y', {}, { { "Y", { "R1" } } }, "Write Protected\n" },
        { 'Y', {}, { { "Y", { "R0" } } }, "Not Write Protected\n" },
        { 'Y', {}, { { "Y", { "R2" } } }, "Failed\n" },
        // Only y or Y resets.
        { 'Z', { { "Reset eeprom: sure? ", "y" } }, { { "Z", {} } }, "Done\n" },
        { 'Z', { { "Reset eeprom: sure? ", "Y" } }, { { "Z", { "N" } } }, "Failed\n" },
        { 'Z', { { "Reset eeprom: sure? ", "n" } }, {} },
        { 'Z', { { "Reset eeprom: sure? ", "" } }, {} },
        // Display text beyond forty characters answers the next prompt at once.
        { 'D', { { "Display text: ", forty + "17" } }, { { "D" + forty, {} } } },
        { 'Q', {}, { { "Q11", {} } }, "Num text pages: " },
        { '?', {}, {},
          "\nL led, A disk activity, X set wp, Y get wp,\nD set display text, S scsi id, V get voltage,\nT enable temp, "
          "R read text, W write text,\nQ num text pages, O get op hours, M get temps,\nU get guid, C prepare "
          "closedown,\nI get scsi type, B set display brightness,\nE get SAS addr, Z reset EEPROM,\nG backplane "
          "voltage rail, x exit\n\n" },
        { 'q', {}, {}, "Unknown command 'q'\n" },
    });
    EXPECT_NE(console->errors().find("ControlBoard::sendCommand 'X0' received NACK"), std::string::npos);
    // A return at the keystroke loop says nothing; the next key is served.
    console->type("\r\n");
    runAll({ { 'O', {}, { { "O", { "R0001" } } }, "Operating hours: 1\n" } });
    expectEvents({
        { "t1E", "Temperature: 30 deg\n" },
        { "tF0", "Temperature: -16 deg\n" },
        { "b41", "Button event: 41\n" },
        { "l1", "LED event: 1\n" },
        { "l0", "LED event: 0\n" },
    });

    // An event shows while a prompt waits.
    board->reply("L30", { "OK" });
    ASSERT_TRUE(console->key('L'));
    ASSERT_TRUE(console->waitFor("Set LED (r,g,b,flash): "));
    board->event("t19");
    ASSERT_TRUE(console->waitFor("Temperature: 25 deg\n"));
    console->line("3 0 0 0");
    ASSERT_TRUE(board->waitForReceived(1));
    EXPECT_EQ(board->takeReceived(), (std::vector<std::string> { "L30" }));
    ASSERT_TRUE(console->waitForKeyMode());
    EXPECT_NE(console->output().find("Set LED (r,g,b,flash): Temperature: 25 deg\n3 0 0 0\n"), std::string::npos);

    console->interrupt();
    EXPECT_EQ(console->exitStatus(), 0);
    // Nothing is sent to a diskpack on the way out.
    EXPECT_TRUE(board->takeReceived().empty());
    console.reset();
}
