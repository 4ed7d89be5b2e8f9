#pragma once

#include "docks/thunderbolt/TbtDockBoard.h"

/** Events of the Thunderbolt CD2 dock: the five both docks report, then its own. */
class TbtCd2BoardEventListener : public TbtDockEventListener
{
public:
    static constexpr uint32_t fanSpeedEventBit = sixthEventBit;

    using TbtDockEventListener::TbtDockEventListener;

    virtual void fanSpeed(int speed) = 0;
};

/** The Thunderbolt CD2 dock: a diskpack bay, a fan and resettable ports. */
class TbtCd2Board : public TbtDockBoard
{
public:
    explicit TbtCd2Board(std::shared_ptr<DockPlatform> platform);
    ~TbtCd2Board() override;

    const char* boardIdString() const override { return "Thunderbolt CD2 Dock"; }
    void eventReceived(const juce::String& text) override;

    /** Colours 0..3 (clamped) and flash; this dock's LED shows no disk activity. */
    bool setDiskpackLed(int red, int green, int blue, bool flash);
    bool setFanSpeed(int speed);
    /** Refuses a port of more than one decimal digit. */
    bool resetPort(int port);

private:
    JUCE_DECLARE_NON_COPYABLE(TbtCd2Board)
};
