// The dock console as the technician runs it: avrtest on a terminal, the docks
// emulated by docksim, with the emulator's log of every command it received.
#include "console/ConsoleSession.h"
#include "console/dock/DockConsole.h"
#include "support/SimProcess.h"

#include <juce_core/juce_core.h>

#include <cstdlib>
#include <sys/wait.h>
#include <unistd.h>

namespace
{
/** One key: its prompts and answers, the commands docksim logs for it (polls left out) and what is printed last. */
struct DockKeyCase
{
    char key;
    std::vector<std::pair<std::string, std::string>> answers;
    std::vector<std::string> wire;
    std::string printed;
};

bool isPoll(const std::string& line) // the USB dock's status poll, the Thunderbolt docks' event poll
{
    return line.rfind("cdb DE00", 0) == 0 || (line.rfind("tbt ", 0) == 0 && line.size() > 5 && line.substr(5) == " &");
}

class DockConsoleTest : public ::testing::Test
{
protected:
    void startSim(const std::string& letter, const std::vector<std::string>& simArgs = {})
    {
        socket = dir.path() + "/docksim.sock";
        std::vector<std::string> argv { DOCKSIM_PATH, "--socket", socket, "--log", "--dock", letter };
        argv.insert(argv.end(), simArgs.begin(), simArgs.end());
        sim = std::make_unique<SimProcess>(argv);
        ASSERT_TRUE(sim->isReady());
        setenv("AVRTEST_DOCKSIM", socket.c_str(), 1);
    }

    /** A fresh docksim and console; those of a previous case are ended first. */
    void start(const std::string& letter)
    {
        console.reset();
        sim.reset();
        ASSERT_NO_FATAL_FAILURE(startSim(letter));
        console = std::make_unique<ConsoleSession>(std::vector<std::string> { letter, "0" });
        ASSERT_TRUE(console->waitFor("Enter command (? for help)\n"));
        ASSERT_TRUE(console->waitForKeyMode());
        commandsSeen = commands().size();
        // Drain a Thunderbolt dock's opening events, so none falls between lines expected together.
        if (letter != "s")
        {
            ASSERT_TRUE(waitUntil([&] { return sim->control("check events 0") == "ok"; }, ConsoleSession::deadlineMs));
        }
    }

    /** The commands the dock received so far, polls left out. */
    std::vector<std::string> commands()
    {
        // Any control line's answer brings out the log lines before it.
        sim->control("check no-such-field 0");
        std::vector<std::string> all;
        for (auto& line : sim->output())
            if ((line.rfind("cdb ", 0) == 0 || line.rfind("tbt ", 0) == 0) && !isPoll(line))
                all.push_back(line);
        return all;
    }

    /** The commands received since the last call. */
    std::vector<std::string> newCommands(size_t atLeast)
    {
        waitUntil([&] { return commands().size() >= commandsSeen + atLeast; }, ConsoleSession::deadlineMs);
        auto all = commands();
        std::vector<std::string> fresh(all.begin() + (long) std::min(commandsSeen, all.size()), all.end());
        commandsSeen = all.size();
        return fresh;
    }

    void runKeys(const std::vector<DockKeyCase>& cases)
    {
        for (const auto& c : cases)
        {
            SCOPED_TRACE(std::string("key ") + c.key);
            console->takeOutput();
            ASSERT_TRUE(console->key(c.key));
            for (const auto& a : c.answers)
            {
                ASSERT_TRUE(console->waitFor(a.first)) << console->output();
                console->line(a.second);
            }
            EXPECT_TRUE(console->waitFor(c.printed)) << console->takeOutput();
            EXPECT_EQ(newCommands(c.wire.size()), c.wire);
            ASSERT_TRUE(console->waitForKeyMode());
        }
    }

    /** Answers every yes/no question until `last` is asked, which is left for the caller. */
    void answerAll(const std::string& answer, const std::string& last)
    {
        for (;;)
        {
            ASSERT_TRUE(console->waitFor("[y/n] > ")) << console->output();
            if (console->output().find(last) != std::string::npos)
                return;
            console->line(answer);
        }
    }

    /** The Thunderbolt autotest's diskpack insertion and eject questions. */
    void answerFirstTwo()
    {
        answerAll("y", "eject button and confirm success... [y/n] > ");
        console->line("y");
    }

    /** An empty directory for the autotest records, given to the console. */
    std::string freshRecords()
    {
        const std::string records = dir.path() + "/records";
        juce::File(records).deleteRecursively();
        juce::File(records).createDirectory();
        setenv("AVRTEST_RECORD_DIR", records.c_str(), 1);
        return records;
    }

    // Under ASan a console that sizes its buffers by a typed count crashes rather than taking gigabytes.
    void SetUp() override { setenv("ASAN_OPTIONS", (asanOptions + ":max_allocation_size_mb=64").c_str(), 1); }
    void TearDown() override
    {
        setenv("ASAN_OPTIONS", asanOptions.c_str(), 1);
        unsetenv("AVRTEST_DOCKSIM");
        unsetenv("AVRTEST_RECORD_DIR");
    }

    const std::string asanOptions = getenv("ASAN_OPTIONS") != nullptr ? getenv("ASAN_OPTIONS") : "";

    TempDevDir dir;
    std::string socket;
    std::unique_ptr<SimProcess> sim;
    std::unique_ptr<ConsoleSession> console;
    size_t commandsSeen = 0;
};

std::string cdb(const std::string& head)
{
    return "cdb " + head + std::string(32 - head.size(), '0');
}

}

//==============================================================================
TEST_F(DockConsoleTest, DockKeys)
{
    const std::string eeprom = "Write diskpack EEPROM (addr, numBytes): ";
    const struct
    {
        std::string letter, reading, fault; // the fault makes every request fail, so that no poll takes it
        std::vector<DockKeyCase> keys;
        DockKeyCase refused; // once the fault is set
    } docks[] = {
        { "s", "rail 0 12000", "io-error=always",
          { { 'G', { { "Get voltage rail (12V=0, disk 3V3=1): ", "0" } }, { cdb("DE0F00") }, "Voltage: 12000 mV\n" },
            { 'I', {}, { cdb("DE0D") }, "Diskpack ID: 1\n" },
            { 'U', {}, { cdb("DE04") }, "Diskpack Guid: 2853494d000d0000\n" },
            { 'P', {}, { cdb("DE0A") }, "Diskpack temperature: 30 deg\n" },
            { 'X', { { "Set Diskpack write protect: ", "1" } }, { cdb("DE0701") }, "" },
            { 'Y', {}, { cdb("DE06") }, "Diskpack is write protected\n" },
            { 'L', { { "Set Diskpack LED (r,g,b,flash,activity): ", "1 2 3 0 1" } }, { cdb("DE020102030001") }, "" },
            { 'E', { { "Set Dock LED (auto, r,g,b,flash): ", "0 9 8 7 1" } }, { cdb("DE10000908070100") }, "" },
            { 'S', { { "Get disk serial (disk 0/1): ", "1" } }, { cdb("DE0E01") }, "Disk 1 serial number is SIMDISK01Z0\n" },
            { 's', {}, {}, "Dock serial number: XD100000\n" },
            { 'l', {}, {}, "Dock location: 0x14200000\n" },
            { 'w', { { eeprom, "0 15" } },
              { cdb("DE0B00000B000102030405060708090A"), cdb("DE0B0B000B0B0C0D0E"), cdb("DE0C00000F") },
              "15 bytes written/read OK at address 0x0000\n" },
            // Numbers out of all reason are refused before anything is sent.
            { 'w', { { eeprom, "-99999999999 5" } }, {}, "Failed\n" },
            { 'w', { { eeprom, "0 99999999999" } }, {}, "Failed\n" } },
          { 'I', {}, { cdb("DE0D") }, "Failed\n" } },
        { "m", "rail 3 1050", "nack=always",
          { { 'G', { { "Rail (0-4=12V,5V0,3V3,1V05,3V3_AVR): ", "3" } }, { "tbt 0 G3" }, "Voltage: 1050 mV\n" },
            { 'I', {}, { "tbt 0 I" }, "Diskpack ID: 1\n" },
            { 'S', { { "Set serial number: 0040", "1234" } }, { "tbt 0 S04D2" }, "Serial number set to 00401234\n" },
            { 'E', {}, { "tbt 0 E" }, "Serial number is 00401234\n" },
            { 'M', { { "Which zone (0 = diskpack, 1 = dock): ", "1" } }, { "tbt 0 M1" },
              "Dock temperature Min: 24 Max: 48\n" },
            { 'X', { { "Set write protect (enable): ", "1" } }, { "tbt 0 X1" }, "" },
            { 'Y', {}, { "tbt 0 Y0" }, "Diskpack is write protected\n" },
            { 'L', { { "Set Diskpack LED (r,g,b,flash,activity): ", "3 0 1 1 1" } }, { "tbt 0 LF1" }, "" },
            { 'D', { { "Diskpack power (on): ", "1" } }, { "tbt 0 D1" }, "" },
            { 'P', { { "Diskpack temperature check (enable): ", "1" } }, { "tbt 0 P1" }, "" },
            { 'T', { { "Dock temperature check enable: ", "0" } }, { "tbt 0 T0" }, "" },
            { 'Z', { { "Reset eeprom: sure? ", "y" } }, { "tbt 0 Z" }, "" },
            { '\\', { { "Type id (0, 1, 4, 9, 10): ", "10" } }, { "tbt 0 tA" }, "ok\n" } },
          { 'O', {}, { "tbt 0 O" }, "Failed\n" } },
        { "n", "rail 3 1050", "nack=always",
          { { 'G', { { "Rail (0-6=Supply,12V,3V3_AVR,5V0,3V3,1V8,0V9): ", "6" } }, { "tbt 0 G6" },
              "Voltage: 903 mV\n" },
            { 'L', { { "Set Diskpack LED (r,g,b,flash): ", "0 3 0 1" } }, { "tbt 0 L4C" }, "" },
            { 'F', { { "Fan speed (1=auto, min 0): ", "128" } }, { "tbt 0 F80" }, "" },
            { 'R', { { "Reset Port (0-3): ", "2" } }, { "tbt 0 *R2" }, "" },
            { 'S', { { "Set serial number: 0063", "42" } }, { "tbt 0 S002A" }, "Serial number set to 00630042\n" },
            { '\\', { { "Type id (4=4x2, 5=2x4, 6=1x8): ", "5" } }, { "tbt 0 t5" }, "ok\n" },
            { 'R', { { "Reset Port (0-3): ", "99999999999" } }, {}, "Failed\n" },
            { 'R', { { "Reset Port (0-3): ", "-2147483648" } }, {}, "Failed\n" } },
          { 'F', { { "Fan speed (1=auto, min 0): ", "1" } }, { "tbt 0 F01" }, "Failed\n" } },
    };
    for (const auto& d : docks)
    {
        SCOPED_TRACE(d.letter);
        start(d.letter);
        ASSERT_EQ(sim->control(d.reading), "ok");
        runKeys(d.keys);
        ASSERT_EQ(sim->control("fault " + d.fault), "ok");
        runKeys({ d.refused });
        ASSERT_TRUE(console->key('x'));
        EXPECT_EQ(console->exitStatus(), 0);
    }
}

TEST_F(DockConsoleTest, HelpListsTheKeysButNotTheBackslashAndUnknownKeysShowIt)
{
    start("m");
    ASSERT_TRUE(console->key('?'));
    ASSERT_TRUE(console->waitFor("! autotest\nx exit\n"));
    const auto help = console->output();
    EXPECT_NE(help.find("\nW diskpack EEPROM write/read test\n"), std::string::npos) << help;
    EXPECT_EQ(help.find("\n\\"), std::string::npos) << help;
    EXPECT_EQ(help.find("\nF "), std::string::npos) << "the fan is the CD2's";
    for (char k : { 'F', 'a', '[' })
    {
        SCOPED_TRACE(k);
        ASSERT_TRUE(console->key(k));
        EXPECT_TRUE(console->waitFor("! autotest\nx exit\n"));
    }
    EXPECT_TRUE(newCommands(0).empty());
}

// In a child: the type prompt is reached only by entering the dock console without a type.
TEST_F(DockConsoleTest, CheckModeAndTheTypeAndIdPrompts)
{
    startSim("n", { "--id", "2" });
    const struct
    {
        std::vector<const char*> argv;
        std::string typed, printed;
        int status;
    } cases[] = {
        { { "avrtest", "n", "2", "c" }, "", "Thunderbolt CD2 Dock 1.0.0\n", 0 },
        { { "avrtest", "n", "1", "c" }, "", "Failed to find Thunderbolt CD2 Dock board id 1!\n", 255 },
        { { "avrtest", "s", "0", "check" }, "", "Failed to find USB 3.0 Dock board id 0!\n", 255 },
        { { "avrtest", "n", "1" }, "", "Failed to find Thunderbolt CD2 Dock board id 1!\n", 255 },
        { { "avrtest" }, "?\nq\nn\n",
          "Enter hardware type (? for list)\ns    USB 3.0 Transfer Dock\nm    Thunderbolt Single Dock\nn    "
          "Thunderbolt CD2 Dock\nEnter hardware type (? for list)\nUnknown hardware type\ns    USB 3.0 Transfer "
          "Dock\nm    Thunderbolt Single Dock\nn    Thunderbolt CD2 Dock\nEnter hardware type (? for "
          "list)\nFailed to find Thunderbolt CD2 Dock board id 0!\n", 255 },
        { { "avrtest", "\xc3\xa9" }, "s\n", "Enter hardware type (? for list)\nFailed to find USB 3.0 Dock board id 0!\n", 255 },
        { { "avrtest", "m", "two" }, "x\n-1\n 7 \n",
          "Enter board ID\nInvalid input: enter an integer.\nEnter board ID\nEnter board ID\nFailed to find "
          "Thunderbolt Single Dock board id 7!\n", 255 },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(::testing::PrintToString(c.argv) + " typed " + c.typed);
        const auto typed = dir.path() + "/typed", printedFile = dir.path() + "/printed";
        ASSERT_TRUE(juce::File(typed).replaceWithText(c.typed));
        const pid_t pid = fork();
        if (pid == 0)
        {
            if (freopen(typed.c_str(), "r", stdin) == nullptr || freopen(printedFile.c_str(), "w", stdout) == nullptr)
                _exit(1);
            _exit(runDockConsole((int) c.argv.size(), c.argv.data()) & 0xff);
        }
        int status = 0;
        waitpid(pid, &status, 0);
        EXPECT_EQ(WEXITSTATUS(status), c.status);
        const auto printed = juce::File(printedFile).loadFileAsString().toStdString();
        EXPECT_EQ(printed.substr(printed.find("\n\n") + 2), c.printed);
    }
}

//==============================================================================
namespace
{
juce::var readOnlyRecord(const std::string& dir)
{
    const auto files = juce::File(dir).findChildFiles(juce::File::findFiles, false, "*");
    EXPECT_EQ(files.size(), 1) << "one record and nothing else";
    if (files.size() != 1 || !files[0].getFileName().endsWith(".json"))
        return {};
    return juce::JSON::parse(files[0]);
}

/** The steps of a record as "name=OUTCOME", in order. */
std::vector<std::string> stepOutcomes(const juce::var& record)
{
    std::vector<std::string> all;
    if (auto* steps = record["steps"].getArray())
        for (auto& s : *steps)
            all.push_back((s["name"].toString() + "=" + s["outcome"].toString()).toStdString());
    return all;
}

/** Entry i of a step's list; void when the record lacks it, so a bad record fails its checks
    instead of stopping the test binary on JUCE's array bounds. */
juce::var stepEntry(const juce::var& record, const juce::String& name, const char* list, int i)
{
    if (auto* steps = record["steps"].getArray())
        for (auto& s : *steps)
            if (auto* entries = s[list].getArray(); s["name"] == name && entries && i < entries->size())
                return (*entries)[i];
    return {};
}
}

TEST_F(DockConsoleTest, ThunderboltAutotestAnsweredYesPasses)
{
    start("n");
    ASSERT_TRUE(console->key('!'));
    answerAll("y", "Would you like to enter a new dock serial number?  [y/n] > ");
    console->line("y");
    ASSERT_TRUE(console->waitFor("Set serial number: "));
    console->line("77");
    ASSERT_TRUE(console->waitFor("\n\n******** AUTOTEST PASS ********\n\n"));
    const auto out = console->output();
    for (const char* part : { "Begin TbtCd2 autotest.\n\n", "\n(Test 1/14) Diskpack insertion test:\n",
                              "\n(Test 11/14) Fan tests:\n", "\n(Test 13/14) Dock serial number read test:\n", "Passed\n",
                              "Diskpack write protect disabled\n" })
        EXPECT_NE(out.find(part), std::string::npos) << part;
    const auto wire = newCommands(1);
    EXPECT_EQ(wire.back(), "tbt 0 L0C");
    EXPECT_NE(std::find(wire.begin(), wire.end(), "tbt 0 S004D"), wire.end());
    ASSERT_TRUE(console->key('x'));
    EXPECT_EQ(console->exitStatus(), 0);
}

TEST_F(DockConsoleTest, ThunderboltRailBoundsAndANoFailTheRunAndItsRecord)
{
    const std::string records = freshRecords();
    start("m");
    // 0.95 and 1.05 x nominal pass; a millivolt beyond either fails.
    for (const char* rail : { "rail 0 11400", "rail 1 5251", "rail 3 997", "rail 4 3465" })
        ASSERT_EQ(sim->control(rail), "ok");
    ASSERT_TRUE(console->key('!'));
    answerFirstTwo();
    ASSERT_TRUE(console->waitFor("Testing voltage rail (12V)...\nVoltage: 11400 mV\nSuccess! Voltage within 5 percent "
                                 "margin.\nTesting voltage rail (5V0)...\nVoltage: 5251 mV\nFailed; voltage higher "
                                 "than acceptable upper bound.\n"))
        << console->output();
    ASSERT_TRUE(console->waitFor("Testing voltage rail (1V05)...\nVoltage: 997 mV\nFailed; voltage lower than "
                                 "acceptable lower bound.\nTesting voltage rail (3V3_AVR)...\nVoltage: 3465 "
                                 "mV\nSuccess! Voltage within 5 percent margin.\n"));
    ASSERT_TRUE(console->waitFor("Is the LED currently RED? [y/n] > "));
    console->line("n");
    answerAll("y", "dock serial number?  [y/n] > ");
    console->line("n");
    ASSERT_TRUE(console->waitFor("\n\n******** AUTOTEST FAIL ********\n\n"));
    ASSERT_TRUE(console->key('x'));
    EXPECT_EQ(console->exitStatus(), 0);

    const auto record = readOnlyRecord(records);
    EXPECT_EQ(record["dockType"].toString(), "Thunderbolt Single Dock");
    EXPECT_EQ((int) record["boardId"], 0);
    EXPECT_EQ(record["firmwareVersion"].toString(), "1.0.0");
    EXPECT_EQ(record["result"].toString(), "FAIL");
    EXPECT_FALSE((bool) record["interrupted"]);
    EXPECT_TRUE(juce::Time::fromISO8601(record["startTime"].toString()) <= juce::Time::fromISO8601(record["endTime"].toString()));
    EXPECT_EQ(stepOutcomes(record),
              (std::vector<std::string> { "Diskpack insertion test=PASS", "Diskpack ejection test=PASS",
                                          "Voltage rail test=FAIL", "Dock min/max temperature test=PASS",
                                          "Diskpack id test=PASS", "Diskpack GUID test=PASS",
                                          "Diskpack min/max temperature test=PASS",
                                          "Diskpack EEPROM read/write test=PASS", "Diskpack write-protect test=PASS",
                                          "Diskpack LED colour tests=FAIL", "Dock serial number read test=PASS",
                                          "Dock serial number write test=PASS" }));
    const auto entry = [&](const char* step, const char* list, int i) {
        return juce::JSON::toString(stepEntry(record, step, list, i), true);
    };
    EXPECT_EQ(entry("Voltage rail test", "measurements", 3),
              R"({"name": "rail 1V05", "value": 997, "unit": "mV", "lowerLimit": 997.5, "upperLimit": 1102.5})");
    EXPECT_EQ(entry("Diskpack LED colour tests", "questions", 0),
              R"({"question": "Is the LED currently RED?", "answer": "n", "yes": false})");
    EXPECT_EQ(entry("Diskpack id test", "measurements", 0), R"({"name": "diskpack id", "value": 1, "lowerLimit": 0, "upperLimit": 2})");
}

// The failing runs are in ReadingsAndFaultsDecideTheirSteps.
TEST_F(DockConsoleTest, UsbAutotestPassesAndItsRecordNamesTheDock)
{
    const std::string records = freshRecords();
    start("s");
    ASSERT_EQ(sim->control("rail 0 12000"), "ok");
    ASSERT_TRUE(console->key('!'));
    ASSERT_TRUE(console->waitFor("Begin XferDock autotest.\n\nPASS: Voltage rail: Rail voltage: 12000 mV\n"));
    ASSERT_TRUE(console->waitFor("PASS: Diskpack ID: 1\nPASS: Diskpack GUID: 2853494d000d0000\n"));
    ASSERT_TRUE(console->waitFor("PASS: Diskpack EEPROM write/read: 512 bytes written/read OK at address 0x0000\n"));
    ASSERT_TRUE(console->waitFor("PASS: Dock LED: Dock LED set to automatic\n\n\n******** AUTOTEST PASS"));
    ASSERT_TRUE(console->key('x'));
    EXPECT_EQ(console->exitStatus(), 0);

    const auto record = readOnlyRecord(records);
    EXPECT_EQ(record["dockType"].toString(), "USB 3.0 Transfer Dock");
    EXPECT_EQ(record["dockSerial"].toString(), "XD100000");
    EXPECT_EQ(record["result"].toString(), "PASS");
    const auto steps = stepOutcomes(record);
    ASSERT_EQ(steps.size(), 19u);
    EXPECT_EQ(steps[0], "Voltage rail=PASS");
    EXPECT_EQ(steps[18], "Dock LED=PASS");
    const auto rail = stepEntry(record, "Voltage rail", "measurements", 0);
    EXPECT_EQ((int) rail["value"], 12000);
    EXPECT_EQ((int) rail["lowerLimit"], 11001);
    EXPECT_EQ((int) rail["upperLimit"], 15999);
    EXPECT_EQ(stepEntry(record, "Diskpack GUID", "measurements", 0)["value"].toString(), "2853494d000d0000");
    EXPECT_EQ(juce::File(records).getNumberOfChildFiles(juce::File::findFiles, "usb3_XD100000_*.json"), 1);
}

TEST_F(DockConsoleTest, CtrlCSkipsTheDockOperationsButStillAsks)
{
    const std::string records = freshRecords();
    start("m");
    ASSERT_TRUE(console->key('!'));
    answerAll("y", "Is the LED currently RED? [y/n] > ");
    newCommands(0);
    console->interrupt();
    console->line("y");
    // Still asked: the other colours and the serial number; the serial number
    // is still read and the LED still set back; no banner.
    ASSERT_TRUE(console->waitFor("Is the LED currently GREEN? [y/n] > "));
    console->line("y");
    ASSERT_TRUE(console->waitFor("Is the LED currently BLUE? [y/n] > "));
    console->line("y");
    ASSERT_TRUE(console->waitFor("\n(Test 13/14) Dock serial number read test:\nSerial number is "));
    ASSERT_TRUE(console->waitFor("Would you like to enter a new dock serial number?  [y/n] > "));
    console->line("y");
    EXPECT_EQ(console->exitStatus(), 0);
    EXPECT_NE(console->output().find("Begin TbtSingle autotest.\n\n"), std::string::npos);
    EXPECT_EQ(console->output().find("AUTOTEST"), std::string::npos);
    EXPECT_EQ(console->output().find("Set serial number"), std::string::npos);
    EXPECT_EQ(newCommands(2), (std::vector<std::string> { "tbt 0 E", "tbt 0 L8C" }));

    const auto record = readOnlyRecord(records);
    EXPECT_EQ(record["result"].toString(), "INCOMPLETE");
    EXPECT_TRUE((bool) record["interrupted"]);
    const auto steps = stepOutcomes(record);
    ASSERT_EQ(steps.size(), 12u);
    EXPECT_EQ(steps[9], "Diskpack LED colour tests=SKIPPED");
    EXPECT_EQ(steps[11], "Dock serial number write test=SKIPPED");
    EXPECT_FALSE(stepEntry(record, "Diskpack LED colour tests", "questions", 2).isVoid());
    EXPECT_TRUE(stepEntry(record, "Diskpack LED colour tests", "questions", 3).isVoid());
}

//==============================================================================
TEST_F(DockConsoleTest, ReadingsAndFaultsDecideTheirSteps)
{
    const struct
    {
        std::string letter, control;
        char key;
        std::string printed;
    } cases[] = {
        { "m", "diskpack-id 0 2", '!', "Diskpack ID: 2 is valid. Success.\n" },
        { "s", "diskpack-id 0 2", '!', "FAIL: Diskpack ID: 2\n" },
        { "s", "rail 0 11000", '!', "FAIL: Voltage rail: Rail voltage: 11000 mV\n" },
        // A GUID passes only when it begins with 28.
        { "n", "guid 0 28FFFFFFFFFFFFFF", '!', "Diskpack Guid: 28FFFFFFFFFFFFFF... Success\n" },
        { "n", "guid 0 82FFFFFFFFFFFFFF", '!', "Diskpack Guid: 82FFFFFFFFFFFFFF... Failed\n" },
        // An EEPROM mismatch fails, an unreadable page alone does not.
        { "m", "fault 0 eeprom-flip", 'W', "Compare fail page 0 byte 00 exp 00 act ff\nFailed\n" },
        { "m", "fault 0 eeprom-read-fail", 'W', "Failed reading page 0\nPassed\n" },
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.letter + " " + c.control);
        const std::string records = freshRecords();
        start(c.letter);
        ASSERT_EQ("ok", sim->control(c.control));
        ASSERT_TRUE(console->key(c.key));
        if (c.key == '!' && c.letter != "s")
            answerFirstTwo();
        EXPECT_TRUE(console->waitFor(c.printed));
        if (c.letter == "s") // its autotest runs to the end
        {
            EXPECT_TRUE(console->waitFor("******** AUTOTEST FAIL ********"));
            continue;
        }
        console.reset(); // SIGKILL mid-run: no record, not even a partial one
        EXPECT_EQ(juce::File(records).getNumberOfChildFiles(juce::File::findFilesAndDirectories, "*"), 0);
    }
}
