#pragma once

#include "console/dock/AutotestRun.h"
#include "console/dock/DockTester.h"
#include "docks/thunderbolt/TbtDockBoard.h"

#include <vector>

/** What sets one Thunderbolt dock's console apart from the other's. */
struct TbtDockProfile
{
    struct Rail
    {
        const char* label; // as in "Testing voltage rail (12V)..."
        int rail;
        int nominalMv;
    };

    const char* autotestName; // "Begin %s autotest."
    const char* recordType;   // the dock type named in test records
    const char* recordTag;    // and in their file names
    const char* railPrompt;
    const char* diskPrompt;
    const char* serialPrefix; // the fixed head of the dock's serial numbers
    const char* typeIdPrompt;
    std::vector<Rail> rails;
};

/** The menu and autotest the two Thunderbolt docks share; each dock adds its
    LED, its own keys and, on the CD2, the fan test. */
class TbtDockTester : public DockTester
{
public:
    static constexpr int autotestSteps = 14;
    static constexpr int eepromPages = 16;
    static constexpr int eepromPageSize = TbtDockBoard::maxEepromTransfer;
    static constexpr int lowestGoodTemperature = 0;
    static constexpr int highestGoodTemperature = 80;

    TbtDockTester(std::unique_ptr<TbtDockBoard> board, std::unique_ptr<HardwareBoardEventListener> listener,
                  int boardId, const TbtDockProfile& profile);

    void runAutotest() override;
    void printHelp() override;
    bool handleKey(int key) override;

    /** Thunderbolt dock serial numbers: the fixed head, then four digits. */
    static bool serialNumberIsSet(int tail) { return tail >= 0 && tail <= 9999; }
    /** 0.95 x nominal and 1.05 x nominal both pass. */
    static bool railWithinMargin(int readingMv, int nominalMv)
    {
        return readingMv * 100 >= nominalMv * 95 && readingMv * 100 <= nominalMv * 105;
    }

protected:
    TbtDockBoard& dock() { return *dockBoard; }

    // --- what each dock does its own way ---
    /** Sets the diskpack LED; the CD2 has no activity flag. */
    virtual bool setLed(int red, int green, int blue, bool flash, bool activity) = 0;
    /** The `L` key. */
    virtual void ledKey() = 0;
    /** Keys only this dock has; false when it has none for `key`. */
    virtual bool handleOwnKey(int key) = 0;
    virtual void printOwnHelp() = 0;
    /** Steps between the LED tests and the serial number steps. */
    virtual void runOwnSteps(AutotestRun&) {}

    /** One step of the autotest run by a key; prints "Failed" when the dock
        operation fails and returns its success. */
    static bool reportFailure(bool ok);

    const TbtDockProfile& profile;

private:
    struct Keys;

    void railStep(AutotestRun& run);
    void temperatureStep(AutotestRun& run, int zone);
    void idStep(AutotestRun& run);
    void guidStep(AutotestRun& run);
    void writeProtectStep(AutotestRun& run);
    void ledStep(AutotestRun& run);
    void serialReadStep(AutotestRun& run);
    void serialWriteStep(AutotestRun& run);

    /** The EEPROM write/read test; true unless a page failed to write or
        compare. `run` may be null (the `W` key). */
    bool eepromTest(AutotestRun* run);
    /** The `E` key; false when the dock did not answer. */
    bool printSerialNumber(int* serial = nullptr);
    /** The `S` key; false when the number was not set. */
    bool setSerialNumber();
    /** The `M` key's line for `zone`; false when the dock did not answer. */
    bool readTemperatures(int zone, int& minDegrees, int& maxDegrees);

    TbtDockBoard* dockBoard;
};
