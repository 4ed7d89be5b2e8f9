#include "console/dock/TbtDockTester.h"

#include "console/ConsoleInput.h"

#include <array>

using ConsoleInput::ask;
using ConsoleInput::askInt;

namespace
{
void heading(AutotestRun& run, int number, const char* title)
{
    printf("\n(Test %d/%d) %s:\n", number, TbtDockTester::autotestSteps, title);
    run.beginStep(title, number);
}

const char* zoneName(int zone)
{
    return zone == 1 ? "Dock" : "Diskpack";
}

bool temperatureInBounds(int degrees)
{
    return degrees >= TbtDockTester::lowestGoodTemperature && degrees <= TbtDockTester::highestGoodTemperature;
}
}

//==============================================================================
struct TbtDockTester::Keys
{
    // The Thunderbolt firmware's command letters run from A to the backslash.
    static constexpr char firstKey = 'A';
    static constexpr char lastKey = '\\';

    static void uid(TbtDockTester& t)
    {
        juce::String uid;
        if (reportFailure(t.dock().getUID(uid)))
            printf("Thunderbolt UID is %s\n", uid.toRawUTF8());
    }

    static void diskSerial(TbtDockTester& t)
    {
        const int disk = askInt(t.profile.diskPrompt);
        juce::String serial;
        if (reportFailure(t.dock().getDiskSerialNumber(disk, serial)))
            printf("Disk %d serial number is %s\n", disk, serial.toRawUTF8());
    }

    static void power(TbtDockTester& t) { reportFailure(t.dock().setDiskpackPower(askInt("Diskpack power (on): ") != 0)); }

    static void serial(TbtDockTester& t) { t.printSerialNumber(); }

    static void rail(TbtDockTester& t)
    {
        const int rail = askInt(t.profile.railPrompt);
        int mv = 0;
        if (reportFailure(t.dock().getVoltageRail(rail, mv)))
            printf("Voltage: %d mV\n", mv);
    }

    static void diskpackId(TbtDockTester& t)
    {
        int id = 0;
        if (reportFailure(t.dock().getDiskpackId(id)))
            printf("Diskpack ID: %x\n", (unsigned) id);
    }

    static void led(TbtDockTester& t) { t.ledKey(); }

    static void temperatures(TbtDockTester& t)
    {
        int low = 0, high = 0;
        t.readTemperatures(askInt("Which zone (0 = diskpack, 1 = dock): "), low, high);
    }

    static void hours(TbtDockTester& t)
    {
        int hours = 0;
        if (reportFailure(t.dock().getOperatingHours(hours)))
            printf("Operating hours: %d\n", hours);
    }

    static void diskpackTemperatureEvents(TbtDockTester& t)
    {
        reportFailure(t.dock().enableDiskpackTemperatureEvents(askInt("Diskpack temperature check (enable): ") != 0));
    }

    static void setSerial(TbtDockTester& t) { t.setSerialNumber(); }

    static void dockTemperatureEvents(TbtDockTester& t)
    {
        reportFailure(t.dock().enableDockTemperatureEvents(askInt("Dock temperature check enable: ") != 0));
    }

    static void guid(TbtDockTester& t)
    {
        juce::String guid;
        if (reportFailure(t.dock().getDiskpackGuid(guid)))
            printf("Diskpack Guid: %s\n", guid.toRawUTF8());
    }

    static void eeprom(TbtDockTester& t) { t.eepromTest(nullptr); }

    static void setWriteProtect(TbtDockTester& t)
    {
        reportFailure(t.dock().setDiskpackWriteProtect(askInt("Set write protect (enable): ") != 0));
    }

    static void getWriteProtect(TbtDockTester& t)
    {
        bool on = false;
        if (reportFailure(t.dock().getDiskpackWriteProtect(on)))
            printf("Diskpack is %swrite protected\n", on ? "" : "not ");
    }

    static void resetEeprom(TbtDockTester& t)
    {
        if (ConsoleInput::confirm("Reset eeprom: sure? "))
            reportFailure(t.dock().resetEeprom());
    }

    static void typeId(TbtDockTester& t)
    {
        puts(t.dock().setDiskpackTypeId(askInt(t.profile.typeIdPrompt)) ? "ok" : "failed!");
    }

    static constexpr std::array<DockKey<TbtDockTester>, 18> table { {
        { 'A', "Thunderbolt UID", uid },
        { 'B', "disk serial number", diskSerial },
        { 'D', "diskpack power", power },
        { 'E', "get serial number", serial },
        { 'G', "get voltage rail", rail },
        { 'I', "get diskpack ID", diskpackId },
        { 'L', "set diskpack LED", led },
        { 'M', "min/max temperatures", temperatures },
        { 'O', "get op hours", hours },
        { 'P', "diskpack temperature check", diskpackTemperatureEvents },
        { 'S', "set serial number", setSerial },
        { 'T', "dock temperature check", dockTemperatureEvents },
        { 'U', "get guid", guid },
        { 'W', "diskpack EEPROM write/read test", eeprom },
        { 'X', "set write protect", setWriteProtect },
        { 'Y', "get write protect", getWriteProtect },
        { 'Z', "reset EEPROM", resetEeprom },
        { '\\', nullptr, typeId },
    } };
};

//==============================================================================
TbtDockTester::TbtDockTester(std::unique_ptr<TbtDockBoard> b, std::unique_ptr<HardwareBoardEventListener> listener,
                             int id, const TbtDockProfile& p)
    : DockTester(nullptr, std::move(listener), id), profile(p), dockBoard(b.get())
{
    board = std::move(b);
}

bool TbtDockTester::reportFailure(bool ok)
{
    if (!ok)
        puts("Failed");
    return ok;
}

void TbtDockTester::printHelp()
{
    printDockKeys(Keys::table);
    printOwnHelp();
    printCommonHelp();
}

bool TbtDockTester::handleKey(int key)
{
    if (key < Keys::firstKey || key > Keys::lastKey)
        return false;
    return runDockKey(Keys::table, *this, key) || handleOwnKey(key);
}

bool TbtDockTester::printSerialNumber(int* serialOut)
{
    int serial = 0;
    if (!reportFailure(dock().getSerialNumber(serial)))
        return false;
    if (serialNumberIsSet(serial))
        printf("Serial number is %s%04d\n", profile.serialPrefix, serial);
    else
        puts("Serial number is not set");
    if (serialOut != nullptr)
        *serialOut = serial;
    return true;
}

bool TbtDockTester::setSerialNumber()
{
    const int tail = askInt((juce::String("Set serial number: ") + profile.serialPrefix).toRawUTF8());
    // The dock keeps only the four digits after the fixed head.
    if (!reportFailure(serialNumberIsSet(tail) && dock().setSerialNumber(tail)))
        return false;
    printf("Serial number set to %s%04d\n", profile.serialPrefix, tail);
    return true;
}

bool TbtDockTester::readTemperatures(int zone, int& low, int& high)
{
    if (!reportFailure(dock().getMinMaxTemperatures(zone, low, high)))
        return false;
    printf("%s temperature Min: %d Max: %d\n", zoneName(zone), low, high);
    return true;
}

bool TbtDockTester::eepromTest(AutotestRun* run)
{
    unsigned char page[eepromPageSize];
    for (int p = 0; p < eepromPages; ++p)
    {
        for (int i = 0; i < eepromPageSize; ++i)
            page[i] = (unsigned char) (p * eepromPageSize + i);
        if (!dock().writeDiskpackEeprom(p * eepromPageSize, eepromPageSize, page))
        {
            printf("Failed writing page %d\n", p);
            puts("Failed");
            if (run != nullptr)
                run->error();
            return false;
        }
    }

    bool same = true;
    for (int p = 0; p < eepromPages; ++p)
    {
        if (!dock().readDiskpackEeprom(p * eepromPageSize, eepromPageSize, page))
        {
            // Judged by the pages compared so far: an unreadable page alone
            // does not fail the diskpack.
            printf("Failed reading page %d\n", p);
            if (run != nullptr)
                run->record().note(juce::String::formatted("read failed at page %d", p));
            break;
        }
        for (int i = 0; i < eepromPageSize; ++i)
        {
            const auto expected = (unsigned char) (p * eepromPageSize + i);
            if (page[i] != expected)
            {
                printf("Compare fail page %d byte %02x exp %02x act %02x\n", p, i, expected, page[i]);
                if (run != nullptr)
                    run->record().note(juce::String::formatted("page %d byte %d read 0x%02x, wrote 0x%02x", p, i,
                                                               page[i], expected));
                same = false;
                break;
            }
        }
    }
    puts(same ? "Passed" : "Failed");
    if (!same && run != nullptr)
        run->fail();
    return same;
}

//==============================================================================
void TbtDockTester::railStep(AutotestRun& run)
{
    for (const auto& r : profile.rails)
    {
        printf("Testing voltage rail (%s)...\n", r.label);
        if (run.stopped())
        {
            run.skip();
            continue;
        }
        int mv = 0;
        if (!reportFailure(dock().getVoltageRail(r.rail, mv)))
        {
            run.error();
            continue;
        }
        printf("Voltage: %d mV\n", mv);
        run.record().measure(juce::String("rail ") + r.label, mv, "mV", r.nominalMv * 95 / 100.0,
                             r.nominalMv * 105 / 100.0);
        if (mv * 100 < r.nominalMv * 95)
            puts("Failed; voltage lower than acceptable lower bound.");
        else if (mv * 100 > r.nominalMv * 105)
            puts("Failed; voltage higher than acceptable upper bound.");
        else
        {
            puts("Success! Voltage within 5 percent margin.");
            continue;
        }
        run.fail();
    }
}

void TbtDockTester::temperatureStep(AutotestRun& run, int zone)
{
    if (run.stopped())
        return run.skip();
    int low = 0, high = 0;
    if (!readTemperatures(zone, low, high))
        return run.error();
    const juce::String zoneText = juce::String(zoneName(zone)).toLowerCase();
    run.record().measure(zoneText + " minimum temperature", low, "degC", lowestGoodTemperature, highestGoodTemperature);
    run.record().measure(zoneText + " maximum temperature", high, "degC", lowestGoodTemperature, highestGoodTemperature);
    if (!temperatureInBounds(low) || !temperatureInBounds(high))
    {
        printf("Failed. Temperatures were outside of target bounds (%dc-%dc).\n", lowestGoodTemperature,
               highestGoodTemperature);
        run.fail();
    }
}

void TbtDockTester::idStep(AutotestRun& run)
{
    if (run.stopped())
        return run.skip();
    int id = 0;
    if (!reportFailure(dock().getDiskpackId(id)))
        return run.error();
    run.record().measure("diskpack id", id, {}, 0, 2);
    const bool valid = id >= 0 && id <= 2;
    printf("Diskpack ID: %x is %s\n", (unsigned) id, valid ? "valid. Success." : "invalid. Failed.");
    if (!valid)
        run.fail();
}

void TbtDockTester::guidStep(AutotestRun& run)
{
    if (run.stopped())
        return run.skip();
    juce::String guid;
    if (!reportFailure(dock().getDiskpackGuid(guid)))
        return run.error();
    run.record().measure("diskpack GUID", guid, {});
    run.record().note("a GUID passes when it begins with 28");
    const bool good = guid.startsWith("28");
    printf("Diskpack Guid: %s... %s\n", guid.toRawUTF8(), good ? "Success" : "Failed");
    if (!good)
        run.fail();
}

void TbtDockTester::writeProtectStep(AutotestRun& run)
{
    if (run.stopped())
        return run.skip();
    for (const bool on : { true, false })
    {
        if (!reportFailure(dock().setDiskpackWriteProtect(on)))
            run.error();
        else
            printf("Diskpack write protect %s\n", on ? "enabled" : "disabled");
    }
}

void TbtDockTester::ledStep(AutotestRun& run)
{
    struct Colour
    {
        const char* question;
        int red, green, blue;
    };
    static constexpr Colour colours[] = { { "Is the LED currently RED?", 255, 0, 0 },
                                          { "Is the LED currently GREEN?", 0, 255, 0 },
                                          { "Is the LED currently BLUE?", 0, 0, 255 } };
    for (const auto& c : colours)
    {
        if (run.stopped())
            run.skip();
        else if (!reportFailure(setLed(c.red, c.green, c.blue, false, false)))
            run.error();
        if (!run.ask(c.question))
            run.fail();
    }
}

void TbtDockTester::serialReadStep(AutotestRun& run)
{
    // Read even after Ctrl-C: the record is filed under the serial number.
    int serial = -1;
    if (!printSerialNumber(&serial))
        return run.error(false);
    if (serialNumberIsSet(serial))
    {
        const auto text = profile.serialPrefix + juce::String(serial).paddedLeft('0', 4);
        run.record().setDockSerial(text);
        run.record().measure("dock serial number", text, {});
    }
    else
        run.record().note("serial number not set");
}

void TbtDockTester::serialWriteStep(AutotestRun& run)
{
    if (!run.ask("Would you like to enter a new dock serial number? "))
        return;
    if (run.stopped())
        return run.skip();
    if (!setSerialNumber())
        run.error();
}

void TbtDockTester::runAutotest()
{
    AutotestRun run(AutotestRecord(profile.recordType, profile.recordTag, boardId, board->getVersionString()),
                    dockStopFlag);
    printf("Begin %s autotest.\n\n", profile.autotestName);

    heading(run, 1, "Diskpack insertion test");
    if (run.stopped())
        run.skip();
    else
    {
        if (!run.ask("Please confirm a diskpack is inserted before continuing..."))
            run.fail();
        if (!reportFailure(dock().setDiskpackPower(true)))
            run.error();
    }

    heading(run, 2, "Diskpack ejection test");
    if (run.stopped())
        run.skip();
    else if (!run.ask("Please press diskpack's eject button and confirm success..."))
        run.fail();

    heading(run, 3, "Voltage rail test");
    railStep(run);
    heading(run, 4, "Dock min/max temperature test");
    temperatureStep(run, 1);
    heading(run, 5, "Diskpack id test");
    idStep(run);
    heading(run, 6, "Diskpack GUID test");
    guidStep(run);
    heading(run, 7, "Diskpack min/max temperature test");
    temperatureStep(run, 0);
    heading(run, 8, "Diskpack EEPROM read/write test");
    if (run.stopped())
        run.skip();
    else
        eepromTest(&run);
    heading(run, 9, "Diskpack write-protect test");
    writeProtectStep(run);
    heading(run, 10, "Diskpack LED colour tests");
    ledStep(run);
    runOwnSteps(run);
    // The firmware's tool numbers these two 13 and 14 whatever came before.
    heading(run, 13, "Dock serial number read test");
    serialReadStep(run);
    heading(run, 14, "Dock serial number write test");
    serialWriteStep(run);
    run.endStep();

    // Back to the LED a diskpack shows in service, even after Ctrl-C.
    reportFailure(setLed(0, 255, 0, false, true));
    if (!run.stopped())
        printf("\n\n******** AUTOTEST %s ********\n\n", run.passed() ? "PASS" : "FAIL");
    fflush(stdout);
    run.finish();
}
