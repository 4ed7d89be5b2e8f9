#pragma once

#include "docks/platform/QueuedNotifications.h"
#include "docks/platform/emulated/DocksimProtocol.h"

#include <map>
#include <memory>
#include <mutex>
#include <set>

/** The asynchronous calls of one emulated platform that wait for their
    completion, and the notification ports they complete on.

    A completion is posted to the call's port and runs on the loop thread:
    there it copies the data into the reply buffer (never more than the
    buffer's length) and calls the callback. Buffers are only touched there,
    so a call dropped before its completion was posted leaves its buffer alone.

    A port made here drops its calls when it is destroyed; a completion that
    arrives afterwards finds no call and is ignored. */
class DocksimAsyncCalls : public std::enable_shared_from_this<DocksimAsyncCalls>
{
public:
    struct Call
    {
        QueuedNotificationPort* port = nullptr;
        DockPlatform::AsyncCallback callback = nullptr;
        void* refcon = nullptr;
        uint64_t buffer = 0;  // the reply buffer's address and length, as the caller passed them
        uint64_t length = 0;
    };

    std::unique_ptr<QueuedNotificationPort> createPort();
    /** The port as one of ours, or null when it was not made here or is gone. */
    QueuedNotificationPort* livePort(DockPlatform::NotificationPort& port);

    /** Records a call about to be sent; its number, or 0 when its port is gone. */
    int64_t add(const Call& call);
    /** The emulator accepted the call: a completion will follow. */
    void confirm(int64_t call);
    /** The call was refused or failed on the way: no completion will follow. */
    void remove(int64_t call);

    /** Delivers a completion line (good or broken) to its call. */
    void complete(const DocksimLine& line);
    /** The socket closed: every accepted call completes with `result`, and so
        does every call accepted from now on. */
    void failAll(DockPlatform::Result result);
    /** Forgets every call without completing it. */
    void dropAll();

private:
    class Port;
    void portGone(QueuedNotificationPort* port);
    // Called with `mutex` held, so that a port cannot go away meanwhile.
    void post(const Call& call, DockPlatform::Result result, const juce::MemoryBlock& data, uint32_t argc);

    struct Record
    {
        Call call;
        bool confirmed = false;
    };

    std::mutex mutex;
    std::map<int64_t, Record> calls;
    std::set<QueuedNotificationPort*> ports;
    int64_t lastCall = 0;
    unsigned long lastPort = 0;
    bool failed = false;
    DockPlatform::Result failure = DockPlatform::resultNotAttached;
};
