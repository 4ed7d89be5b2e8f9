#pragma once

#include "docks/platform/emulated/DocksimProtocol.h"

#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <mutex>

/** The one socket connection to the dock emulator: writes each request whole,
    and a reader thread hands each reply to the caller waiting for its id and
    each completion to the completion handler.

    Connected on first use. When connecting fails the emulator counts as
    unreachable for good; when the socket closes or the emulator breaks the
    protocol beyond repair, every waiting and every later request fails with
    resultNotAttached at once. */
class DocksimConnection : private juce::Thread
{
public:
    using CompletionHandler = std::function<void(const DocksimLine&)>;
    using ClosedHandler = std::function<void()>;

    DocksimConnection(const juce::String& socketPath, int replyTimeoutMs,
                      CompletionHandler onCompletion, ClosedHandler onClosed);
    ~DocksimConnection() override;

    /** Connects if that has not been tried yet; false when the emulator could
        not be reached (a socket that closed later still counts as reached). */
    bool reachable();

    /** Sends one request and waits for its reply. A failure on the way gives
        a reply with `problem` set: resultNotAttached when there is no
        connection, resultNotResponding after the timeout, resultError for a
        broken reply. */
    DocksimReply request(const juce::String& op, const juce::DynamicObject::Ptr& fields);

private:
    enum class Link
    {
        unconnected,
        open,
        unreachable,
        closed
    };

    struct Waiter
    {
        bool done = false;
        DocksimReply reply;
    };

    void run() override;
    void handleLine(const char* data, size_t size);
    /** Hands `reply` to the caller waiting for it; false when none waits. */
    bool answer(int64_t id, DocksimReply reply);
    /** A line that names no request: fails the oldest waiting one, if any. */
    void unreadable(const juce::String& problem);
    void lose(const char* operation, const juce::String& why);
    bool writeAll(const juce::String& line, juce::String& error);

    const juce::String socketPath;
    const int replyTimeoutMs;
    const CompletionHandler onCompletion;
    const ClosedHandler onClosed;
    std::atomic<bool> stopping { false };

    std::mutex connectLock;  // held while connecting, so only one caller connects
    int fd = -1;

    std::mutex writeLock;    // a request's id is taken and its line written under it
    int64_t lastId = 0;

    std::mutex pendingLock;  // guards everything below
    std::condition_variable replied;
    Link link = Link::unconnected;
    juce::String closedBecause;
    std::map<int64_t, std::shared_ptr<Waiter>> pending;

    JUCE_DECLARE_NON_COPYABLE(DocksimConnection)
};
