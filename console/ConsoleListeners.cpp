#include "console/ConsoleListeners.h"

#include "console/RemoteDisplayDemo.h"

#include <cstdio>

namespace
{
void flushed()
{
    fflush(stdout);
}

void printTouchValues(const char* label, const unsigned short* values)
{
    printf("\r%s:", label);
    for (int i = 0; i < RemoteBoardEventListener::numTouchValues; ++i)
        printf("%04x ", (unsigned) values[i]);
}
}

//==============================================================================
void AVRDiskpackEventListener::diskpackTemperatureEvent(int degrees)
{
    printf("Temperature: %d deg\n", degrees);
    flushed();
}

void AVRDiskpackEventListener::diskpackButtonEvent(int code)
{
    printf("Button event: %02X\n", code);
    flushed();
}

void AVRDiskpackEventListener::diskpackLedEvent(bool on)
{
    printf("LED event: %d\n", on ? 1 : 0);
    flushed();
}

//==============================================================================
void AVRChassisEventListener::bayEvent(int bay, bool present, bool locked)
{
    printf("Disk Pack %c %s %s\n", 'A' + bay, present ? "present" : "absent", locked ? "locked" : "unlocked");
    flushed();
}

void AVRChassisEventListener::dvdEjectEvent()
{
    printf("DVD Eject event\n");
    flushed();
}

void AVRChassisEventListener::volumeEvent(int volume)
{
    printf("Volume event: %d\n", volume);
    flushed();
}

void AVRChassisEventListener::brightnessEvent(int brightness)
{
    printf("Brightness event: %d\n", brightness);
    flushed();
}

void AVRChassisEventListener::shuttleEvent(int position)
{
    printf("Shuttle event: %d\n", position);
    flushed();
}

void AVRChassisEventListener::buttonEvent(int code)
{
    printf("Button event: %02X\n", code);
    flushed();
}

//==============================================================================
void AVRTransferEventListener::diskpackTemperatureEvent(int degrees)
{
    printf("Diskpack temperature: %d deg\n", degrees);
    flushed();
}

void AVRTransferEventListener::doorEvent(bool open)
{
    printf("Door event: %s\n", open ? "open" : "closed");
    flushed();
}

void AVRTransferEventListener::diskpackEvent(bool present)
{
    printf("Diskpack event: %s\n", present ? "present" : "absent");
    flushed();
}

void AVRTransferEventListener::ledEvent(int state)
{
    printf("LED event: %d\n", state);
    flushed();
}

//==============================================================================
void AVRDesktopEventListener::debugEvent(const juce::String&) {}

void AVRDesktopEventListener::diskpackTemperatureEvent(int degrees)
{
    printf("Diskpack temperature: %d deg\n", degrees);
    flushed();
}

void AVRDesktopEventListener::leverEvent(bool open)
{
    printf("Lever event: %s\n", open ? "open" : "closed");
    flushed();
}

void AVRDesktopEventListener::diskpackEvent(bool present)
{
    printf("Diskpack event: %s\n", present ? "present" : "absent");
    flushed();
}

void AVRDesktopEventListener::ledEvent(int state)
{
    printf("LED event: %d\n", state);
    flushed();
}

//==============================================================================
void AVRXferDualEventListener::systemTemperatureEvent(int boardDegrees, int sasDegrees)
{
    printf("Board temp: %d  SAS temp: %d\n", boardDegrees, sasDegrees);
    flushed();
}

void AVRXferDualEventListener::diskpackTemperatureEvent(int which, int degrees)
{
    printf("Diskpack %d temperature: %d deg\n", which, degrees);
    flushed();
}

void AVRXferDualEventListener::diskpackEvent(int which, bool present, bool fault)
{
    printf("Diskpack %d event: %s%s\n", which, present ? "present" : "absent", fault ? " FAULT" : "");
    flushed();
}

void AVRXferDualEventListener::ejectButtonEvent(int which, bool down)
{
    printf("Diskpack %d eject button: %s\n", which, down ? "down" : "up");
    flushed();
}

void AVRXferDualEventListener::diskpackLedEvent(int which, bool on)
{
    printf("Diskpack %d LED event: %s\n", which, on ? "on" : "off");
    flushed();
}

void AVRXferDualEventListener::diskFanSpeedEvent(int which, int speed)
{
    printf("Diskpack %d fan speed: %d\n", which, speed);
}

void AVRXferDualEventListener::debugEvent(const juce::String&) {}

//==============================================================================
void AVRRemoteEventListener::keyEvent(int keys)
{
    printf("Key: %04x\n", (unsigned) keys);
    flushed();
    lastKey = (uint32_t) keys;
    if (RemoteDisplayDemo::isRunning())
        RemoteDisplayDemo::menuEvent(lastKey, lastRotor, 0);
}

void AVRRemoteEventListener::rotorEvent(int rotor)
{
    printf("Rotor: %02x\n", (unsigned) rotor);
    flushed();
    lastRotor = (uint32_t) rotor;
    if (RemoteDisplayDemo::isRunning())
        RemoteDisplayDemo::menuEvent(lastKey, lastRotor, 0);
}

void AVRRemoteEventListener::encoderEvent(int delta)
{
    printf("Encoder: %d\n", delta);
    flushed();
    if (RemoteDisplayDemo::isRunning())
        RemoteDisplayDemo::menuEvent(lastKey, lastRotor, delta);
}

void AVRRemoteEventListener::debugEvent(const char* text)
{
    printf("Debug: %s\n", text);
    flushed();
}

void AVRRemoteEventListener::signalEvent(const unsigned short* values)
{
    printTouchValues("Sig", values);
    flushed();
}

void AVRRemoteEventListener::referenceEvent(const unsigned short* values)
{
    printTouchValues("Ref", values);
    printf("\n");
    flushed();
}
