#include "support/FakeUsbDockDriver.h"

#include <algorithm>
#include <cstring>

DockPlatform::Entry FakeUsbDockDriver::addDevice(std::optional<int> locationID, std::optional<juce::String> serial)
{
    const std::lock_guard<std::mutex> g(lock);
    const auto entry = nextEntry++;
    auto& node = registry[entry];
    if (locationID)
        node.properties.set("locationID", (juce::int64) *locationID);
    if (serial)
        node.properties.set("USB Serial Number", *serial);
    return entry;
}

DockPlatform::Entry FakeUsbDockDriver::addDriverService(Entry device)
{
    const std::lock_guard<std::mutex> g(lock);
    const auto entry = nextEntry++;
    registry[entry].parent = device;
    driverServices.push_back(entry);
    return entry;
}

void FakeUsbDockDriver::setScalarResult(uint32_t selector, Result result)
{
    const std::lock_guard<std::mutex> g(lock);
    scalarResults[selector] = result;
}

void FakeUsbDockDriver::respond(uint8_t subcode, Responder responder)
{
    const std::lock_guard<std::mutex> g(lock);
    responders[subcode] = std::move(responder);
}

void FakeUsbDockDriver::answer(uint8_t subcode, const Completion& completion)
{
    respond(subcode, [completion](const CDB16&) { return std::optional<Completion>(completion); });
}

void FakeUsbDockDriver::silence(uint8_t subcode)
{
    respond(subcode, [](const CDB16&) { return std::optional<Completion>(); });
}

std::vector<FakeUsbDockDriver::Call> FakeUsbDockDriver::calls() const
{
    const std::lock_guard<std::mutex> g(lock);
    return recorded;
}

std::vector<CDB16> FakeUsbDockDriver::blocks(uint8_t subcode) const
{
    std::vector<CDB16> found;
    for (const auto& call : calls())
        if (call.cdb.subcode() == subcode)
            found.push_back(call.cdb);
    return found;
}

int FakeUsbDockDriver::scalarCalls(uint32_t selector) const
{
    const std::lock_guard<std::mutex> g(lock);
    const auto found = scalarCounts.find(selector);
    return found == scalarCounts.end() ? 0 : found->second;
}

int FakeUsbDockDriver::openCalls() const
{
    const std::lock_guard<std::mutex> g(lock);
    return opens;
}

int FakeUsbDockDriver::closeCalls() const
{
    const std::lock_guard<std::mutex> g(lock);
    return closes;
}

int FakeUsbDockDriver::outstandingReferences() const
{
    const std::lock_guard<std::mutex> g(lock);
    return references;
}

void FakeUsbDockDriver::clearCalls()
{
    const std::lock_guard<std::mutex> g(lock);
    recorded.clear();
    scalarCounts.clear();
}

//==============================================================================
DockPlatform::Result FakeUsbDockDriver::matchServicesByName(const juce::String& name, juce::Array<Entry>& services)
{
    const std::lock_guard<std::mutex> g(lock);
    if (matchResult != success || name != "com_tarvoworks_driver_usbDockDriver")
        return matchResult;
    for (auto service : driverServices)
        services.add(service);
    references += (int) driverServices.size();
    return success;
}

DockPlatform::Entry FakeUsbDockDriver::getParent(Entry entry)
{
    const std::lock_guard<std::mutex> g(lock);
    const auto found = registry.find(entry);
    if (found == registry.end() || found->second.parent == 0)
        return 0;
    ++references;
    return found->second.parent;
}

juce::var FakeUsbDockDriver::searchProperty(Entry entry, const juce::String& key)
{
    const std::lock_guard<std::mutex> g(lock);
    for (auto found = registry.find(entry); found != registry.end(); found = registry.find(found->second.parent))
        if (const auto* value = found->second.properties.getVarPointer(key))
            return *value;
    return {};
}

DockPlatform::Result FakeUsbDockDriver::openService(Entry, uint32_t, Connection& connection)
{
    const std::lock_guard<std::mutex> g(lock);
    ++opens;
    if (openResult != success)
        return openResult;
    ++references;
    connection = connectionNumber;
    return success;
}

DockPlatform::Result FakeUsbDockDriver::closeService(Connection)
{
    const std::lock_guard<std::mutex> g(lock);
    ++closes;
    return success;
}

DockPlatform::Result FakeUsbDockDriver::callScalarMethod(Connection, uint32_t selector, const uint64_t*, uint32_t)
{
    const std::lock_guard<std::mutex> g(lock);
    ++scalarCounts[selector];
    const auto found = scalarResults.find(selector);
    return found == scalarResults.end() ? success : found->second;
}

DockPlatform::Result FakeUsbDockDriver::callAsyncStructMethod(Connection, uint32_t selector, NotificationPort& port,
                                                              AsyncCallback callback, void* refcon, const uint64_t* scalars,
                                                              uint32_t scalarCount, const void* structInput,
                                                              size_t structSize)
{
    CDB16 cdb;
    std::memcpy(cdb.bytes, structInput, std::min(structSize, sizeof(cdb.bytes)));
    Responder responder;
    {
        const std::lock_guard<std::mutex> g(lock);
        recorded.push_back({ selector, cdb, scalarCount > 1 ? scalars[1] : 0 });
        if (issueResult != success)
            return issueResult;
        const auto found = responders.find(cdb.subcode());
        responder = found != responders.end() ? found->second : Responder();
    }

    // By default the dock acknowledges with its success mark.
    const auto completion = responder ? responder(cdb) : std::optional<Completion>(reply({ cdb.subcode(), 'U' }));
    if (!completion)
        return success;

    auto* buffer = reinterpret_cast<unsigned char*>((uintptr_t) scalars[0]);
    const auto count = std::min<uint64_t>(completion->data.size(), scalars[1]);
    std::copy_n(completion->data.begin(), (size_t) count, buffer);
    dynamic_cast<QueuedNotificationPort&>(port).post([callback, refcon, completion, buffer, count] {
        void* args[] = { buffer, nullptr, reinterpret_cast<void*>((uintptr_t) count) };
        callback(refcon, completion->result, args, completion->argc);
    });
    return success;
}

void FakeUsbDockDriver::retain(Object)
{
    const std::lock_guard<std::mutex> g(lock);
    ++references;
}

void FakeUsbDockDriver::release(Object)
{
    const std::lock_guard<std::mutex> g(lock);
    --references;
}
