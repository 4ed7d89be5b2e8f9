#include "support/FakeUsbDockDriver.h"

#include "docks/platform/QueuedNotifications.h"

#include <algorithm>
#include <cstring>

DockPlatform::Entry FakeUsbDockDriver::addDevice(std::optional<int> locationID, std::optional<juce::String> serial)
{
    const auto device = add({});
    if (locationID)
        setProperty(device, "locationID", (juce::int64) *locationID);
    if (serial)
        setProperty(device, "USB Serial Number", *serial);
    return device;
}

std::vector<FakeUsbDockDriver::Call> FakeUsbDockDriver::blocks(std::optional<uint8_t> subcode) const
{
    const Guard g(lock);
    std::vector<Call> found;
    std::copy_if(sent.begin(), sent.end(), std::back_inserter(found),
                 [&](const Call& c) { return !subcode || c.cdb.subcode() == *subcode; });
    return found;
}

DockPlatform::Result FakeUsbDockDriver::openService(Entry, uint32_t, Connection& connection)
{
    const Guard g(lock);
    record("open");
    if (openResult == success)
        connection = handOut(900);
    return openResult;
}

DockPlatform::Result FakeUsbDockDriver::callScalarMethod(Connection, uint32_t selector, const uint64_t*, uint32_t)
{
    const Guard g(lock);
    record("scalar " + juce::String(selector));
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
        const Guard g(lock);
        record("exec " + juce::String(selector));
        sent.push_back({ cdb, scalarCount > 1 ? scalars[1] : 0 });
        if (issueResult != success)
            return issueResult;
        const auto found = responders.find(cdb.subcode());
        responder = found != responders.end() ? found->second : Responder();
    }

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
