#include "docks/usb/USBDockBoard.h"

namespace
{
/** Every dock board alive in the process. A completion may arrive after its
    board was destroyed; it is delivered only to a board still listed here. */
struct LiveBoards
{
    juce::CriticalSection lock;
    juce::Array<USBDockBoard*, juce::DummyCriticalSection, 4> boards;
};

LiveBoards& liveBoards()
{
    static LiveBoards live;
    return live;
}
} // namespace

USBDockBoard::USBDockBoard(std::shared_ptr<DockPlatform> p, int statusPeriodMs)
    : platform(std::move(p)), replyArrived(false), drivers(std::make_unique<DriverInstanceList>(platform)),
      poller(std::make_unique<StatusPoller>(*this, statusPeriodMs))
{
    auto& live = liveBoards();
    const juce::ScopedLock sl(live.lock);
    live.boards.add(this);
}

USBDockBoard::~USBDockBoard()
{
    shutDown();
}

void USBDockBoard::shutDown()
{
    isOpen = false;
    closing = true;
    replyArrived.signal();
    {
        auto& live = liveBoards();
        const juce::ScopedLock sl(live.lock);
        live.boards.removeFirstMatchingValue(this);
    }
    // The watch uses the handler, so it stops before the handler goes.
    stopThreads();
    {
        const juce::ScopedLock sl(lock);
        handler.reset();
    }
    const std::lock_guard<std::mutex> guard(replyLock);
    reply.reset();
    replyLength = 0;
}

void USBDockBoard::stopThreads()
{
    poller->stopThread(threadStopTimeoutMs);
    stopThread(threadStopTimeoutMs);
}

//==============================================================================
bool USBDockBoard::findAndOpen(int boardId)
{
    if (isOpen)
        return true;

    // A board closed after the dock went away still has its threads and the
    // old connection; they go before a new connection is made.
    stopThreads();
    {
        const juce::ScopedLock sl(lock);
        handler.reset();
    }

    const int found = drivers->findDevicesByDriverName(driverName);
    if (boardId < 0 || boardId >= found)
        return false;

    auto* instance = (*drivers)[boardId];
    auto opened = std::make_unique<USBDockSCSIDeviceHandler>(platform);
    opened->attachCallback(commandCallback, this);
    const bool serviceOpen = opened->openService(instance);
    {
        const juce::ScopedLock sl(lock);
        handler = std::move(opened);
    }
    serialNumber = instance->serialNumber;
    locationID = instance->locationID;
    suppressFailure = false;
    isOpen = serviceOpen;

    if (isOpen)
    {
        juce::String revision;
        if (getFirmwareRevision(revision))
            setVersionString(revision);
        else
            isOpen = false;
    }
    if (isOpen)
    {
        poller->startThread();
        startThread();
    }
    return isOpen;
}

bool USBDockBoard::syncState()
{
    return getStatusUpdate();
}

void USBDockBoard::closeBoard(bool)
{
    isOpen = false;
}

//==============================================================================
bool USBDockBoard::sendCommand(CDB16* cdb, unsigned int length, bool suppress)
{
    const int subcode = cdb->subcode();
    if (suppress)
        suppressFailure = true;
    if (closing)
        return false;

    const juce::ScopedLock sl(lock);
    // A command that was never issued has already been reported by the handler.
    if (handler == nullptr || !handler->execTarvoCommand(cdb, length, suppress))
        return false;

    replyArrived.wait(replyTimeoutMs);

    if (closing)
    {
        logLine(juce::String::formatted("Teminating outstanding command (0x%02X).", subcode));
        return false;
    }

    const std::lock_guard<std::mutex> guard(replyLock);
    if (reply != nullptr)
    {
        if (reply[0] == subcode)
            return true;
        logLine(juce::String::formatted("Command returned with the wrong subcode - got %02X, should be %02X", reply[0], subcode));
        reply.reset();
        replyLength = 0;
        return false;
    }

    if (!suppressFailure)
        logLine(juce::String::formatted("Command %02X unsuccessful or timed out...", subcode));
    return false;
}

void USBDockBoard::callbackWithBuffer(bool ok, unsigned char* buffer, unsigned long long length)
{
    {
        const std::lock_guard<std::mutex> guard(replyLock);
        if (ok && buffer != nullptr && length != 0)
        {
            reply.reset(buffer);
            replyLength = length;
        }
        else
        {
            delete[] buffer;
            reply.reset();
            replyLength = 0;
        }
    }
    replyArrived.signal();
}

void USBDockBoard::commandCallback(void* context, bool ok, unsigned char* buffer, unsigned long long length)
{
    auto* board = static_cast<USBDockBoard*>(context);
    auto& live = liveBoards();
    // Held across the delivery, so the board cannot be destroyed meanwhile.
    const juce::ScopedLock sl(live.lock);
    if (live.boards.contains(board) && board->isAvailableForCallback())
    {
        board->callbackWithBuffer(ok, buffer, length);
        return;
    }
    juce::Logger::writeToLog("Handler is gone - tidying up return buffer.");
    delete[] buffer;
}

USBDockReply USBDockBoard::takeReply()
{
    const std::lock_guard<std::mutex> guard(replyLock);
    const auto length = replyLength;
    replyLength = 0;
    return USBDockReply(std::move(reply), (size_t) length);
}

//==============================================================================
void USBDockBoard::run()
{
    while (!threadShouldExit())
    {
        wait(removalCheckMs);
        if (threadShouldExit())
            return;
        if (handler == nullptr)
        {
            closeBoard(true);
            return;
        }
        if (handlerRemoved())
        {
            // One more look, in case the dock was only resetting.
            wait(removalRecheckMs);
            if (handlerRemoved())
            {
                closeBoard(true);
                return;
            }
        }
    }
}

bool USBDockBoard::handlerRemoved()
{
    return handler == nullptr || handler->removed();
}

bool USBDockBoard::deviceRemoved()
{
    const juce::ScopedLock sl(lock);
    return handlerRemoved();
}
