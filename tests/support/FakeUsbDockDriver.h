#pragma once

#include "support/FakeDockRegistry.h"

#include "docks/usb/CDB16.h"

#include <optional>
#include <vector>

/** A scripted USB dock driver: a user client that records each call, and a dock that answers blocks by completions
    on the caller's notification loop, by default with the block's subcode and 'U'. */
class FakeUsbDockDriver : public FakeDockRegistry
{
public:
    struct Completion
    {
        Result result = success;
        std::vector<uint8_t> data;
        uint32_t argc = 3;
    };
    /** What the dock does with a block: a completion, or none ever. */
    using Responder = std::function<std::optional<Completion>(const CDB16&)>;
    struct Call
    {
        CDB16 cdb;
        uint64_t replyLength;
    };

    static Completion reply(std::vector<uint8_t> bytes) { return { success, std::move(bytes), 3 }; }

    /** A USB device with the properties given, and a dock driver service below it. */
    Entry addDevice(std::optional<int> locationID, std::optional<juce::String> serial);
    Entry addDriverService(Entry device) { return add({}, device, "name:com_tarvoworks_driver_usbDockDriver"); }

    Result openResult = success;
    Result issueResult = success; // what an asynchronous call returns
    void setScalarResult(uint32_t selector, Result result) { const Guard g(lock); scalarResults[selector] = result; }
    void respond(uint8_t subcode, Responder responder)
    {
        const Guard g(lock);
        responders[subcode] = std::move(responder);
    }
    void answer(uint8_t subcode, const Completion& c) { respond(subcode, [c](const CDB16&) { return c; }); }
    void silence(uint8_t subcode) { respond(subcode, [](const CDB16&) { return std::nullopt; }); }

    /** The blocks issued as asynchronous "exec" calls; calls() has the rest by name. */
    std::vector<Call> blocks(std::optional<uint8_t> subcode = std::nullopt) const;
    void clearCalls() { const Guard g(lock); FakeDockRegistry::clearCalls(); sent.clear(); }

    Result openService(Entry service, uint32_t type, Connection& connection) override;
    Result closeService(Connection connection) override { record("close " + juce::String(connection)); return success; }
    Result callScalarMethod(Connection connection, uint32_t selector, const uint64_t* input, uint32_t inputCount) override;
    Result callAsyncStructMethod(Connection connection, uint32_t selector, NotificationPort& port, AsyncCallback callback,
                                 void* refcon, const uint64_t* scalars, uint32_t scalarCount, const void* structInput,
                                 size_t structSize) override;

private:
    std::map<uint32_t, Result> scalarResults;
    std::map<uint8_t, Responder> responders;
    std::vector<Call> sent;
};
