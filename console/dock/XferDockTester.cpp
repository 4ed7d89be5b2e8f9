#include "console/dock/XferDockTester.h"

#include "console/ConsoleInput.h"
#include "console/dock/DockConsoleListeners.h"

#include <array>
#include <vector>

using ConsoleInput::ask;
using ConsoleInput::askInt;
using Outcome = AutotestRecord::Outcome;

namespace
{
bool reportFailure(bool ok)
{
    if (!ok)
        puts("Failed");
    return ok;
}

struct Colour
{
    const char* name;
    int red, green, blue;
};
constexpr Colour ledColours[] = { { "red", 255, 0, 0 }, { "green", 0, 255, 0 }, { "blue", 0, 0, 255 } };

juce::String locationText(uint32_t location)
{
    return juce::String::formatted("0x%08x", (unsigned) location);
}
}

//==============================================================================
struct XferDockTester::Keys
{
    static void rail(XferDockTester& t)
    {
        const int rail = askInt("Get voltage rail (12V=0, disk 3V3=1): ");
        int mv = 0;
        if (reportFailure(t.dock.getVoltageRail((XferDockVoltageRail) rail, mv)))
            printf("Voltage: %d mV\n", mv);
    }

    static void diskpackId(XferDockTester& t)
    {
        int id = 0;
        if (reportFailure(t.dock.getDiskpackId(id)))
            printf("Diskpack ID: %d\n", id);
    }

    static void guid(XferDockTester& t)
    {
        juce::String guid;
        if (reportFailure(t.dock.getDiskpackGuid(guid)))
            printf("Diskpack Guid: %s\n", guid.toRawUTF8());
    }

    static void temperature(XferDockTester& t)
    {
        int degrees = 0;
        if (reportFailure(t.dock.getDiskpackTemp(degrees)))
            printf("Diskpack temperature: %d deg\n", degrees);
    }

    static void diskpackLed(XferDockTester& t)
    {
        int r, g, b, flash, activity;
        ask("Set Diskpack LED (r,g,b,flash,activity): ", "%d %d %d %d %d", r, g, b, flash, activity);
        reportFailure(t.dock.setDiskpackLed(r, g, b, flash != 0, activity != 0));
    }

    static void power(XferDockTester& t)
    {
        // Switching the diskpack resets the dock's bus: the disk goes and comes.
        reportFailure(t.dock.setDiskpackPower(askInt("Set dispack power (1/0): ") != 0));
    }

    static void dockLed(XferDockTester& t)
    {
        int automatic, r, g, b, flash;
        ask("Set Dock LED (auto, r,g,b,flash): ", "%d %d %d %d %d", automatic, r, g, b, flash);
        reportFailure(t.dock.setDockLed(automatic != 0, r, g, b, flash != 0));
    }

    static void setWriteProtect(XferDockTester& t)
    {
        reportFailure(t.dock.setDiskpackWriteProtect(askInt("Set Diskpack write protect: ") != 0));
    }

    static void getWriteProtect(XferDockTester& t)
    {
        bool on = false;
        if (reportFailure(t.dock.getDiskpackWriteProtect(on)))
            printf("Diskpack is %swrite protected\n", on ? "" : "not ");
    }

    static void eepromManual(XferDockTester& t)
    {
        int address, count;
        ask("Write diskpack EEPROM (addr, numBytes): ", "%d %d", address, count);
        t.printEepromResult(address, count);
    }

    static void eepromAutomatic(XferDockTester& t) { t.printEepromResult(0, eepromSize); }

    static void diskSerial(XferDockTester& t)
    {
        const int disk = askInt("Get disk serial (disk 0/1): ");
        juce::String serial;
        if (reportFailure(t.dock.getDiskSerialNumber(disk, serial)))
            printf("Disk %d serial number is %s\n", disk, serial.toRawUTF8());
    }

    static void dockSerial(XferDockTester& t)
    {
        printf("Dock serial number: %s\n", t.dock.getSerialNumber().toRawUTF8());
    }

    static void location(XferDockTester& t)
    {
        printf("Dock location: %s\n", locationText((uint32_t) t.dock.getLocationID()).toRawUTF8());
    }

    static constexpr std::array<DockKey<XferDockTester>, 14> table { {
        { 'G', "get voltage rail", rail },
        { 'I', "get diskpack ID", diskpackId },
        { 'U', "get diskpack GUID", guid },
        { 'P', "diskpack temperature", temperature },
        { 'L', "set diskpack LED", diskpackLed },
        { 'D', "diskpack power (resets the bus)", power },
        { 'E', "set dock LED", dockLed },
        { 'X', "set write protect", setWriteProtect },
        { 'Y', "get write protect", getWriteProtect },
        { 'w', "diskpack EEPROM write/read test, manual", eepromManual },
        { 'W', "diskpack EEPROM write/read test, 512 bytes from 0", eepromAutomatic },
        { 'S', "disk serial number", diskSerial },
        { 's', "dock serial number", dockSerial },
        { 'l', "dock USB bus location", location },
    } };
};

//==============================================================================
XferDockTester::XferDockTester(std::shared_ptr<DockPlatform> platform, int id)
    : DockTester(std::make_unique<XferDock>(std::move(platform)), std::make_unique<AVRXferDockEventListener>(), id),
      dock(static_cast<XferDock&>(*board))
{
}

void XferDockTester::printHelp()
{
    printDockKeys(Keys::table);
    printCommonHelp();
}

bool XferDockTester::handleKey(int key)
{
    return runDockKey(Keys::table, *this, key);
}

XferDockTester::EepromCheck XferDockTester::eepromTest(int address, int count)
{
    // Refused before the buffers take their size from it: a typed count can
    // ask for gigabytes, and the dock refuses such a span anyway.
    if (count < 0 || !XferDock::eepromSpanAddressable(address, count))
        return EepromCheck::failed;
    // The dock's last write chunk may carry up to a chunk's worth of bytes
    // past the count; they come from zeroed padding, not from beyond the buffer.
    std::vector<unsigned char> written((size_t) count + maxChunkOverrun, 0), read((size_t) count);
    for (int i = 0; i < count; ++i)
        written[(size_t) i] = (unsigned char) (address + i);
    if (!dock.writeDiskpackEeprom(address, count, written.data()) || !dock.readDiskpackEeprom(address, count, read.data()))
        return EepromCheck::failed;
    for (int i = 0; i < count; ++i)
        if (read[(size_t) i] != written[(size_t) i])
        {
            printf("Failed verification at byte 0x%04x: got 0x%02x, expected 0x%02x\n", address + i,
                   read[(size_t) i], written[(size_t) i]);
            return EepromCheck::differs;
        }
    return EepromCheck::same;
}

juce::String XferDockTester::eepromSuccess(int address, int count)
{
    return juce::String::formatted("%d bytes written/read OK at address 0x%04x", count, address);
}

void XferDockTester::printEepromResult(int address, int count)
{
    const auto check = eepromTest(address, count);
    if (check == EepromCheck::same)
        printf("%s\n", eepromSuccess(address, count).toRawUTF8());
    else if (check == EepromCheck::failed)
        puts("Failed");
}

void XferDockTester::report(AutotestRun& run, const juce::String& name, Outcome outcome, const juce::String& detail)
{
    if (outcome == Outcome::error)
    {
        puts(("ERROR: " + name + ": Test failed to execute correctly.\n").toRawUTF8());
        run.error();
    }
    else
    {
        printf("%s: %s%s%s\n", outcome == Outcome::pass ? "PASS" : "FAIL", name.toRawUTF8(),
               detail.isEmpty() ? "" : ": ", detail.toRawUTF8());
        if (outcome != Outcome::pass)
            run.fail();
    }
    run.endStep(outcome);
}

void XferDockTester::runAutotest()
{
    AutotestRun run(AutotestRecord("USB 3.0 Transfer Dock", "usb3", boardId, board->getVersionString()),
                    dockStopFlag);
    run.record().setDockSerial(dock.getSerialNumber());
    printf("Begin XferDock autotest.\n\n");

    struct Step
    {
        const char* name;
        std::function<void(XferDockTester&, AutotestRun&, const char* name)> run;
    };
    std::vector<Step> steps;

    for (const auto& limits : railLimits)
        steps.push_back({ "Voltage rail", [limits](XferDockTester& t, AutotestRun& run, const char* name) {
                             int mv = 0;
                             if (!t.dock.getVoltageRail((XferDockVoltageRail) limits.rail, mv))
                                 return report(run, name, Outcome::error);
                             run.record().measure(juce::String::formatted("rail %d", limits.rail), mv, "mV",
                                                  limits.lowestMv, limits.highestMv);
                             const bool good = mv >= limits.lowestMv && mv <= limits.highestMv;
                             report(run, name, good ? Outcome::pass : Outcome::fail,
                                    juce::String::formatted("Rail voltage: %d mV", mv));
                         } });

    steps.push_back({ "Diskpack ID", [](XferDockTester& t, AutotestRun& run, const char* name) {
                         int id = 0;
                         if (!t.dock.getDiskpackId(id))
                             return report(run, name, Outcome::error);
                         run.record().measure("diskpack id", id, {}, 0, 1);
                         report(run, name, diskpackIdIsValid(id) ? Outcome::pass : Outcome::fail, juce::String(id));
                     } });

    steps.push_back({ "Diskpack GUID", [](XferDockTester& t, AutotestRun& run, const char* name) {
                         juce::String guid;
                         if (!t.dock.getDiskpackGuid(guid))
                             return report(run, name, Outcome::error);
                         run.record().measure("diskpack GUID", guid, {});
                         report(run, name, Outcome::pass, guid);
                     } });

    steps.push_back({ "Diskpack temp", [](XferDockTester& t, AutotestRun& run, const char* name) {
                         int degrees = 0;
                         if (!t.dock.getDiskpackTemp(degrees))
                             return report(run, name, Outcome::error);
                         run.record().measure("diskpack temperature", degrees, "degC");
                         report(run, name, Outcome::pass, juce::String(degrees) + " deg");
                     } });

    steps.push_back({ "Diskpack EEPROM write/read", [](XferDockTester& t, AutotestRun& run, const char* name) {
                         const auto check = t.eepromTest(0, eepromSize);
                         if (check == EepromCheck::failed)
                             return report(run, name, Outcome::error);
                         report(run, name, check == EepromCheck::same ? Outcome::pass : Outcome::fail,
                                check == EepromCheck::same ? eepromSuccess(0, eepromSize) : juce::String());
                     } });

    for (const int disk : { 0, 1 })
        steps.push_back({ disk == 0 ? "Disk 0 serial number" : "Disk 1 serial number",
                          [disk](XferDockTester& t, AutotestRun& run, const char* name) {
                              juce::String serial;
                              if (!t.dock.getDiskSerialNumber(disk, serial))
                                  return report(run, name, Outcome::error);
                              run.record().measure("disk serial number", serial, {});
                              report(run, name, Outcome::pass, serial);
                          } });

    steps.push_back({ "Dock serial number", [](XferDockTester& t, AutotestRun& run, const char* name) {
                         const auto serial = t.dock.getSerialNumber();
                         report(run, name, serial.isEmpty() ? Outcome::error : Outcome::pass, serial);
                     } });

    steps.push_back({ "Dock location", [](XferDockTester& t, AutotestRun& run, const char* name) {
                         report(run, name, Outcome::pass, locationText((uint32_t) t.dock.getLocationID()));
                     } });

    for (const bool on : { true, false })
        steps.push_back({ "Diskpack write protect", [on](XferDockTester& t, AutotestRun& run, const char* name) {
                             if (!t.dock.setDiskpackWriteProtect(on))
                                 return report(run, name, Outcome::error);
                             report(run, name, Outcome::pass, on ? "enabled" : "disabled");
                         } });

    for (const auto& c : ledColours)
        steps.push_back({ "Diskpack LED", [c](XferDockTester& t, AutotestRun& run, const char* name) {
                             if (!t.dock.setDiskpackLed(c.red, c.green, c.blue, false, false))
                                 return report(run, name, Outcome::error);
                             report(run, name, Outcome::pass, juce::String("Diskpack LED set to ") + c.name);
                         } });

    for (const auto& c : ledColours)
        steps.push_back({ "Dock LED", [c](XferDockTester& t, AutotestRun& run, const char* name) {
                             if (!t.dock.setDockLed(false, c.red, c.green, c.blue, false))
                                 return report(run, name, Outcome::error);
                             report(run, name, Outcome::pass, juce::String("Dock LED set to ") + c.name);
                         } });

    steps.push_back({ "Dock LED", [](XferDockTester& t, AutotestRun& run, const char* name) {
                         if (!t.dock.setDockLed(true, 0, 0, 0, false))
                             return report(run, name, Outcome::error);
                         report(run, name, Outcome::pass, "Dock LED set to automatic");
                     } });

    for (const auto& step : steps)
    {
        if (run.stopped())
        {
            run.beginStep(step.name);
            run.endStep(Outcome::skipped);
            continue;
        }
        run.beginStep(step.name);
        step.run(*this, run, step.name);
        fflush(stdout);
    }

    if (!run.stopped())
        printf("\n\n******** AUTOTEST %s ********\n\n", run.passed() ? "PASS" : "FAIL");
    fflush(stdout);
    run.finish();
}
