#include "docks/platform/iokit/IOKitMainPort.h"

// Every SDK has kIOMasterPortDefault; since macOS 12 the SDK also calls it
// kIOMainPortDefault and marks the old name deprecated. Both stand for the null
// port, which the kit takes as "the default", so the old name is kept here, in
// this one place, for SDKs old and new alike.
#if defined(__clang__)
#pragma clang diagnostic push
#pragma clang diagnostic ignored "-Wdeprecated-declarations"
#endif

mach_port_t IOKitMainPort::get()
{
    return kIOMasterPortDefault;
}

#if defined(__clang__)
#pragma clang diagnostic pop
#endif
