#include "console/ConsoleListeners.h"

#include "console/EventPrinter.h"
#include "console/RemoteDisplayDemo.h"

#include <cstdio>

namespace
{
void printTouchValues(const char* label, const unsigned short* values, const char* end)
{
    printf("\r%s:", label);
    for (int i = 0; i < RemoteBoardEventListener::numTouchValues; ++i)
        printf("%04x ", (unsigned) values[i]);
    printEvent("%s", end);
}
}

//==============================================================================
void AVRDiskpackEventListener::diskpackTemperatureEvent(int degrees)
{
    printEvent("Temperature: %d deg\n", degrees);
}

void AVRDiskpackEventListener::diskpackButtonEvent(int code)
{
    printEvent("Button event: %02X\n", code);
}

void AVRDiskpackEventListener::diskpackLedEvent(bool on)
{
    printEvent("LED event: %d\n", on ? 1 : 0);
}

//==============================================================================
void AVRChassisEventListener::bayEvent(int bay, bool present, bool locked)
{
    printEvent("Disk Pack %c %s %s\n", 'A' + bay, present ? "present" : "absent", locked ? "locked" : "unlocked");
}

void AVRChassisEventListener::dvdEjectEvent()
{
    printEvent("DVD Eject event\n");
}

void AVRChassisEventListener::volumeEvent(int volume)
{
    printEvent("Volume event: %d\n", volume);
}

void AVRChassisEventListener::brightnessEvent(int brightness)
{
    printEvent("Brightness event: %d\n", brightness);
}

void AVRChassisEventListener::shuttleEvent(int position)
{
    printEvent("Shuttle event: %d\n", position);
}

void AVRChassisEventListener::buttonEvent(int code)
{
    printEvent("Button event: %02X\n", code);
}

//==============================================================================
template <class Listener>
void DiskpackSlotEventPrinter<Listener>::diskpackTemperatureEvent(int degrees)
{
    printEvent("Diskpack temperature: %d deg\n", degrees);
}

template <class Listener>
void DiskpackSlotEventPrinter<Listener>::diskpackEvent(bool present)
{
    printEvent("Diskpack event: %s\n", present ? "present" : "absent");
}

template <class Listener>
void DiskpackSlotEventPrinter<Listener>::ledEvent(int state)
{
    printEvent("LED event: %d\n", state);
}

template class DiskpackSlotEventPrinter<TransferBoardEventListener>;
template class DiskpackSlotEventPrinter<DesktopBoardEventListener>;

void AVRTransferEventListener::doorEvent(bool open)
{
    printEvent("Door event: %s\n", open ? "open" : "closed");
}

//==============================================================================
void AVRDesktopEventListener::debugEvent(const juce::String&) {}

void AVRDesktopEventListener::leverEvent(bool open)
{
    printEvent("Lever event: %s\n", open ? "open" : "closed");
}

//==============================================================================
void AVRXferDualEventListener::systemTemperatureEvent(int boardDegrees, int sasDegrees)
{
    printEvent("Board temp: %d  SAS temp: %d\n", boardDegrees, sasDegrees);
}

void AVRXferDualEventListener::diskpackTemperatureEvent(int which, int degrees)
{
    printEvent("Diskpack %d temperature: %d deg\n", which, degrees);
}

void AVRXferDualEventListener::diskpackEvent(int which, bool present, bool fault)
{
    printEvent("Diskpack %d event: %s%s\n", which, present ? "present" : "absent", fault ? " FAULT" : "");
}

void AVRXferDualEventListener::ejectButtonEvent(int which, bool down)
{
    printEvent("Diskpack %d eject button: %s\n", which, down ? "down" : "up");
}

void AVRXferDualEventListener::diskpackLedEvent(int which, bool on)
{
    printEvent("Diskpack %d LED event: %s\n", which, on ? "on" : "off");
}

void AVRXferDualEventListener::diskFanSpeedEvent(int which, int speed)
{
    printf("Diskpack %d fan speed: %d\n", which, speed);
}

void AVRXferDualEventListener::debugEvent(const juce::String&) {}

//==============================================================================
void AVRRemoteEventListener::keyEvent(int keys)
{
    printEvent("Key: %04x\n", (unsigned) keys);
    lastKey = (uint32_t) keys;
    if (demo.isRunning())
        demo.menuEvent(lastKey, lastRotor, 0);
}

void AVRRemoteEventListener::rotorEvent(int rotor)
{
    printEvent("Rotor: %02x\n", (unsigned) rotor);
    lastRotor = (uint32_t) rotor;
    if (demo.isRunning())
        demo.menuEvent(lastKey, lastRotor, 0);
}

void AVRRemoteEventListener::encoderEvent(int delta)
{
    printEvent("Encoder: %d\n", delta);
    if (demo.isRunning())
        demo.menuEvent(lastKey, lastRotor, delta);
}

void AVRRemoteEventListener::debugEvent(const char* text)
{
    printEvent("Debug: %s\n", text);
}

void AVRRemoteEventListener::signalEvent(const unsigned short* values)
{
    printTouchValues("Sig", values, "");
}

void AVRRemoteEventListener::referenceEvent(const unsigned short* values)
{
    printTouchValues("Ref", values, "\n");
}
