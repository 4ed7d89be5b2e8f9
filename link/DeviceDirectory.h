#pragma once

#include <juce_core/juce_core.h>

/** Where serial devices are looked for, and how they are named there. The
    directory is read from AVRTEST_DEV_DIR on every call (default "/dev"), so an
    emulator can publish boards in a directory of its own. */
namespace DeviceDirectory
{
    juce::String path();

    /** Names of USB-serial adaptor ports: "tty.usbserial-*", "ttyUSB*", "ttyACM*". */
    bool isUsbSerialName(const juce::String& name);

    /** Name of numbered serial device `port`: ttyS<N> on Linux, ttys<N> on macOS. */
    juce::String numberedPortName(int port);

    /** Full path of an entry of the directory. */
    juce::String entryPath(const juce::String& name);
}
