#include "console/dock/TbtCd2DockTester.h"

#include "console/ConsoleInput.h"
#include "console/dock/DockConsoleListeners.h"

#include <array>

namespace
{
const TbtDockProfile cd2Profile {
    "TbtCd2",
    "Thunderbolt CD2 Dock",
    "tbt-cd2",
    "Rail (0-6=Supply,12V,3V3_AVR,5V0,3V3,1V8,0V9): ",
    "Disk 0-3: ",
    "0063",
    "Type id (4=4x2, 5=2x4, 6=1x8): ",
    { { "12V", 1, 12000 }, { "3V3_AVR", 2, 3300 }, { "5V0", 3, 5000 }, { "3V3", 4, 3300 }, { "1V8", 5, 1800 },
      { "0V9", 6, 900 } },
};
}

struct TbtCd2DockTester::Keys
{
    static void fan(TbtCd2DockTester& t)
    {
        const auto prompt = juce::String::formatted("Fan speed (1=auto, min %d): ", fanStopped);
        reportFailure(t.cd2.setFanSpeed(ConsoleInput::askInt(prompt.toRawUTF8())));
    }

    static void resetPort(TbtCd2DockTester& t)
    {
        reportFailure(t.cd2.resetPort(ConsoleInput::askInt("Reset Port (0-3): ")));
    }

    static constexpr std::array<DockKey<TbtCd2DockTester>, 2> table { {
        { 'F', "fan speed", fan },
        { 'R', "reset port", resetPort },
    } };
};

TbtCd2DockTester::TbtCd2DockTester(std::shared_ptr<DockPlatform> platform, int boardId)
    : TbtDockTester(std::make_unique<TbtCd2Board>(std::move(platform)),
                    std::make_unique<AVRTbtCd2BoardEventListener>(TbtCd2BoardEventListener::allEvents), boardId,
                    cd2Profile),
      cd2(static_cast<TbtCd2Board&>(dock()))
{
}

bool TbtCd2DockTester::setLed(int red, int green, int blue, bool flash, bool)
{
    return cd2.setDiskpackLed(red, green, blue, flash);
}

void TbtCd2DockTester::ledKey()
{
    int r, g, b, flash;
    ConsoleInput::ask("Set Diskpack LED (r,g,b,flash): ", "%d %d %d %d", r, g, b, flash);
    reportFailure(setLed(r, g, b, flash != 0, false));
}

bool TbtCd2DockTester::handleOwnKey(int key)
{
    return runDockKey(Keys::table, *this, key);
}

void TbtCd2DockTester::printOwnHelp()
{
    for (const auto& entry : Keys::table)
        printf("%c %s\n", entry.key, entry.help);
}

void TbtCd2DockTester::runOwnSteps(AutotestRun& run)
{
    printf("\n(Test 11/%d) Fan tests:\n", autotestSteps);
    run.beginStep("Fan tests", 11);
    struct Setting
    {
        int speed;
        const char* question; // nullptr: nothing to confirm
    };
    static constexpr Setting settings[] = { { fullFanSpeed, "Is the fan currently full speed?" },
                                            { fanStopped, "Is the fan currently stopped?" },
                                            { fanAutomatic, nullptr } };
    for (const auto& s : settings)
    {
        if (run.stopped())
            run.skip();
        else if (!reportFailure(cd2.setFanSpeed(s.speed)))
            run.error();
        if (s.question != nullptr && !run.ask(s.question))
            run.fail();
    }
}
