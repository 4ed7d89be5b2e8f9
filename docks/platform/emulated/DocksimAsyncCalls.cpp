#include "docks/platform/emulated/DocksimAsyncCalls.h"

#include <algorithm>
#include <cstring>

class DocksimAsyncCalls::Port : public QueuedNotificationPort
{
public:
    Port(unsigned long number, std::shared_ptr<DocksimAsyncCalls> owner)
        : QueuedNotificationPort(number), owner(std::move(owner))
    {
    }
    ~Port() override { owner->portGone(this); }

private:
    std::shared_ptr<DocksimAsyncCalls> owner;
};

std::unique_ptr<QueuedNotificationPort> DocksimAsyncCalls::createPort()
{
    std::lock_guard<std::mutex> guard(mutex);
    auto port = std::make_unique<Port>(++lastPort, shared_from_this());
    ports.insert(port.get());
    return port;
}

QueuedNotificationPort* DocksimAsyncCalls::livePort(DockPlatform::NotificationPort& port)
{
    auto* queued = dynamic_cast<QueuedNotificationPort*>(&port);
    std::lock_guard<std::mutex> guard(mutex);
    return ports.count(queued) != 0 ? queued : nullptr;
}

int64_t DocksimAsyncCalls::add(const Call& call)
{
    std::lock_guard<std::mutex> guard(mutex);
    if (ports.count(call.port) == 0)
        return 0;
    calls[++lastCall] = { call, false };
    return lastCall;
}

void DocksimAsyncCalls::confirm(int64_t call)
{
    std::lock_guard<std::mutex> guard(mutex);
    const auto found = calls.find(call);
    if (found == calls.end())
        return;  // already completed
    if (failed)
    {
        // The socket closed between the reply and now; nothing will complete it.
        post(found->second.call, failure, {}, 0);
        calls.erase(found);
        return;
    }
    found->second.confirmed = true;
}

void DocksimAsyncCalls::remove(int64_t call)
{
    std::lock_guard<std::mutex> guard(mutex);
    calls.erase(call);
}

void DocksimAsyncCalls::complete(const DocksimLine& line)
{
    const auto& completion = line.completion;
    std::lock_guard<std::mutex> guard(mutex);
    const auto found = calls.find(completion.call);
    if (found == calls.end())
    {
        juce::Logger::writeToLog("DocksimAsyncCalls::complete ignored a completion for unknown call "
                                 + juce::String(completion.call)
                                 + (line.problem.isEmpty() ? juce::String() : " (" + line.problem + ")"));
        return;
    }
    if (line.kind == DocksimLine::Kind::completion)
        post(found->second.call, completion.result, completion.data, completion.argc);
    else
    {
        juce::Logger::writeToLog("DocksimAsyncCalls::complete failed call " + juce::String(completion.call)
                                 + ": " + line.problem);
        post(found->second.call, DockPlatform::resultError, {}, 0);
    }
    calls.erase(found);
}

void DocksimAsyncCalls::failAll(DockPlatform::Result result)
{
    std::lock_guard<std::mutex> guard(mutex);
    failed = true;
    failure = result;
    // Calls not yet confirmed belong to callers still waiting for their reply,
    // who learn of the failure from it and remove them.
    for (auto it = calls.begin(); it != calls.end();)
    {
        if (it->second.confirmed)
        {
            post(it->second.call, result, {}, 0);
            it = calls.erase(it);
        }
        else
            ++it;
    }
}

void DocksimAsyncCalls::dropAll()
{
    std::lock_guard<std::mutex> guard(mutex);
    calls.clear();
}

void DocksimAsyncCalls::portGone(QueuedNotificationPort* port)
{
    std::lock_guard<std::mutex> guard(mutex);
    ports.erase(port);
    for (auto it = calls.begin(); it != calls.end();)
        it = it->second.call.port == port ? calls.erase(it) : std::next(it);
}

void DocksimAsyncCalls::post(const Call& call, DockPlatform::Result result, const juce::MemoryBlock& data,
                             uint32_t argc)
{
    call.port->post([call, result, data, argc] {
        const auto copied = (size_t) std::min<uint64_t>(call.length, data.getSize());
        if (copied > 0)
            std::memcpy(reinterpret_cast<void*>((uintptr_t) call.buffer), data.getData(), copied);
        void* args[DocksimProtocol::maxArgc] = {};
        args[0] = reinterpret_cast<void*>((uintptr_t) call.buffer);
        args[2] = reinterpret_cast<void*>((uintptr_t) copied);
        call.callback(call.refcon, result, args, std::min(argc, DocksimProtocol::maxArgc));
    });
}
