#include "console/dock/TbtSingleDockTester.h"

#include "console/ConsoleInput.h"
#include "console/dock/DockConsoleListeners.h"

namespace
{
const TbtDockProfile singleProfile {
    "TbtSingle",
    "Thunderbolt Single Dock",
    "tbt-single",
    "Rail (0-4=12V,5V0,3V3,1V05,3V3_AVR): ",
    "Disk 0-1: ",
    "0040",
    // The type ids of the diskpack families this dock takes.
    "Type id (0, 1, 4, 9, 10): ",
    { { "12V", 0, 12000 }, { "5V0", 1, 5000 }, { "3V3", 2, 3300 }, { "1V05", 3, 1050 }, { "3V3_AVR", 4, 3300 } },
};
}

TbtSingleDockTester::TbtSingleDockTester(std::shared_ptr<DockPlatform> platform, int boardId)
    : TbtDockTester(std::make_unique<TbtSingleBoard>(std::move(platform)),
                    std::make_unique<AVRTbtSingleBoardEventListener>(TbtSingleBoardEventListener::allEvents), boardId,
                    singleProfile),
      single(static_cast<TbtSingleBoard&>(dock()))
{
}

bool TbtSingleDockTester::setLed(int red, int green, int blue, bool flash, bool activity)
{
    return single.setDiskpackLed(red, green, blue, flash, activity);
}

void TbtSingleDockTester::ledKey()
{
    int r, g, b, flash, activity;
    ConsoleInput::ask("Set Diskpack LED (r,g,b,flash,activity): ", "%d %d %d %d %d", r, g, b, flash, activity);
    reportFailure(setLed(r, g, b, flash != 0, activity != 0));
}
