#pragma once

#include "docks/platform/QueuedNotifications.h"
#include "docks/usb/CDB16.h"

#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

/** A scripted USB dock driver behind the platform seam: a small registry of
    USB devices with driver services below them, a user client that records
    each call, and a dock that answers command blocks as the test says. The
    answers arrive as completions on the caller's notification loop. */
class FakeUsbDockDriver : public NullDockPlatform
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
        uint32_t selector;
        CDB16 cdb;
        uint64_t replyLength;
    };

    static Completion reply(std::vector<uint8_t> bytes) { return { success, std::move(bytes), 3 }; }

    // --- the registry ---
    /** A USB device carrying the properties that are given. */
    Entry addDevice(std::optional<int> locationID, std::optional<juce::String> serial);
    /** A dock driver service below `device`, matched by the driver's name. */
    Entry addDriverService(Entry device);
    Result matchResult = success;

    // --- the user client ---
    Result openResult = success;
    Result issueResult = success; // what an asynchronous call returns
    void setScalarResult(uint32_t selector, Result result);

    // --- the dock ---
    void respond(uint8_t subcode, Responder responder);
    void answer(uint8_t subcode, const Completion& completion);
    void silence(uint8_t subcode);

    // --- what happened ---
    std::vector<Call> calls() const;
    /** The blocks sent with `subcode`, in order. */
    std::vector<CDB16> blocks(uint8_t subcode) const;
    int scalarCalls(uint32_t selector) const;
    int openCalls() const;
    int closeCalls() const;
    /** References handed out and not yet given back. */
    int outstandingReferences() const;
    void clearCalls();

    Result matchServicesByName(const juce::String& name, juce::Array<Entry>& services) override;
    Entry getParent(Entry entry) override;
    juce::var searchProperty(Entry entry, const juce::String& key) override;
    Result openService(Entry service, uint32_t type, Connection& connection) override;
    Result closeService(Connection connection) override;
    Result callScalarMethod(Connection connection, uint32_t selector, const uint64_t* input, uint32_t inputCount) override;
    Result callAsyncStructMethod(Connection connection, uint32_t selector, NotificationPort& port, AsyncCallback callback,
                                 void* refcon, const uint64_t* scalars, uint32_t scalarCount, const void* structInput,
                                 size_t structSize) override;
    void retain(Object object) override;
    void release(Object object) override;

    static constexpr Connection connectionNumber = 900;

private:
    struct Node
    {
        Entry parent = 0;
        juce::NamedValueSet properties;
    };

    mutable std::mutex lock;
    std::map<Entry, Node> registry;
    std::vector<Entry> driverServices;
    Entry nextEntry = 1;
    std::map<uint32_t, Result> scalarResults;
    std::map<uint8_t, Responder> responders;
    std::vector<Call> recorded;
    std::map<uint32_t, int> scalarCounts;
    int opens = 0, closes = 0, references = 0;
};
