#include "docks/platform/DockPlatform.h"

#include "docks/platform/QueuedNotifications.h"
#include "docks/platform/emulated/EmulatedDockPlatform.h"
#if defined(__APPLE__)
#include "docks/platform/iokit/IOKitDockPlatform.h"
#endif

std::shared_ptr<DockPlatform> DockPlatform::create()
{
    const auto socketPath = juce::SystemStats::getEnvironmentVariable("AVRTEST_DOCKSIM", {});
    if (socketPath.isNotEmpty())
        return std::make_shared<EmulatedDockPlatform>(socketPath);
#if defined(__APPLE__)
    return std::make_shared<IOKitDockPlatform>();
#else
    return std::make_shared<NullDockPlatform>();
#endif
}
