#pragma once

#include "link/HardwareBoard.h"

/** Events of the USB 3.0 transfer dock, decoded from its status changes. The
    mask bits are the status change bits that raise each call. */
class XferDockEventListener : public HardwareBoardEventListener
{
public:
    static constexpr uint32_t diskpackEventBit = 0x01;
    static constexpr uint32_t temperatureEventBit = 0x04;
    static constexpr uint32_t ejectButtonEventBit = 0x08;
    static constexpr uint32_t faultEventBit = 0x10;
    static constexpr uint32_t allEvents = diskpackEventBit | temperatureEventBit | ejectButtonEventBit | faultEventBit;

    explicit XferDockEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    virtual void dockFault(bool active) = 0;
    virtual void diskpackChanged(bool present, bool writeProtected) = 0;
    virtual void ejectButton(bool down) = 0;
    /** Degrees Celsius. */
    virtual void diskpackTemperature(int degrees) = 0;
};
