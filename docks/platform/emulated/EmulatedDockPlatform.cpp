#include "docks/platform/emulated/EmulatedDockPlatform.h"

#include "docks/platform/QueuedNotifications.h"
#include "docks/platform/emulated/DocksimAsyncCalls.h"
#include "docks/platform/emulated/DocksimConnection.h"
#include "docks/platform/emulated/DocksimProtocol.h"

#include <initializer_list>
#include <limits>
#include <utility>

namespace
{
juce::DynamicObject::Ptr fields(std::initializer_list<std::pair<const char*, juce::var>> list)
{
    juce::DynamicObject::Ptr object(new juce::DynamicObject());
    for (const auto& field : list)
        object->setProperty(field.first, field.second);
    return object;
}

juce::var number(uint64_t value)
{
    return (juce::int64) value;
}

void logFailure(const char* operation, const juce::String& why)
{
    juce::Logger::writeToLog("EmulatedDockPlatform::" + juce::String(operation) + " failed: " + why);
}

/** For a reply field that is not what the protocol allows: the whole call fails. */
bool badReply(const char* operation, const DocksimReply& reply, const juce::String& problem)
{
    logFailure(operation, "reply " + juce::String(reply.id) + ": " + problem);
    return false;
}

/** Scalars as protocol integers; false when one does not fit a signed 64-bit number. */
bool scalarArray(const uint64_t* values, uint32_t count, juce::var& array)
{
    if (count > 0 && values == nullptr)
        return false;
    juce::Array<juce::var> items;
    for (uint32_t i = 0; i < count; ++i)
    {
        if (values[i] > (uint64_t) std::numeric_limits<int64_t>::max())
            return false;
        items.add((juce::int64) values[i]);
    }
    array = items;
    return true;
}
} // namespace

EmulatedDockPlatform::EmulatedDockPlatform(const juce::String& socketPath, int replyTimeoutMs)
    : asyncCalls(std::make_shared<DocksimAsyncCalls>())
{
    auto calls = asyncCalls;
    connection = std::make_unique<DocksimConnection>(
        socketPath, replyTimeoutMs, [calls](const DocksimLine& line) { calls->complete(line); },
        [calls] { calls->failAll(resultNotAttached); });
}

EmulatedDockPlatform::~EmulatedDockPlatform()
{
    // The reader goes first, so nothing is posted once the calls are dropped;
    // their buffers belong to the dock classes and are not touched.
    connection.reset();
    asyncCalls->dropAll();
}

DocksimReply EmulatedDockPlatform::exchange(const char* operation, const char* op,
                                            const juce::DynamicObject::Ptr& request)
{
    auto reply = connection->request(op, request);
    if (reply.problem.isNotEmpty())
        logFailure(operation, reply.problem);
    return reply;
}

DockPlatform::Result EmulatedDockPlatform::match(const char* operation, const char* by, const juce::String& value,
                                                 juce::Array<Entry>& services)
{
    services.clearQuick();
    // No emulator to talk to is a bench with no docks on it.
    if (!connection->reachable())
        return success;
    const auto reply = exchange(operation, "match", fields({ { "by", by }, { "value", value } }));
    if (reply.result != success)
        return reply.result;
    juce::Array<Entry> found;
    juce::String problem;
    if (!DocksimProtocol::readObjects(reply.body, "entries", found, problem))
        return badReply(operation, reply, problem), resultError;
    services.swapWith(found);
    return success;
}

DockPlatform::Result EmulatedDockPlatform::matchServicesByName(const juce::String& name, juce::Array<Entry>& services)
{
    return match("matchServicesByName", "name", name, services);
}

DockPlatform::Result EmulatedDockPlatform::matchServicesByClass(const juce::String& className,
                                                                juce::Array<Entry>& services)
{
    return match("matchServicesByClass", "class", className, services);
}

bool EmulatedDockPlatform::getPath(Entry entry, juce::String& path)
{
    const auto reply = exchange("getPath", "path", fields({ { "entry", number(entry) } }));
    if (reply.result != success)
        return false;
    juce::String problem, read;
    if (!DocksimProtocol::readText(reply.body, "path", read, problem))
        return badReply("getPath", reply, problem);
    path = read;
    return true;
}

DockPlatform::Entry EmulatedDockPlatform::entryReply(const char* operation, const char* op, const char* key,
                                                     const juce::var& value)
{
    const auto reply = exchange(operation, op, fields({ { key, value } }));
    if (reply.result != success)
        return 0;
    Entry entry = 0;
    juce::String problem;
    if (!DocksimProtocol::readObject(reply.body, "entry", true, entry, problem))
        return badReply(operation, reply, problem), 0;
    return entry;
}

DockPlatform::Entry EmulatedDockPlatform::entryForPath(const juce::String& path)
{
    return entryReply("entryForPath", "lookup", "path", path);
}

DockPlatform::Entry EmulatedDockPlatform::getParent(Entry entry)
{
    return entryReply("getParent", "parent", "entry", number(entry));
}

bool EmulatedDockPlatform::getChildren(Entry entry, juce::Array<Entry>& children)
{
    const auto reply = exchange("getChildren", "children", fields({ { "entry", number(entry) } }));
    if (reply.result != success)
        return false;
    juce::Array<Entry> found;
    juce::String problem;
    if (!DocksimProtocol::readObjects(reply.body, "entries", found, problem))
        return badReply("getChildren", reply, problem);
    children.swapWith(found);
    return true;
}

juce::var EmulatedDockPlatform::searchProperty(Entry entry, const juce::String& key)
{
    const auto reply = exchange("searchProperty", "search", fields({ { "entry", number(entry) }, { "key", key } }));
    if (reply.result != success)
        return {};
    juce::var value;
    juce::String problem;
    if (!DocksimProtocol::readProperty(reply.body, "value", true, value, problem))
        return badReply("searchProperty", reply, problem), juce::var();
    return value;
}

bool EmulatedDockPlatform::getProperties(Entry entry, juce::var& properties)
{
    const auto reply = exchange("getProperties", "get_properties", fields({ { "entry", number(entry) } }));
    if (reply.result != success)
        return false;
    juce::var read;
    juce::String problem;
    if (!DocksimProtocol::readProperty(reply.body, "properties", false, read, problem))
        return badReply("getProperties", reply, problem);
    if (read.getDynamicObject() == nullptr)
        return badReply("getProperties", reply, "'properties' is not an object");
    properties = read;
    return true;
}

DockPlatform::Result EmulatedDockPlatform::setProperties(Entry entry, const juce::var& properties)
{
    juce::var sent;
    if (properties.getDynamicObject() == nullptr || !DocksimProtocol::toProtocolValue(properties, sent))
    {
        logFailure("setProperties", "the properties are not a dictionary of protocol values");
        return resultBadArgument;
    }
    return exchange("setProperties", "set_properties", fields({ { "entry", number(entry) }, { "properties", sent } }))
        .result;
}

std::unique_ptr<DockPlatform::NotificationPort> EmulatedDockPlatform::createNotificationPort()
{
    return asyncCalls->createPort();
}

std::unique_ptr<DockPlatform::NotificationLoop> EmulatedDockPlatform::createNotificationLoop()
{
    return std::make_unique<QueuedNotificationLoop>();
}

DockPlatform::Result EmulatedDockPlatform::openService(Entry service, uint32_t type, Connection& opened)
{
    const auto reply = exchange("openService", "open", fields({ { "entry", number(service) }, { "type", number(type) } }));
    if (reply.result != success)
        return reply.result;
    Connection read = 0;
    juce::String problem;
    if (!DocksimProtocol::readObject(reply.body, "connection", false, read, problem))
        return badReply("openService", reply, problem), resultError;
    opened = read;
    return success;
}

DockPlatform::Result EmulatedDockPlatform::closeService(Connection opened)
{
    return exchange("closeService", "close", fields({ { "connection", number(opened) } })).result;
}

DockPlatform::Result EmulatedDockPlatform::callScalarMethod(Connection opened, uint32_t selector,
                                                            const uint64_t* input, uint32_t inputCount)
{
    juce::var scalars;
    if (!scalarArray(input, inputCount, scalars))
    {
        logFailure("callScalarMethod", "an input is missing or beyond a signed 64-bit number");
        return resultBadArgument;
    }
    return exchange("callScalarMethod", "scalar",
                    fields({ { "connection", number(opened) }, { "selector", number(selector) }, { "input", scalars } }))
        .result;
}

DockPlatform::Result EmulatedDockPlatform::callAsyncStructMethod(Connection opened, uint32_t selector,
                                                                 NotificationPort& port, AsyncCallback callback,
                                                                 void* refcon, const uint64_t* scalars,
                                                                 uint32_t scalarCount, const void* structInput,
                                                                 size_t structSize)
{
    constexpr auto operation = "callAsyncStructMethod";
    DocksimAsyncCalls::Call call;
    call.port = asyncCalls->livePort(port);
    call.callback = callback;
    call.refcon = refcon;
    juce::var input;
    juce::String refused;
    if (call.port == nullptr)
        refused = "the notification port is not one of this platform's";
    else if (callback == nullptr || scalarCount < 2 || !scalarArray(scalars, scalarCount, input))
        refused = "the call needs a callback and the reply buffer's address and length";
    else if (structSize > 0 && structInput == nullptr)
        refused = "the structure input is missing";
    else if (scalars[0] == 0 && scalars[1] > 0)
        refused = "the reply buffer is missing";
    if (refused.isNotEmpty())
    {
        logFailure(operation, refused);
        return resultBadArgument;
    }
    call.buffer = scalars[0];
    call.length = scalars[1];

    // Recorded before the request goes out: the completion may follow the
    // reply before this thread wakes up.
    const auto number = asyncCalls->add(call);
    if (number == 0)
        return logFailure(operation, "the notification port is gone"), resultBadArgument;
    const auto reply = exchange(operation, "async",
                                fields({ { "connection", (juce::int64) opened },
                                         { "selector", (juce::int64) selector },
                                         { "call", (juce::int64) number },
                                         { "input", input },
                                         { "struct", DocksimProtocol::toHex(structInput, structSize) } }));
    if (reply.result == success)
        asyncCalls->confirm(number);
    else
        asyncCalls->remove(number);
    return reply.result;
}
