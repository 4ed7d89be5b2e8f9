#pragma once

#include "console/dock/TbtDockTester.h"
#include "docks/thunderbolt/TbtCd2Board.h"

/** The console of the Thunderbolt CD2 dock: the shared keys and autotest,
    plus its fan and port reset. */
class TbtCd2DockTester : public TbtDockTester
{
public:
    static constexpr int fullFanSpeed = 255;
    static constexpr int fanStopped = 0;
    static constexpr int fanAutomatic = 1;

    TbtCd2DockTester(std::shared_ptr<DockPlatform> platform, int boardId);

protected:
    bool setLed(int red, int green, int blue, bool flash, bool activity) override;
    void ledKey() override;
    bool handleOwnKey(int key) override;
    void printOwnHelp() override;
    void runOwnSteps(AutotestRun& run) override;

private:
    struct Keys;

    TbtCd2Board& cd2;
};
