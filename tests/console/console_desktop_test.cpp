// The desktop transfer station menu and events, end to end.
#include "console/ConsoleSession.h"

namespace
{
/** An expander EEPROM behind the pass-through: blocks written with function
    00 read back with function 01, optionally with one byte spoiled or a
    block refused. */
struct ExpanderEeprom
{
    std::map<int, std::string> blocks;
    int spoilBlock = -1;
    int unreadableBlock = -1;

    std::optional<std::vector<std::string>> operator()(const std::string& line)
    {
        if (line.rfind("E00", 0) == 0 && line.size() == 3 + 2 + 64)
        {
            blocks[std::stoi(line.substr(3, 2), nullptr, 16)] = line.substr(5);
            return std::vector<std::string> { "OK" };
        }
        if (line.rfind("E010", 0) == 0 && line.size() == 5)
        {
            const int b = std::stoi(line.substr(4), nullptr, 16);
            if (b == unreadableBlock)
                return std::vector<std::string> { "N" };
            std::string data = blocks[b];
            if (b == spoilBlock)
                data[10] = data[10] == '0' ? '1' : '0';
            return std::vector<std::string> { "R" + data };
        }
        return std::nullopt;
    }
};

struct DesktopConsole : SerialConsoleTest
{
    void SetUp() override { open("t", "Desktop Transfer Station board V1.00"); }
};
}

TEST_F(DesktopConsole, EveryKeyReachesTheWireAndPrintsItsLine)
{
    std::vector<std::pair<std::string, std::vector<std::string>>> clearFrames;
    for (int phy = 0; phy < 12; ++phy)
        clearFrames.push_back({ "E0204" + hex2(3 + 4 * phy) + "1000000005", {} });

    runAll({
        { 'A', { { "Disk:  ", "0" } }, { { "E03042C44", { "R10000001" } }, { "E05042C78", { "R5000C500AABBCCDD" } } },
          "Disk address: 5000C500AABBCCDD\n" },
        { 'B', { { "Phy: ", "11" } }, { { "E03042F18", { "R00000007" } } }, "Phy 11 errors 7\n" },
        { 'C', {}, clearFrames, "Error counts cleared\n" },
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
        { 'U', {}, { { "U", { "RGUID-1" } } }, "Guid: GUID-1\n" },
        { 'V', {}, { { "V", { "R20" } } }, "Battery Voltage: 3200 mV\n" },
        { 'X', { { "Set write protect: ", "1" } }, { { "X1", {} } } },
        { 'Y', {}, { { "Y0", { "R0" } } }, "Diskpack is not write protected\n" },
        { 'Z', { { "Reset eeprom: sure? ", "y" } }, { { "Z", {} } }, "Done\n" },
    });
}

TEST_F(DesktopConsole, EmptyBaysRefusalsAndFailures)
{
    runAll({
        { 'A', { { "Disk:  ", "3" } }, { { "E03042044", { "R10000000" } } }, "Disk address: 0000000000000000\n" },
        { 'B', { { "Phy: ", "12" } }, {}, "Failed\n" },
        { 'N', { { "Phy, Min, Max (0=1.5,1=3): ", "7 0 0" } }, {}, "Failed\n" },
        { 'R', {}, { { "E06", { "N" } } }, "Failed\n" },
        { 'C', {}, { { "E0204031000000005", {} }, { "E0204071000000005", { "N" } } }, "Failed\n" },
        { 'W', { { "Serial: ", "4096" } }, {}, "Programming EEPROM...\nWrite failed\n" },
    });
}

TEST_F(DesktopConsole, ProgrammingTheExpanderEepromReportsItsResult)
{
    board->reply("E06", { "OK" });
    ASSERT_NO_FATAL_FAILURE(
        runScripted('W', ExpanderEeprom(), "Serial: ", "291", "Programming EEPROM...\nProgramming complete\n"));
    ASSERT_TRUE(board->waitForReceived(21));
    const auto wire = board->takeReceived();
    ASSERT_EQ(wire.size(), 21u);
    EXPECT_EQ(wire[4].substr(0, 5), "E0002");
    // The serial 0x123 goes into bytes 71 and 72: offsets 7 and 8 of block 2.
    EXPECT_EQ(wire[4].substr(5 + 14, 4), "123F");
    EXPECT_EQ(wire[5], "E0102");
    EXPECT_EQ(wire[20], "E06");

    ExpanderEeprom spoiled;
    spoiled.spoilBlock = 1;
    ASSERT_NO_FATAL_FAILURE(runScripted('W', spoiled, "Serial: ", "1", "Programming EEPROM...\nVerify failed\n"));
    EXPECT_EQ(board->takeReceived().size(), 4u) << "stops at the block that differs";

    ExpanderEeprom unreadable;
    unreadable.unreadableBlock = 0;
    ASSERT_NO_FATAL_FAILURE(runScripted('W', unreadable, "Serial: ", "1", "Programming EEPROM...\nRead failed\n"));
}

TEST_F(DesktopConsole, EventsArePrintedAsTheyArriveButNotTheDebugText)
{
    expectEvents({
        { "dfirmware chatter", "" },
        { "p1E", "Diskpack temperature: 30 deg\n" },
        { "v1", "Lever event: open\n" },
        { "v0", "Lever event: closed\n" },
        { "i1", "Diskpack event: present\n" },
        { "i0", "Diskpack event: absent\n" },
        { "l3", "LED event: 3\n" },
    });
}
