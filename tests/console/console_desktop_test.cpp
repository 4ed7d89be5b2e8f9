// The desktop transfer station menu and events, end to end.
#include "console/ConsoleSession.h"

namespace
{
/** An expander EEPROM behind the pass-through: reads back the block just written, or one byte spoiled, or refuses. */
struct ExpanderEeprom
{
    int spoilBlock = -1, unreadableBlock = -1;
    std::string written; // E00 without its prefix: the block number in two digits, then its bytes

    std::optional<std::vector<std::string>> operator()(const std::string& line)
    {
        if (line.rfind("E00", 0) == 0 && line.size() == 3 + 2 + 64)
            written = line.substr(3);
        else if (line != "E01" + written.substr(0, 2))
            return std::nullopt;
        else if (std::stoi(written.substr(0, 2), nullptr, 16) == unreadableBlock)
            return std::vector<std::string> { "N" };
        else if (std::stoi(written.substr(0, 2), nullptr, 16) == spoilBlock)
            written[12] = written[12] == '0' ? '1' : '0';
        return std::vector<std::string> { line[2] == '0' ? "OK" : "R" + written.substr(2) };
    }
};
}

using DesktopConsole = SerialConsoleTest;

TEST_F(DesktopConsole, KeysEventsAndExpanderEepromPrintTheirLines)
{
    ASSERT_NO_FATAL_FAILURE(open("t", "Desktop Transfer Station board V1.00"));
    std::vector<std::pair<std::string, std::vector<std::string>>> clearFrames;
    for (int phy = 0; phy < 12; ++phy)
        clearFrames.push_back({ "E0204" + hex2(3 + 4 * phy) + "1000000005", {} });

    runAll({
        { 'A', { { "Disk:  ", "0" } }, { { "E03042C44", { "R10000001" } }, { "E05042C78", { "R5000C500AABBCCDD" } } },
          "Disk address: 5000C500AABBCCDD\n" },
        { 'B', { { "Phy: ", "11" } }, { { "E03042F18", { "R00000007" } } }, "Phy 11 errors 7\n" },
        { 'B', { { "Phy: ", "12" } }, {}, "Failed\n" },
        { 'C', {}, clearFrames, "Error counts cleared\n" },
        { 'C', {}, { { "E0204031000000005", {} }, { "E0204071000000005", { "N" } } }, "Failed\n" },
        { 'D', { { "Diskpack power: ", "1" } }, { { "D1", {} } } },
        { 'E', {}, { { "E05000000", { "R500605BCDA10000F" } } }, "SAS address: 500605BCDA10000F\n" },
        { 'F', { { "Phy: ", "9" } }, { { "E0204271000000003", {} }, { "E0204271000000001", {} } } },
        { 'H', { { "Id: ", "3" } }, { { "H3", {} } } },
        { 'I', {}, { { "I", { "RC" } } }, "Diskpack ID: c\n" },
        { 'L', { { "LED (which, mode): ", "0 3" } }, { { "L3", {} } } },
        { 'M', {}, { { "M", { "R0A1E" } } }, "Diskpack temperature Min: 10 Max: 30\n" },
        // Typed 0 is 1.5 Gbit/s, anything else 3 Gbit/s.
        { 'N', { { "Phy, Min, Max (0=1.5,1=3): ", "9 0 5" } }, { { "E020424A080900000", {} } } },
        { 'O', {}, { { "O", { "R0100" } } }, "Operating hours: 256\n" },
        { 'P', { { "Diskpack temperature check enable: ", "1" } }, { { "P1", {} } } },
        { 'R', {}, { { "E06", {} } }, "SAS expander reset\n" },
        { 'R', {}, { { "E06", { "N" } } }, "Failed\n" },
        { 'U', {}, { { "U", { "RGUID-1" } } }, "Guid: GUID-1\n" },
        { 'V', {}, { { "V", { "R20" } } }, "Battery Voltage: 3200 mV\n" },
        { 'X', { { "Set write protect: ", "1" } }, { { "X1", {} } } },
        { 'Y', {}, { { "Y0", { "R0" } } }, "Diskpack is not write protected\n" },
        { 'Z', { { "Reset eeprom: sure? ", "y" } }, { { "Z", {} } }, "Done\n" },
    });
    // The firmware's debug text is not printed.
    expectEvents({
        { "dfirmware chatter", "" },
        { "p1E", "Diskpack temperature: 30 deg\n" },
        { "v1", "Lever event: open\n" },
        { "v0", "Lever event: closed\n" },
        { "i1", "Diskpack event: present\n" },
        { "i0", "Diskpack event: absent\n" },
        { "l3", "LED event: 3\n" },
    });

    board->reply("E06", { "OK" });
    ExpanderEeprom spoiled, unreadable;
    spoiled.spoilBlock = 1;
    unreadable.unreadableBlock = 0;
    const struct
    {
        ExpanderEeprom eeprom;
        std::string serial, result;
    } cases[] = {
        { ExpanderEeprom(), "291", "Programming complete\n" },
        { ExpanderEeprom(), "4096", "Write failed\n" },
        { unreadable, "1", "Read failed\n" },
        { spoiled, "1", "Verify failed\n" },
    };
    for (auto& c : cases)
    {
        SCOPED_TRACE(c.result);
        ASSERT_NO_FATAL_FAILURE(runScripted('W', c.eeprom, "Serial: ", c.serial, "Programming EEPROM...\n" + c.result));
    }
}
