#pragma once

// Listeners of the three docks that write every call down as text.

#include "support/BoardTestKit.h"

#include "docks/thunderbolt/TbtCd2Board.h"
#include "docks/thunderbolt/TbtSingleBoard.h"
#include "docks/usb/XferDock.h"

namespace boardtest
{
struct UsbDockHeard : XferDockEventListener, Heard
{
    using XferDockEventListener::XferDockEventListener;
    void dockFault(bool on) override { add(onOff(on, "fault on", "fault off")); }
    void diskpackChanged(bool in, bool wp) override { add(onOff(in, "pack present", "pack absent") + onOff(wp, " wp", "")); }
    void ejectButton(bool down) override { add(onOff(down, "eject down", "eject up")); }
    void diskpackTemperature(int degrees) override { add("temp " + std::to_string(degrees)); }
};

/** Hears the five events both Thunderbolt docks share; `Listener` adds its own. */
template <class Listener>
struct TbtHeardBy : Listener, Heard
{
    using Listener::Listener;
    void debugText(const juce::String& t) override { add("debug " + t.toStdString()); }
    void dockTemperature(int d) override { add("dock " + std::to_string(d)); }
    void diskpackTemperature(int d) override { add("pack " + std::to_string(d)); }
    void diskpackChanged(bool present, bool fault) override { add(onOff(present, "present", "absent") + onOff(fault, " fault", "")); }
    void ejectButton(bool down) override { add(onOff(down, "eject down", "eject up")); }
};
struct SingleHeard : TbtHeardBy<TbtSingleBoardEventListener>
{
    using TbtHeardBy::TbtHeardBy;
    void diskpackLed(bool on) override { add(onOff(on, "led on", "led off")); }
};
struct Cd2Heard : TbtHeardBy<TbtCd2BoardEventListener>
{
    using TbtHeardBy::TbtHeardBy;
    void fanSpeed(int s) override { add("fan " + std::to_string(s)); }
};
} // namespace boardtest
