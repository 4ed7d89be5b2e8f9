#include "docks/platform/iokit/IOKitDockPlatform.h"

#include "docks/platform/iokit/CFVarConversion.h"
#include "docks/platform/iokit/IOKitMainPort.h"
#include "docks/platform/iokit/IOKitNotificationLoop.h"
#include "docks/platform/iokit/IOKitNotificationPort.h"
#include "docks/platform/iokit/ScopedCFType.h"
#include "docks/platform/iokit/ScopedIOObject.h"

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <mach/mach_init.h>
#include <mach/message.h>

#include <cstring>
#include <type_traits>

// The seam hands the kit's handles and result codes through unchanged.
static_assert(std::is_same_v<io_object_t, DockPlatform::Object>);
static_assert(std::is_same_v<IOReturn, std::make_signed_t<DockPlatform::Result>>);
static_assert(DockPlatform::success == static_cast<DockPlatform::Result>(kIOReturnSuccess));
static_assert(DockPlatform::resultError == static_cast<DockPlatform::Result>(kIOReturnError));
static_assert(DockPlatform::resultNoMemory == static_cast<DockPlatform::Result>(kIOReturnNoMemory));
static_assert(DockPlatform::resultBadArgument == static_cast<DockPlatform::Result>(kIOReturnBadArgument));
static_assert(DockPlatform::resultNotAttached == static_cast<DockPlatform::Result>(kIOReturnNotAttached));
static_assert(DockPlatform::resultNotResponding == static_cast<DockPlatform::Result>(kIOReturnNotResponding));
static_assert(DockPlatform::resultSendInvalidDest == static_cast<DockPlatform::Result>(MACH_SEND_INVALID_DEST));

// The kit keeps an asynchronous call's callout as a number in the async
// reference and calls it back as an IOAsyncCallback: (refcon, IOReturn,
// void** args, UInt32 numArgs). AsyncCallback has the same parameters except
// that the result is the unsigned 32-bit twin of IOReturn, which the calling
// convention passes in the same register with the same bits, so handing the
// kit an AsyncCallback in its place is sound. This holds it to that shape.
static_assert(std::is_same_v<IOAsyncCallback,
                             void (*)(void*, std::make_signed_t<DockPlatform::Result>, void**, uint32_t)>);

namespace
{
DockPlatform::Result toResult(kern_return_t result)
{
    return static_cast<DockPlatform::Result>(result);
}

/** Every service that `matching` describes; the kit consumes the dictionary. */
DockPlatform::Result matchServices(CFMutableDictionaryRef matching, juce::Array<DockPlatform::Entry>& services)
{
    if (matching == nullptr)
        return DockPlatform::resultNoMemory;
    ScopedIOObject iterator;
    const auto result = IOServiceGetMatchingServices(IOKitMainPort::get(), matching, iterator.receive());
    if (result != kIOReturnSuccess)
        return toResult(result);
    // Each service comes with the one reference that the caller gives back.
    while (const auto service = IOIteratorNext(iterator.get()))
        services.add(service);
    return DockPlatform::success;
}
} // namespace

DockPlatform::Result IOKitDockPlatform::matchServicesByName(const juce::String& name,
                                                            juce::Array<Entry>& services)
{
    return matchServices(IOServiceNameMatching(name.toRawUTF8()), services);
}

DockPlatform::Result IOKitDockPlatform::matchServicesByClass(const juce::String& className,
                                                             juce::Array<Entry>& services)
{
    return matchServices(IOServiceMatching(className.toRawUTF8()), services);
}

bool IOKitDockPlatform::getPath(Entry entry, juce::String& path)
{
    io_string_t buffer = {};
    if (IORegistryEntryGetPath(entry, kIOServicePlane, buffer) != kIOReturnSuccess)
        return false;
    path = juce::String::fromUTF8(buffer);
    return true;
}

DockPlatform::Entry IOKitDockPlatform::entryForPath(const juce::String& path)
{
    // The kit reads a path from a fixed-size buffer; a longer one names nothing.
    io_string_t buffer = {};
    const auto length = path.getNumBytesAsUTF8();
    if (length >= sizeof(buffer))
        return 0;
    std::memcpy(buffer, path.toRawUTF8(), length);
    return IORegistryEntryFromPath(IOKitMainPort::get(), buffer);
}

DockPlatform::Entry IOKitDockPlatform::getParent(Entry entry)
{
    io_registry_entry_t parent = 0;
    if (IORegistryEntryGetParentEntry(entry, kIOServicePlane, &parent) != kIOReturnSuccess)
        return 0;
    return parent;
}

bool IOKitDockPlatform::getChildren(Entry entry, juce::Array<Entry>& children)
{
    ScopedIOObject iterator;
    if (IORegistryEntryGetChildIterator(entry, kIOServicePlane, iterator.receive()) != kIOReturnSuccess)
        return false;
    while (const auto child = IOIteratorNext(iterator.get()))
        children.add(child);
    return true;
}

juce::var IOKitDockPlatform::searchProperty(Entry entry, const juce::String& key)
{
    const auto name = CFVarConversion::makeString(key, kCFStringEncodingUTF8);
    if (!name)
        return {};
    const ScopedCFType<CFTypeRef> value(
        IORegistryEntrySearchCFProperty(entry, kIOServicePlane, name.get(), kCFAllocatorDefault,
                                        kIORegistryIterateRecursively | kIORegistryIterateParents));
    return CFVarConversion::toVar(value.get());
}

bool IOKitDockPlatform::getProperties(Entry entry, juce::var& properties)
{
    ScopedCFType<CFMutableDictionaryRef> dictionary;
    // The kit defines no options for this call.
    if (IORegistryEntryCreateCFProperties(entry, dictionary.receive(), kCFAllocatorDefault, 0) != kIOReturnSuccess
        || !dictionary)
        return false;
    properties = CFVarConversion::toVar(dictionary.get());
    return properties.getDynamicObject() != nullptr;
}

DockPlatform::Result IOKitDockPlatform::setProperties(Entry entry, const juce::var& properties)
{
    // Text goes to the driver the way the dock driver reads it: the UTF-8 bytes
    // taken as Mac Roman, which is the same thing for the plain ASCII of every
    // command.
    const auto dictionary = CFVarConversion::fromVar(properties, kCFStringEncodingMacRoman);
    if (!dictionary)
    {
        juce::Logger::writeToLog("IOKitDockPlatform::setProperties: the properties have no CoreFoundation form");
        return resultBadArgument;
    }
    return toResult(IORegistryEntrySetCFProperties(entry, dictionary.get()));
}

std::unique_ptr<DockPlatform::NotificationPort> IOKitDockPlatform::createNotificationPort()
{
    return std::make_unique<IOKitNotificationPort>();
}

std::unique_ptr<DockPlatform::NotificationLoop> IOKitDockPlatform::createNotificationLoop()
{
    return std::make_unique<IOKitNotificationLoop>();
}

DockPlatform::Result IOKitDockPlatform::openService(Entry service, uint32_t type, Connection& connection)
{
    io_connect_t connect = 0;
    const auto result = IOServiceOpen(service, mach_task_self(), type, &connect);
    connection = result == kIOReturnSuccess ? connect : 0;
    return toResult(result);
}

DockPlatform::Result IOKitDockPlatform::closeService(Connection connection)
{
    // IOServiceClose gives up a reference to the handle along with the user
    // client, where this seam leaves the handle to release(): take one for
    // the close to consume.
    IOObjectRetain(connection);
    return toResult(IOServiceClose(connection));
}

DockPlatform::Result IOKitDockPlatform::callScalarMethod(Connection connection, uint32_t selector,
                                                         const uint64_t* input, uint32_t inputCount)
{
    return toResult(IOConnectCallScalarMethod(connection, selector, input, inputCount, nullptr, nullptr));
}

DockPlatform::Result IOKitDockPlatform::callAsyncStructMethod(Connection connection, uint32_t selector,
                                                              NotificationPort& port, AsyncCallback callback,
                                                              void* refcon, const uint64_t* scalars,
                                                              uint32_t scalarCount, const void* structInput,
                                                              size_t structSize)
{
    auto* kitPort = dynamic_cast<IOKitNotificationPort*>(&port);
    if (kitPort == nullptr || !kitPort->isValid())
    {
        juce::Logger::writeToLog("IOKitDockPlatform::callAsyncStructMethod: the notification port is not the kit's");
        return resultBadArgument;
    }

    // The kit fills in the reserved entry itself; the callout and its refcon
    // travel to the driver and come back with the completion.
    io_async_ref64_t reference = {};
    reference[kIOAsyncCalloutFuncIndex] = static_cast<io_user_reference_t>(reinterpret_cast<uintptr_t>(callback));
    reference[kIOAsyncCalloutRefconIndex] = static_cast<io_user_reference_t>(reinterpret_cast<uintptr_t>(refcon));

    return toResult(IOConnectCallAsyncMethod(connection, selector, kitPort->wakePort(), reference, kOSAsyncRef64Count,
                                             scalars, scalarCount, structInput, structSize,
                                             nullptr, nullptr, nullptr, nullptr));
}

void IOKitDockPlatform::retain(Object object)
{
    if (object != 0)
        IOObjectRetain(object);
}

void IOKitDockPlatform::release(Object object)
{
    if (object != 0)
        IOObjectRelease(object);
}
