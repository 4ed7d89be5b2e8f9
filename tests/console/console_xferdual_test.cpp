// The xfer drive dual menu and events, end to end.
#include "console/ConsoleSession.h"

namespace
{
/** A diskpack EEPROM behind the board that reads back each written page, or refuses one, or spoils its byte 5. */
struct DiskpackEeprom
{
    std::map<int, std::string> pages;
    int spoilPage = -1, failReadPage = -1, failWritePage = -1;

    std::optional<std::vector<std::string>> operator()(const std::string& line)
    {
        // After the letter: which and the address in two bytes, the count, the data.
        const bool write = line[0] == 'W' && line.size() == 7 + 64, read = line[0] == 'R' && line.size() == 7;
        if (!write && !read)
            return std::nullopt;
        const int page = (std::stoi(line.substr(1, 4), nullptr, 16) & 0xFFF) / 32;
        if (write)
            pages[page] = line.substr(7);
        auto data = pages[page];
        if (page == spoilPage)
            data.replace(10, 2, "9A");
        const bool fail = page == (write ? failWritePage : failReadPage);
        return std::vector<std::string> { fail ? "N" : write ? "OK" : "R" + data };
    }
};
}

using XferDualConsole = SerialConsoleTest;

TEST_F(XferDualConsole, KeysEventsAndEepromTestVerdicts)
{
    ASSERT_NO_FATAL_FAILURE(open("u", "Xfer Drive Dual SAS board V1.00"));
    std::vector<std::pair<std::string, std::vector<std::string>>> clearFrames;
    for (int phy = 0; phy < 36; ++phy)
        clearFrames.push_back({ "E02C0" + hex2(4 + (phy >> 4)) + hex2((phy << 4) + 7) + "1800000005", {} });

    runAll({
        { 'A', { { "Get disk SAS address (which, disk): ", "1 0" } },
          { { "E03C0043044", { "R10000001" } }, { "E05C0043078", { "R5000C500AABBCCDD" } } },
          "Diskpack 1 disk 0 address: 5000c500aabbccdd\n" },
        { 'A', { { "Get disk SAS address (which, disk): ", "2 0" } }, {}, "Failed\n" },
        { 'B', { { "Phy: ", "35" } }, { { "E03C0063730", { "R0000000A" } } }, "Phy 35 errors 10\n" },
        { 'C', {}, clearFrames, "Error counts cleared\n" },
        { 'D', { { "Diskpack power (which, on): ", "1 1" } }, { { "D11", {} } } },
        { 'E', {}, { { "E05C0066010", { "R500605BCDA10000F" } } }, "SAS address: 500605bcda10000f\n" },
        { 'F', { { "Fan speed (1 for auto, min 85): ", "1" } }, { { "F01", {} } } },
        { 'F', { { "Fan speed (1 for auto, min 85): ", "170" } }, { { "FAA", {} } } },
        { 'G', { { "Rail (0-4=1V0,1V8,3V3,5V,12V): ", "2" } }, { { "G2", { "R0CE4" } } }, "Voltage: 3300 mV\n" },
        { 'H', { { "Id: ", "2" } }, { { "H2", {} } } },
        { 'I', { { "Get diskpack ID (which): ", "1" } }, { { "I1", { "R7" } } }, "Diskpack 1 ID: 7\n" },
        { 'J', { { "Disk fan speed (which, speed)(1 for auto, min 85): ", "1 1" } }, { { "J101", {} } } },
        { 'J', { { "Disk fan speed (which, speed)(1 for auto, min 85): ", "0 120" } }, { { "J078", {} } } },
        { 'L', { { "Set Diskpack LED (which,r,g,b,flash,activity): ", "1 3 0 2 1 0" } }, { { "L172", {} } } },
        { 'M', { { "Which zone (0-1 = diskpacks, 2 = system): ", "2" } }, { { "M2", { "R0A1E" } } },
          "System temperature Min: 10 Max: 30\n" },
        { 'M', { { "Which zone (0-1 = diskpacks, 2 = system): ", "5" } }, { { "M5", { "RF619" } } },
          "Diskpack 1 temperature Min: -10 Max: 25\n" },
        { 'M', { { "Which zone (0-1 = diskpacks, 2 = system): ", "0" } }, { { "M0", { "R0102" } } },
          "Diskpack 0 temperature Min: 1 Max: 2\n" },
        // Typed 1 is 3 Gbit/s and 2 is 6 Gbit/s.
        { 'N', { { "Phy, Min, Max (0=1.5,1=3,2=6): ", "2 1 2" } },
          { { "E03C0042704", { "R12345000" } }, { "E02C0042704123456A9", {} } } },
        { 'O', {}, { { "O", { "R0010" } } }, "Operating hours: 16\n" },
        { 'P', { { "Diskpack temperature check (which, enable): ", "1 1" } }, { { "P11", {} } } },
        { 'R', { { "Enable UART: ", "1" } }, { { "E07", {} } }, "SAS expander reset\n" },
        { 'R', { { "Enable UART: ", "0" } }, { { "E06", { "N" } } }, "Failed\n" },
        { 'T', { { "System temperature check enable: ", "1" } }, { { "T1", {} } } },
        { 'U', { { "Get diskpack Guid (which): ", "0" } }, { { "U0", { "RPACK-0" } } }, "Diskpack 0 Guid: PACK-0\n" },
        { 'V', { { "Phy: ", "2" } }, { { "E02C004271800000003", {} }, { "E02C004271800000001", {} } } },
        { 'X', { { "Set write protect (which, enable): ", "1 1" } }, { { "X11", {} } } },
        { 'Y', { { "Get write protect (which): ", "1" } }, { { "Y1", { "R1" } } }, "Diskpack 1 is write protected\n" },
        { 'Y', { { "Get write protect (which): ", "0" } }, { { "Y0", { "R0" } } },
          "Diskpack 0 is not write protected\n" },
        { 'Z', { { "Reset eeprom: sure? ", "y" } }, { { "Z", {} } }, "Done\n" },
    });
    // The firmware's debug text is not printed.
    expectEvents({
        { "t1E28", "Board temp: 30  SAS temp: 40\n" },
        { "p11E", "Diskpack 1 temperature: 30 deg\n" },
        { "i13", "Diskpack 1 event: present FAULT\n" },
        { "i11", "Diskpack 1 event: present\n" },
        { "i00", "Diskpack 0 event: absent\n" },
        { "b11", "Diskpack 1 eject button: down\n" },
        { "b10", "Diskpack 1 eject button: up\n" },
        { "l00", "Diskpack 0 LED event: off\n" },
        { "dfirmware chatter", "" },
        { "j1C8", "Diskpack 1 fan speed: 200\n" },
        { "l11", "Diskpack 1 LED event: on\n" },
    });

    DiskpackEeprom good, spoiled, unreadable, unwritable;
    spoiled.spoilPage = 3;
    // The pages read before a failed read matched, so the verdict stands.
    unreadable.failReadPage = 5;
    unwritable.failWritePage = 2;
    const struct
    {
        DiskpackEeprom& eeprom;
        std::string printed;
    } cases[] = {
        { good, "Passed\n" },
        { spoiled, "Compare fail page 3 byte 05 exp 65 act 9a\nFailed\n" },
        { unreadable, "Failed reading page 5\nPassed\n" },
        { unwritable, "Failed writing page 2\n" },
    };
    for (auto& c : cases)
    {
        SCOPED_TRACE(c.printed);
        ASSERT_NO_FATAL_FAILURE(runScripted('W', c.eeprom, "Test diskpack EEPROM (which): ", "1", c.printed));
        const auto wire = board->takeReceived();
        // Sixteen pages written, then read; page 8 wraps the pattern to 0 to 31 again.
        if (&c.eeprom == &good)
        {
            EXPECT_EQ(wire.size(), 32u);
            EXPECT_EQ(wire.at(8).substr(0, 13), "W110020000102");
        }
        EXPECT_EQ(console->takeOutput(), "");
    }
}
