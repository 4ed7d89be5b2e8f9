#pragma once

#include "docks/thunderbolt/TbtDockBoard.h"

/** Events of the Thunderbolt CD2 dock, in the order the dock numbers them. */
class TbtCd2BoardEventListener : public HardwareBoardEventListener
{
public:
    static constexpr uint32_t debugEventBit = TbtDockBoard::debugEventBit;
    static constexpr uint32_t dockTemperatureEventBit = TbtDockBoard::dockTemperatureEventBit;
    static constexpr uint32_t diskpackTemperatureEventBit = TbtDockBoard::diskpackTemperatureEventBit;
    static constexpr uint32_t diskpackEventBit = TbtDockBoard::diskpackEventBit;
    static constexpr uint32_t ejectButtonEventBit = TbtDockBoard::ejectButtonEventBit;
    static constexpr uint32_t fanSpeedEventBit = TbtDockBoard::sixthEventBit;
    static constexpr uint32_t allEvents = TbtDockBoard::allEvents;

    explicit TbtCd2BoardEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    virtual void debugText(const juce::String& text) = 0;
    /** Signed degrees Celsius. */
    virtual void dockTemperature(int degrees) = 0;
    virtual void diskpackTemperature(int degrees) = 0;
    virtual void diskpackChanged(bool present, bool fault) = 0;
    virtual void ejectButton(bool down) = 0;
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
    bool resetPort(int port);

private:
    JUCE_DECLARE_NON_COPYABLE(TbtCd2Board)
};
