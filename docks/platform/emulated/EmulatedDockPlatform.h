#pragma once

#include "docks/platform/DockPlatform.h"

#include <memory>

class DocksimConnection;
class DocksimAsyncCalls;
struct DocksimReply;

/** The dock platform backed by the dock emulator: every registry walk and
    user-client call becomes one request on the emulator's Unix socket, and
    completions of asynchronous calls come back on the same socket.

    The socket is connected on first use and kept for the object's life. When
    it cannot be connected, matching finds nothing, so a dock is simply not
    found; once it closes, every call fails with resultNotAttached, as a driver
    whose device went away would.

    Safe to call from several threads at once. Notification ports must come
    from this platform's createNotificationPort(): a port that is destroyed
    drops the calls waiting to complete on it, so a late completion never
    reaches freed memory. */
class EmulatedDockPlatform : public DockPlatform
{
public:
    static constexpr int defaultReplyTimeoutMs = 5000;

    explicit EmulatedDockPlatform(const juce::String& socketPath, int replyTimeoutMs = defaultReplyTimeoutMs);
    ~EmulatedDockPlatform() override;

    Result matchServicesByName(const juce::String& name, juce::Array<Entry>& services) override;
    Result matchServicesByClass(const juce::String& className, juce::Array<Entry>& services) override;

    bool getPath(Entry entry, juce::String& path) override;
    Entry entryForPath(const juce::String& path) override;
    Entry getParent(Entry entry) override;
    bool getChildren(Entry entry, juce::Array<Entry>& children) override;
    juce::var searchProperty(Entry entry, const juce::String& key) override;
    bool getProperties(Entry entry, juce::var& properties) override;
    Result setProperties(Entry entry, const juce::var& properties) override;

    std::unique_ptr<NotificationPort> createNotificationPort() override;
    std::unique_ptr<NotificationLoop> createNotificationLoop() override;
    Result openService(Entry service, uint32_t type, Connection& connection) override;
    Result closeService(Connection connection) override;
    Result callScalarMethod(Connection connection, uint32_t selector,
                            const uint64_t* input, uint32_t inputCount) override;
    Result callAsyncStructMethod(Connection connection, uint32_t selector,
                                 NotificationPort& port, AsyncCallback callback, void* refcon,
                                 const uint64_t* scalars, uint32_t scalarCount,
                                 const void* structInput, size_t structSize) override;

    // The emulator counts no references; the product's own counting is enough.
    void retain(Object) override {}
    void release(Object) override {}

private:
    Result match(const char* operation, const char* by, const juce::String& value, juce::Array<Entry>& services);
    Entry entryReply(const char* operation, const char* op, const char* key, const juce::var& value);
    DocksimReply exchange(const char* operation, const char* op, const juce::DynamicObject::Ptr& fields);

    std::shared_ptr<DocksimAsyncCalls> asyncCalls;
    std::unique_ptr<DocksimConnection> connection;

    JUCE_DECLARE_NON_COPYABLE(EmulatedDockPlatform)
};
