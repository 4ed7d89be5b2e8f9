#pragma once

#include "docks/thunderbolt/TbtDockBoard.h"

/** Events of the Thunderbolt single dock, in the order the dock numbers them. */
class TbtSingleBoardEventListener : public HardwareBoardEventListener
{
public:
    static constexpr uint32_t debugEventBit = TbtDockBoard::debugEventBit;
    static constexpr uint32_t dockTemperatureEventBit = TbtDockBoard::dockTemperatureEventBit;
    static constexpr uint32_t diskpackTemperatureEventBit = TbtDockBoard::diskpackTemperatureEventBit;
    static constexpr uint32_t diskpackEventBit = TbtDockBoard::diskpackEventBit;
    static constexpr uint32_t ejectButtonEventBit = TbtDockBoard::ejectButtonEventBit;
    static constexpr uint32_t diskpackLedEventBit = TbtDockBoard::sixthEventBit;
    static constexpr uint32_t allEvents = TbtDockBoard::allEvents;

    explicit TbtSingleBoardEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    virtual void debugText(const juce::String& text) = 0;
    /** Signed degrees Celsius. */
    virtual void dockTemperature(int degrees) = 0;
    virtual void diskpackTemperature(int degrees) = 0;
    virtual void diskpackChanged(bool present, bool fault) = 0;
    virtual void ejectButton(bool down) = 0;
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
