#include "console/dock/DockConsoleListeners.h"

#include "console/EventPrinter.h"

#include <cstdio>

namespace
{
const char* presence(bool present)
{
    return present ? "present" : "absent";
}

const char* button(bool down)
{
    return down ? "down" : "up";
}
}

//==============================================================================
void AVRXferDockEventListener::dockFault(bool active)
{
    printEvent("Dock fault: %s\n", active ? "active" : "cleared");
}

void AVRXferDockEventListener::diskpackChanged(bool present, bool writeProtected)
{
    printEvent("Diskpack event: %s%s\n", presence(present), writeProtected ? " write protected" : "");
}

void AVRXferDockEventListener::ejectButton(bool down)
{
    printEvent("Diskpack eject button: %s\n", button(down));
}

void AVRXferDockEventListener::diskpackTemperature(int degrees)
{
    printEvent("Diskpack temperature: %d\n", degrees);
}

//==============================================================================
template <class Listener>
void TbtDockEventPrinter<Listener>::debugText(const juce::String& text)
{
    printEvent("Debug: %s\n", text.toRawUTF8());
}

template <class Listener>
void TbtDockEventPrinter<Listener>::dockTemperature(int degrees)
{
    printEvent("Dock temperature: %d\n", degrees);
}

template <class Listener>
void TbtDockEventPrinter<Listener>::diskpackTemperature(int degrees)
{
    printEvent("Diskpack temperature: %d\n", degrees);
}

template <class Listener>
void TbtDockEventPrinter<Listener>::diskpackChanged(bool present, bool fault)
{
    printEvent("Diskpack event: %s%s\n", presence(present), fault ? " FAULT" : "");
}

template <class Listener>
void TbtDockEventPrinter<Listener>::ejectButton(bool down)
{
    printEvent("Diskpack eject button: %s\n", button(down));
}

template class TbtDockEventPrinter<TbtSingleBoardEventListener>;
template class TbtDockEventPrinter<TbtCd2BoardEventListener>;

void AVRTbtSingleBoardEventListener::diskpackLed(bool on)
{
    printEvent("Diskpack LED event: %s\n", on ? "on" : "off");
}

void AVRTbtCd2BoardEventListener::fanSpeed(int speed)
{
    printEvent("Fan speed event: %d\n", speed);
}
