#pragma once

#include "docks/thunderbolt/TbtDockBoard.h"

/** Events of the Thunderbolt single dock: the five both docks report, then its own. */
class TbtSingleBoardEventListener : public TbtDockEventListener
{
public:
    static constexpr uint32_t diskpackLedEventBit = sixthEventBit;

    using TbtDockEventListener::TbtDockEventListener;

    virtual void diskpackLed(bool on) = 0;
};

/** The Thunderbolt single dock: one diskpack bay. */
class TbtSingleBoard : public TbtDockBoard
{
public:
    explicit TbtSingleBoard(std::shared_ptr<DockPlatform> platform);
    ~TbtSingleBoard() override;

    const char* boardIdString() const override { return "Thunderbolt Single Dock"; }
    void eventReceived(const juce::String& text) override;

    /** Colours 0..3 (clamped); flash and disk activity as two flags. */
    bool setDiskpackLed(int red, int green, int blue, bool flash, bool activity);

private:
    JUCE_DECLARE_NON_COPYABLE(TbtSingleBoard)
};
