#pragma once

#include "docks/thunderbolt/TbtCd2Board.h"
#include "docks/thunderbolt/TbtSingleBoard.h"
#include "docks/usb/XferDock.h"

// The dock console's listeners print every event of the open dock as one line
// and flush it at once: the console thread may be waiting in a prompt. They
// run on the dock's own threads.

class AVRXferDockEventListener : public XferDockEventListener
{
public:
    using XferDockEventListener::XferDockEventListener;
    void dockFault(bool active) override;
    void diskpackChanged(bool present, bool writeProtected) override;
    void ejectButton(bool down) override;
    void diskpackTemperature(int degrees) override;
};

/** The five events both Thunderbolt docks report, printed alike. */
template <class Listener>
class TbtDockEventPrinter : public Listener
{
public:
    using Listener::Listener;
    void debugText(const juce::String& text) override;
    void dockTemperature(int degrees) override;
    void diskpackTemperature(int degrees) override;
    void diskpackChanged(bool present, bool fault) override;
    void ejectButton(bool down) override;
};

class AVRTbtSingleBoardEventListener : public TbtDockEventPrinter<TbtSingleBoardEventListener>
{
public:
    using TbtDockEventPrinter::TbtDockEventPrinter;
    void diskpackLed(bool on) override;
};

class AVRTbtCd2BoardEventListener : public TbtDockEventPrinter<TbtCd2BoardEventListener>
{
public:
    using TbtDockEventPrinter::TbtDockEventPrinter;
    void fanSpeed(int speed) override;
};
