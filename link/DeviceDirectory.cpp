#include "link/DeviceDirectory.h"

#include <cstdlib>

namespace DeviceDirectory
{
juce::String path()
{
    const char* env = std::getenv("AVRTEST_DEV_DIR");
    return (env != nullptr && *env != 0) ? juce::String(env) : juce::String("/dev");
}

bool isUsbSerialName(const juce::String& name)
{
    return name.startsWith("tty.usbserial-") || name.startsWith("ttyUSB") || name.startsWith("ttyACM");
}

juce::String numberedPortName(int port)
{
#if JUCE_MAC
    return "ttys" + juce::String(port);
#else
    return "ttyS" + juce::String(port);
#endif
}

juce::String entryPath(const juce::String& name)
{
    auto dir = path();
    if (!dir.endsWithChar('/'))
        dir << "/";
    return dir + name;
}
}
