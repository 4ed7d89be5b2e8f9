#pragma once

#include "console/dock/TbtDockTester.h"
#include "docks/thunderbolt/TbtSingleBoard.h"

/** The console of the Thunderbolt single dock. */
class TbtSingleDockTester : public TbtDockTester
{
public:
    TbtSingleDockTester(std::shared_ptr<DockPlatform> platform, int boardId);

protected:
    bool setLed(int red, int green, int blue, bool flash, bool activity) override;
    void ledKey() override;
    bool handleOwnKey(int) override { return false; }
    void printOwnHelp() override {}

private:
    TbtSingleBoard& single;
};
