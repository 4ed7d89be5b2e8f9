#include "link/ControlBoard.h"

#include <cstring>
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

namespace
{
constexpr int identifyWriteTimeoutMs = 50;
constexpr int identifyReadTimeoutMs = 100;
constexpr int idReadTimeoutMs = 500;
constexpr int replyReadTimeoutMs = 500;
constexpr int eventReadTimeoutMs = 50;
constexpr int idleChecksBeforeUnplugCheck = 50;
constexpr int readErrorsBeforeClose = 100;
// A board that streams lines and never gives the final one would hold the
// exchange, and the board lock with it, for ever, and park events without end
// (the event thread takes them only between exchanges).
constexpr juce::uint32 exchangeLimitMs = 3000;
constexpr int parkedEventsLimit = 2000;

bool configureForBoard(ComPort& p, int baudRate)
{
    return p.set(baudRate, 8, ComPort::parityEven, 1, ComPort::flowNone);
}

bool isFinalLine(const juce::String& line)
{
    return line == "OK" || line == "N" || line.startsWithChar('R');
}

bool isEventLine(const juce::String& line)
{
    const auto c = line[0];
    return c >= 'a' && c <= 'z';
}

/** True when `fd` turned readable within the time; a negative fd just waits. */
bool readableWithin(int fd, int timeoutMs)
{
    fd_set set;
    FD_ZERO(&set);
    if (fd >= 0)
        FD_SET(fd, &set);
    timeval tv { timeoutMs / 1000, (timeoutMs % 1000) * 1000 };
    return select(fd + 1, &set, nullptr, nullptr, &tv) > 0;
}
}

bool ControlBoard::openPorts[ControlBoard::maxPorts] = {};
juce::CriticalSection ControlBoard::portLock;

ControlBoard::ControlBoard()
{
    if (pipe(wakePipe) == 0)
        for (int end : wakePipe)
            fcntl(end, F_SETFL, fcntl(end, F_GETFL) | O_NONBLOCK);
    else
        wakePipe[0] = wakePipe[1] = -1;
    addListener(this);
}

ControlBoard::~ControlBoard()
{
    closeBoard(false);
    // The thread is stopped once more by the base destructor: no wake-ups then.
    removeListener(this);
    for (int end : wakePipe)
        if (end >= 0)
            ::close(end);
}

void ControlBoard::exitSignalSent()
{
    wakeEventThread();
}

void ControlBoard::wakeEventThread()
{
    // A full pipe wakes the thread as well as one more byte would.
    const char wake = 1;
    if (wakePipe[1] >= 0)
        juce::ignoreUnused(::write(wakePipe[1], &wake, 1));
}

void ControlBoard::drainWakePipe()
{
    char bytes[16];
    while (wakePipe[0] >= 0 && ::read(wakePipe[0], bytes, sizeof bytes) > 0)
        ;
}

bool ControlBoard::isPortOpen(int p)
{
    const juce::ScopedLock sl(portLock);
    return p >= 0 && p < maxPorts && openPorts[p];
}

//==============================================================================
bool ControlBoard::findAndOpen(int boardId)
{
    if (isOpen)
        return true;

    const bool usb = isUsb();
    const int first = firstSearchPort();
    const int last = first + numSearchPorts() - 1;

    juce::String version;
    const int found = searchForControlBoard(usb, first, last, boardIdString(), boardId, getBaudRate(), version);
    setVersionString(version);

    if (found >= 0 && openPort(found, usb))
    {
        // A thread that ended itself after an unplug may still be winding down.
        stopThread(threadStopTimeoutMs);
        isOpen = true;
        startThread();
    }
    return isOpen;
}

int ControlBoard::searchForControlBoard(bool usb, int firstPort, int lastPort, const char* idString,
                                        int boardId, int baudRate, juce::String& version)
{
    const juce::ScopedLock sl(portLock);
    const int idLength = (int) std::strlen(idString);

    for (int p = firstPort; p <= lastPort; ++p)
    {
        if (p >= 0 && p < maxPorts && openPorts[p])
            continue;

        ComPort probe;
        if (!probe.open(p, usb))
            continue;
        if (!configureForBoard(probe, baudRate))
        {
            probe.close();
            continue;
        }

        juce::String reply;
        probe.writeString("?\n", identifyWriteTimeoutMs);
        probe.readString(reply, ComPort::maxLineLength, identifyReadTimeoutMs);
        if (reply == "N")
        {
            // Some adaptors refuse the first request after being opened.
            probe.writeString("?\n", identifyWriteTimeoutMs);
            probe.readString(reply, ComPort::maxLineLength, identifyReadTimeoutMs);
        }
        if (reply.isEmpty() || !reply.startsWith(idString))
        {
            probe.close();
            continue;
        }

        version = reply.startsWith("(bootloader)") ? reply.substring(idLength + 13) : reply.substring(idLength + 1);

        juce::String idReply;
        probe.writeString("@\n", identifyWriteTimeoutMs);
        probe.readString(idReply, ComPort::maxLineLength, idReadTimeoutMs);
        const bool accepted = idReply.isNotEmpty() && idReply[0] == 'R'
                              && (boardId < 0 || (int) idReply[1] - '0' == boardId);
        probe.close();
        if (accepted)
            return p;
    }
    return -1;
}

bool ControlBoard::syncState()
{
    return sendCommand('!', -1, 2);
}

//==============================================================================
bool ControlBoard::openPort(int p, bool usb)
{
    const juce::ScopedLock sl(portLock);
    if (p < 0 || p >= maxPorts || openPorts[p])
        return false;
    if (!port.open(p, usb))
        return false;
    if (!configureForBoard(port, getBaudRate()))
    {
        port.close();
        return false;
    }
    openPorts[p] = true;
    return true;
}

void ControlBoard::closePort()
{
    const juce::ScopedLock sl(portLock);
    // The board lock is taken inside the port lock (never the other way
    // round), so a command in flight on another thread finishes before its
    // descriptor goes away.
    const juce::ScopedLock boardLock(lock);
    const int p = port.getPortNumber();
    if (port.isOpen())
    {
        port.close();
        if (p >= 0 && p < maxPorts)
            openPorts[p] = false;
    }
}

bool ControlBoard::changePortRate()
{
    // Under the close lock a close cannot take the port away meanwhile; under
    // the board lock the event thread does not read while the drain does.
    bool changed = false;
    whileNotClosing([this, &changed] {
        const juce::ScopedLock sl(portLock);
        const juce::ScopedLock boardLock(lock);
        changed = isOpen && configureForBoard(port, getBaudRate());
    });
    return changed;
}

bool ControlBoard::reopenPort()
{
    // A close from the board's thread (an unplug, failing reads) gives way
    // while this holds the close lock, and the thread is stopped here anyway:
    // the board ends either reopened with its thread, or closed with its port
    // free, never reopened behind the back of a close.
    bool reopened = false;
    whileNotClosing([this, &reopened] {
        if (!isOpen)
            return;
        const bool wasRunning = isThreadRunning();
        stopThread(threadStopTimeoutMs);
        const int p = port.getPortNumber();
        const bool usb = port.getIsUsb();
        closePort();
        if (!openPort(p, usb))
        {
            isOpen = false;
            return;
        }
        if (wasRunning)
            startThread();
        reopened = true;
    });
    return reopened;
}

void ControlBoard::closeBoard(bool fromOwnThread)
{
    closeOnce(fromOwnThread, [this](bool fromThread) { closeOpenBoard(fromThread); });
}

void ControlBoard::closeOpenBoard(bool fromOwnThread)
{
    if (!isOpen)
        return;
    closingBoard();
    if (!fromOwnThread)
        stopThread(threadStopTimeoutMs);
    closePort();
    isOpen = false;
    setVersionString({});
}

//==============================================================================
bool ControlBoard::sendCommandInternal(const juce::String& command, juce::String& reply, bool expectResponse)
{
    const juce::String line = command + "\n";
    const int writeTimeoutMs = command.length() <= 128 ? 50 : 250;

    if (!port.isOpen())
        return false;

    const juce::ScopedLock sl(lock);
    if (!port.isOpen())
        return false;

    exchangeInFlight = true;
    const bool result = exchange(command, line, writeTimeoutMs, reply, expectResponse);
    exchangeInFlight = false;
    // Lines parked meanwhile are delivered now, not after the thread's pause.
    if (!pendingEvents.isEmpty())
        wakeEventThread();
    return result;
}

bool ControlBoard::exchange(const juce::String& command, const juce::String& line, int writeTimeoutMs,
                            juce::String& reply, bool expectResponse)
{
    if (!port.writeString(line.toRawUTF8(), writeTimeoutMs))
    {
        logLine("ControlBoard::sendCommand '" + command + "' failed");
        return false;
    }

    bool result = true;
    reply.clear();
    const auto start = juce::Time::getMillisecondCounter();
    int parked = 0;
    while (!isFinalLine(reply))
    {
        // Past either limit the exchange fails as a timeout would: the board
        // is not answering. The lines parked so far are still delivered.
        const auto elapsed = juce::Time::getMillisecondCounter() - start;
        if (elapsed >= exchangeLimitMs || parked >= parkedEventsLimit)
        {
            logLine("ControlBoard::sendCommand '" + command + "' reply timeout: lines kept coming on "
                    + port.getDevicePath() + " for " + juce::String(elapsed) + " ms without a reply ("
                    + juce::String(parked) + " events parked)");
            return false;
        }

        const int n = port.readString(reply, ComPort::maxLineLength, replyReadTimeoutMs);
        if (n <= 0)
        {
            logLine("ControlBoard::sendCommand '" + command + "' reply " + (n < 0 ? "fail" : "timeout"));
            return false;
        }

        if (!isFinalLine(reply))
        {
            if (isEventLine(reply))
            {
                pendingEvents.add(reply);
                ++parked;
            }
            else
                logLine("ControlBoard::sendCommand '" + command + "' received unexpected reply '" + reply + "'");
        }
        else if (reply == "N")
        {
            logLine("ControlBoard::sendCommand '" + command + "' received NACK");
            result = false;
        }
        else if (reply.startsWithChar('R') && !expectResponse)
        {
            logLine("ControlBoard::sendCommand '" + command + "' received unexpected response char");
            result = false;
        }
        else if (reply == "OK" && expectResponse)
        {
            logLine("ControlBoard::sendCommand '" + command + "' received unexpected ACK");
            result = false;
        }
    }
    return result;
}

//==============================================================================
void ControlBoard::run()
{
    // A stop request of an earlier run may still be in the pipe.
    drainWakePipe();

    // Asked once: a board being destroyed must not be asked while its
    // destructors run (they stop this thread).
    const bool watchUnplug = isUsb();
    EventPoll poll;
    poll.pauseMs = idlePauseMs();
    while (!threadShouldExit())
    {
        const int status = pollForEvents(poll);
        if (status > 0)
            deliverEvents(poll);
        else if (pauseUntilNextPoll(status, poll.pauseMs))
            break;

        // Only a USB adaptor can vanish; while lines come the board is there.
        if (watchUnplug && status <= 0 && boardIsGone(status, poll))
        {
            closeBoard(true);
            return;
        }
    }
}

int ControlBoard::pollForEvents(EventPoll& poll)
{
    const juce::ScopedLock sl(lock);
    // Lines an exchange read while waiting for its reply come first: they
    // arrived before anything still in the port.
    if (!pendingEvents.isEmpty())
    {
        poll.parked.swapWith(pendingEvents);
        return 1;
    }
    if (port.isOpen() && port.ready(0) == 1)
    {
        const int status = port.readString(poll.line, ComPort::maxLineLength, eventReadTimeoutMs);
        poll.consecutiveErrors = status < 0 ? poll.consecutiveErrors + 1 : 0;
        return status;
    }
    poll.consecutiveErrors = 0;
    return 0;
}

void ControlBoard::deliverEvents(EventPoll& poll)
{
    // Listeners run without the board lock, so they may send commands.
    if (poll.parked.isEmpty())
    {
        eventReceived(poll.line);
        return;
    }
    for (auto& event : poll.parked)
        eventReceived(event);
    poll.parked.clear();
}

bool ControlBoard::pauseUntilNextPoll(int status, int pauseMs)
{
    // A quiet port is waited on, without the board lock and reading nothing,
    // so a line ends the pause as soon as it comes. After a failed read the
    // port may stay readable, and during an exchange what comes is the
    // exchange's: then only the pipe ends the pause, or the thread would spin.
    int woken = -1;
    if (status == 0 && !exchangeInFlight)
        woken = port.waitForInput(pauseMs, wakePipe[0]);
    if (woken < 0)
        woken = readableWithin(wakePipe[0], pauseMs) ? 1 : 0;
    if (woken > 0)
        drainWakePipe();
    return threadShouldExit();
}

bool ControlBoard::boardIsGone(int status, EventPoll& poll)
{
    // Looking for the device node costs a directory scan: a quiet port is
    // checked only every few idle turns, a failing read at once.
    if (status == 0 && poll.idleCount < idleChecksBeforeUnplugCheck)
    {
        ++poll.idleCount;
        return false;
    }
    poll.idleCount = 0;

    bool gone = port.removed();
    if (gone)
    {
        // A node can disappear for a moment while the adaptor re-enumerates.
        juce::Thread::sleep(20);
        gone = port.removed();
    }
    return gone || poll.consecutiveErrors > readErrorsBeforeClose;
}
