#pragma once

#include "console/dock/AutotestRun.h"
#include "console/dock/DockTester.h"
#include "docks/usb/XferDock.h"

/** The console of the USB 3.0 transfer dock: its keys and its autotest, in
    which every step prints one PASS, FAIL or ERROR line. */
class XferDockTester : public DockTester
{
public:
    static constexpr int eepromSize = 512;
    /** The most bytes past the count the dock's last EEPROM write chunk takes. */
    static constexpr int maxChunkOverrun = 11;

    struct RailLimits
    {
        int rail;
        int lowestMv, highestMv; // both pass
    };
    static constexpr RailLimits railLimits[] = { { 0, 11001, 15999 }, { 1, 3001, 3599 } };

    XferDockTester(std::shared_ptr<DockPlatform> platform, int boardId);

    void runAutotest() override;
    void printHelp() override;
    bool handleKey(int key) override;

    /** A diskpack this dock takes has id 0 or 1. */
    static bool diskpackIdIsValid(int id) { return id == 0 || id == 1; }

private:
    struct Keys;

    enum class EepromCheck
    {
        same,
        differs, // the mismatch line is printed
        failed   // a write or read did not go through
    };
    /** Writes each byte's low address bits from `address` on, reads them back
        and compares; a mismatch is printed with the first differing byte. */
    EepromCheck eepromTest(int address, int count);
    /** The keys' result for the EEPROM test. */
    void printEepromResult(int address, int count);
    static juce::String eepromSuccess(int address, int count);

    /** Prints a step's result line and records it. */
    static void report(AutotestRun& run, const juce::String& name, AutotestRecord::Outcome outcome,
                       const juce::String& detail = {});

    XferDock& dock;
};
