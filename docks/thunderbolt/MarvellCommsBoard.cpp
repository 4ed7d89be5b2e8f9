#include "docks/thunderbolt/MarvellCommsBoard.h"

#include <cstring>

juce::StringArray MarvellCommsBoard::servicePaths;
juce::CriticalSection MarvellCommsBoard::pathLock;

MarvellCommsBoard::MarvellCommsBoard(std::shared_ptr<DockPlatform> p) : platform(std::move(p)) {}

MarvellCommsBoard::~MarvellCommsBoard()
{
    closeBoard(false);
}

juce::String MarvellCommsBoard::getServicePath() const
{
    const juce::ScopedLock sl(pathLock);
    return servicePath;
}

//==============================================================================
bool MarvellCommsBoard::sendCommandInternal(const juce::String& command, juce::String& reply, bool expectResponse)
{
    const juce::ScopedLock sl(exchangeLock);
    if (service == 0)
        return false;

    auto* request = new juce::DynamicObject();
    request->setProperty("sendCommand", command);
    if (platform->setProperties(service, juce::var(request)) != DockPlatform::success)
        return false;

    const juce::String prefix = "MarvellCommsBoard::sendCommand '" + command + "'";
    juce::var properties;
    if (!platform->getProperties(service, properties))
    {
        logLine(prefix + " failed (getCFProperties)");
        return false;
    }
    const auto hostComms = properties.getProperty("HostComms", {});
    const auto replyText = hostComms.getProperty("reply", {});
    if (!hostComms.isObject() || !replyText.isString())
    {
        logLine(prefix + " failed (getReply)");
        return false;
    }

    reply = replyText.toString();
    if (reply == "N")
    {
        logLine(prefix + " received NACK");
        return false;
    }
    if (reply.startsWithChar('R'))
    {
        if (!expectResponse)
            logLine(prefix + " received unexpected response char");
        return expectResponse;
    }
    if (reply == "OK")
    {
        if (expectResponse)
            logLine(prefix + " received unexpected ACK");
        return !expectResponse;
    }
    // Event texts, the identity and an empty reply all arrive here: the poll
    // and discovery rely on getting them back as they are.
    return true;
}

//==============================================================================
bool MarvellCommsBoard::findAndOpen(int boardId)
{
    if (isOpen)
        return true;

    searchForBoard(serviceNameString(), boardIdString(), boardId);
    if (isOpen)
    {
        // A thread that closed the board itself after the dock went away may
        // still be winding down.
        stopThread(threadStopTimeoutMs);
        startThread();
    }
    return isOpen;
}

void MarvellCommsBoard::searchForBoard(const char* className, const char* serviceName, int id)
{
    const juce::ScopedLock sl(pathLock);
    isOpen = false;

    juce::Array<DockPlatform::Entry> services;
    if (platform->matchServicesByClass(className, services) != DockPlatform::success)
        return;

    int next = 0;
    while (next < services.size())
        if (tryService(services[next++], serviceName, id))
            break;
    // Every matched service came with a reference, visited or not.
    for (; next < services.size(); ++next)
        platform->release(services[next]);
}

bool MarvellCommsBoard::tryService(DockPlatform::Entry candidate, const char* serviceName, int id)
{
    juce::String path;
    if (!platform->getPath(candidate, path) || servicePaths.contains(path))
    {
        platform->release(candidate);
        return false;
    }

    {
        const juce::ScopedLock sl(exchangeLock);
        service = candidate;
    }
    juce::String identity;
    bool accepted = sendCommandInternal("?", identity, false) && identity.startsWith(serviceName);
    if (accepted && id >= 0)
    {
        juce::String idReply;
        accepted = sendCommandInternal("@", idReply, true) && idReply.getTrailingIntValue() == id;
    }
    if (!accepted)
    {
        const juce::ScopedLock sl(exchangeLock);
        service = 0;
        platform->release(candidate);
        return false;
    }

    // The name is followed by one separator character before the version.
    setVersionString(identity.substring((int) std::strlen(serviceName) + 1));
    servicePaths.add(path);
    servicePath = path;
    isOpen = true;
    return true;
}

bool MarvellCommsBoard::syncState()
{
    return sendCommand('!', -1, 2);
}

//==============================================================================
void MarvellCommsBoard::run()
{
    bool lastPollFailed = false;
    while (!threadShouldExit())
    {
        juce::String reply;
        if (!sendCommandInternal("&", reply, false))
        {
            // One failed poll can be a busy driver; two in a row mean the
            // dock has gone.
            if (lastPollFailed)
            {
                closeBoard(true);
                return;
            }
            lastPollFailed = true;
            wait(idlePollPauseMs);
            continue;
        }

        lastPollFailed = false;
        if (reply.isNotEmpty())
        {
            eventReceived(reply);
            // A dock with several queued events gives them up back to back.
            juce::Thread::yield();
        }
        else
        {
            wait(idlePollPauseMs);
        }
    }
}

void MarvellCommsBoard::closeBoard(bool fromOwnThread)
{
    closeOnce(fromOwnThread, [this](bool fromThread) { closeOpenBoard(fromThread); });
}

void MarvellCommsBoard::closeOpenBoard(bool fromOwnThread)
{
    if (!isOpen)
        return;
    runClosingCommand();
    if (!fromOwnThread)
        stopThread(threadStopTimeoutMs);
    isOpen = false;
    setVersionString({});

    const juce::ScopedLock pl(pathLock);
    const juce::ScopedLock el(exchangeLock);
    platform->release(service);
    service = 0;
    servicePaths.removeString(servicePath);
    servicePath.clear();
}
