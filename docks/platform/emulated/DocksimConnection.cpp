#include "docks/platform/emulated/DocksimConnection.h"

#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

namespace
{
constexpr int readerStopTimeoutMs = 10000;
constexpr size_t readChunkBytes = 64 * 1024;

juce::String systemError()
{
    return juce::String(std::strerror(errno));
}

DocksimReply failedReply(int64_t id, DockPlatform::Result result, const juce::String& problem)
{
    DocksimReply reply;
    reply.id = id;
    reply.result = result;
    reply.problem = problem;
    return reply;
}
} // namespace

DocksimConnection::DocksimConnection(const juce::String& path, int timeoutMs, CompletionHandler completionHandler,
                                     ClosedHandler closedHandler)
    : juce::Thread("DocksimReader"),
      socketPath(path),
      replyTimeoutMs(timeoutMs),
      onCompletion(std::move(completionHandler)),
      onClosed(std::move(closedHandler))
{
}

DocksimConnection::~DocksimConnection()
{
    stopping = true;
    signalThreadShouldExit();
    if (fd >= 0)
        ::shutdown(fd, SHUT_RDWR);  // wakes the reader out of recv()
    stopThread(readerStopTimeoutMs);
    if (fd >= 0)
        ::close(fd);
}

bool DocksimConnection::reachable()
{
    std::lock_guard<std::mutex> connecting(connectLock);
    {
        std::lock_guard<std::mutex> guard(pendingLock);
        if (link != Link::unconnected)
            return link != Link::unreachable;
    }

    juce::String why;
    const int s = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address {};
    address.sun_family = AF_UNIX;
    const auto* path = socketPath.toRawUTF8();
    if (s < 0)
        why = systemError();
    else if (std::strlen(path) >= sizeof(address.sun_path))
        why = "the path is too long for a socket";
    else
    {
        std::strncpy(address.sun_path, path, sizeof(address.sun_path) - 1);
        if (::connect(s, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            why = systemError();
    }
    if (why.isNotEmpty())
    {
        if (s >= 0)
            ::close(s);
        juce::Logger::writeToLog("DocksimConnection::connect cannot reach the dock emulator at '" + socketPath
                                 + "': " + why);
        std::lock_guard<std::mutex> guard(pendingLock);
        link = Link::unreachable;
        return false;
    }

    // An emulator that stops reading must not hold a writer, and with it every
    // other caller, for ever.
    timeval sendTimeout {};
    sendTimeout.tv_sec = replyTimeoutMs / 1000;
    sendTimeout.tv_usec = (replyTimeoutMs % 1000) * 1000;
    ::setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, &sendTimeout, sizeof(sendTimeout));

    fd = s;
    {
        std::lock_guard<std::mutex> guard(pendingLock);
        link = Link::open;
    }
    startThread();
    return true;
}

DocksimReply DocksimConnection::request(const juce::String& op, const juce::DynamicObject::Ptr& fields)
{
    if (!reachable())
        return failedReply(0, DockPlatform::resultNotAttached, "the dock emulator cannot be reached");

    auto waiter = std::make_shared<Waiter>();
    int64_t id = 0;
    {
        std::lock_guard<std::mutex> writing(writeLock);
        {
            std::lock_guard<std::mutex> guard(pendingLock);
            if (link != Link::open)
                return failedReply(0, DockPlatform::resultNotAttached, closedBecause);
            id = ++lastId;
            pending[id] = waiter;
        }
        juce::String error;
        if (!writeAll(DocksimProtocol::requestLine(id, op, fields), error))
            lose("DocksimConnection::write", error);  // fails this request with the others
    }

    std::unique_lock<std::mutex> guard(pendingLock);
    if (!replied.wait_for(guard, std::chrono::milliseconds(replyTimeoutMs), [&] { return waiter->done; }))
    {
        pending.erase(id);
        return failedReply(id, DockPlatform::resultNotResponding,
                           "no reply to request " + juce::String(id) + " within " + juce::String(replyTimeoutMs)
                               + " ms");
    }
    return waiter->reply;
}

bool DocksimConnection::writeAll(const juce::String& line, juce::String& error)
{
    const char* data = line.toRawUTF8();
    size_t left = line.getNumBytesAsUTF8();
    while (left > 0)
    {
        const auto sent = ::send(fd, data, left, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent <= 0)
        {
            error = (errno == EAGAIN || errno == EWOULDBLOCK) ? juce::String("the dock emulator stopped reading")
                                                              : systemError();
            return false;
        }
        data += sent;
        left -= (size_t) sent;
    }
    return true;
}

void DocksimConnection::run()
{
    std::vector<char> chunk(readChunkBytes);
    std::vector<char> line;
    bool overlong = false;  // the current line passed the limit and is being skipped

    while (!threadShouldExit())
    {
        const auto received = ::recv(fd, chunk.data(), chunk.size(), 0);
        if (received < 0 && errno == EINTR)
            continue;
        if (received <= 0)
        {
            lose("DocksimConnection::read",
                 received == 0 ? juce::String("the dock emulator closed the socket") : systemError());
            return;
        }

        const char* p = chunk.data();
        const char* const end = p + received;
        while (p < end)
        {
            const auto* newline = static_cast<const char*>(std::memchr(p, '\n', (size_t) (end - p)));
            const char* const stop = newline != nullptr ? newline : end;
            if (!overlong)
            {
                if ((size_t) (stop - p) > DocksimProtocol::maxLineBytes - line.size())
                {
                    overlong = true;
                    line.clear();
                }
                else
                    line.insert(line.end(), p, stop);
            }
            if (newline == nullptr)
                break;
            if (overlong)
                unreadable("a line of more than " + juce::String((juce::int64) DocksimProtocol::maxLineBytes)
                           + " bytes");
            else
                handleLine(line.empty() ? "" : line.data(), line.size());
            line.clear();
            overlong = false;
            p = newline + 1;
        }
    }
}

void DocksimConnection::handleLine(const char* data, size_t size)
{
    auto line = DocksimProtocol::parseLine(data, size);
    switch (line.kind)
    {
    case DocksimLine::Kind::reply:
    case DocksimLine::Kind::badReply:
    {
        const auto id = line.reply.id;
        auto reply = line.kind == DocksimLine::Kind::reply
                         ? line.reply
                         : failedReply(id, DockPlatform::resultError, "reply " + juce::String(id) + ": " + line.problem);
        if (!answer(id, std::move(reply)))
            juce::Logger::writeToLog("DocksimConnection::read ignored a reply to unknown request " + juce::String(id)
                                     + (line.problem.isEmpty() ? juce::String() : " (" + line.problem + ")"));
        break;
    }
    case DocksimLine::Kind::completion:
    case DocksimLine::Kind::badCompletion:
        if (line.kind == DocksimLine::Kind::badCompletion && line.completion.call == 0)
            juce::Logger::writeToLog("DocksimConnection::read ignored a completion: " + line.problem);
        else
            onCompletion(line);
        break;
    case DocksimLine::Kind::unreadable:
        unreadable(line.problem);
        break;
    }
}

void DocksimConnection::unreadable(const juce::String& problem)
{
    // Replies come in the order of the requests, so a line that should have
    // been a reply but cannot be read was meant for the oldest one waiting.
    {
        std::lock_guard<std::mutex> guard(pendingLock);
        if (!pending.empty())
        {
            auto oldest = pending.begin();
            oldest->second->done = true;
            oldest->second->reply = failedReply(oldest->first, DockPlatform::resultError,
                                                "unreadable line instead of reply " + juce::String(oldest->first)
                                                    + ": " + problem);
            pending.erase(oldest);
            replied.notify_all();
            return;
        }
    }
    juce::Logger::writeToLog("DocksimConnection::read ignored an unreadable line: " + problem);
}

bool DocksimConnection::answer(int64_t id, DocksimReply reply)
{
    std::lock_guard<std::mutex> guard(pendingLock);
    const auto found = pending.find(id);
    if (found == pending.end())
        return false;
    found->second->done = true;
    found->second->reply = std::move(reply);
    pending.erase(found);
    replied.notify_all();
    return true;
}

void DocksimConnection::lose(const char* operation, const juce::String& why)
{
    const auto problem = "the socket to the dock emulator is closed (" + why + ")";
    {
        std::lock_guard<std::mutex> guard(pendingLock);
        if (link == Link::closed)
            return;
        link = Link::closed;
        closedBecause = problem;
        for (auto& waiting : pending)
        {
            waiting.second->done = true;
            waiting.second->reply = failedReply(waiting.first, DockPlatform::resultNotAttached, problem);
        }
        pending.clear();
        replied.notify_all();
    }
    if (!stopping)
    {
        juce::Logger::writeToLog(juce::String(operation) + ": " + why + "; every dock call fails from now on");
        onClosed();
    }
    ::shutdown(fd, SHUT_RDWR);
}
