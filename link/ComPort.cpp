#include "link/ComPort.h"
#include "link/DeviceDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/select.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

namespace
{
// Created on first use, shared by every ComPort of the process.
juce::StringArray& usbSerialNames()
{
    static juce::StringArray names;
    return names;
}

juce::CriticalSection& usbSerialNamesLock()
{
    static juce::CriticalSection cs;
    return cs;
}

bool speedFor(int baudRate, speed_t& speed)
{
    switch (baudRate)
    {
        case 300: speed = B300; return true;
        case 600: speed = B600; return true;
        case 1200: speed = B1200; return true;
        case 2400: speed = B2400; return true;
        case 4800: speed = B4800; return true;
        case 9600: speed = B9600; return true;
        case 19200: speed = B19200; return true;
        case 38400: speed = B38400; return true;
        case 57600: speed = B57600; return true;
        case 115200: speed = B115200; return true;
        case 230400: speed = B230400; return true;
        default: return false;
    }
}

constexpr int drainLimitBytes = 4096;
constexpr juce::uint32 drainLimitMs = 600;

void setTimeout(timeval& tv, int timeoutMs)
{
    tv.tv_sec = timeoutMs / 1000;
    tv.tv_usec = (timeoutMs % 1000) * 1000;
}
}

ComPort::~ComPort()
{
    close();
}

//==============================================================================
bool ComPort::scanUsbSerialNames()
{
    DIR* dir = opendir(DeviceDirectory::path().toRawUTF8());
    if (dir == nullptr)
        return false;

    juce::StringArray found;
    while (auto* entry = readdir(dir))
    {
        const juce::String name(entry->d_name);
        if (DeviceDirectory::isUsbSerialName(name))
            found.add(name);
    }
    closedir(dir);

    // The new names of one scan are numbered in sorted order, after every name
    // seen before: a number keeps meaning the same adaptor for the whole run.
    found.sort(false);
    auto& names = usbSerialNames();
    for (auto& name : found)
        names.addIfNotAlreadyThere(name);
    return true;
}

int ComPort::usbPortNumber(const juce::String& name)
{
    const juce::ScopedLock sl(usbSerialNamesLock());
    scanUsbSerialNames();
    return usbSerialNames().indexOf(name);
}

void ComPort::forgetUsbSerialNames()
{
    const juce::ScopedLock sl(usbSerialNamesLock());
    usbSerialNames().clear();
}

bool ComPort::open(int port, bool usb)
{
    if (isOpen() || port < 0)
        return false;

    juce::String path;
    if (usb)
    {
        const juce::ScopedLock sl(usbSerialNamesLock());
        if (!scanUsbSerialNames())
            return false;
        auto& names = usbSerialNames();
        if (port > names.size())
            return false;
        // A port equal to the count names the directory itself, which cannot be
        // opened as a device: the open below fails.
        path = DeviceDirectory::entryPath(port < names.size() ? names[port] : juce::String());
    }
    else
    {
        path = DeviceDirectory::entryPath(DeviceDirectory::numberedPortName(port));
    }

    const int newFd = ::open(path.toRawUTF8(), O_RDWR | O_NONBLOCK | O_NOCTTY);
    if (newFd < 0)
        return false;

    if (flock(newFd, LOCK_EX | LOCK_NB) != 0)
    {
        ::close(newFd);
        return false;
    }

    fd = newFd;
    portNumber = port;
    isUsb = usb;
    devicePath = path;
    open_ = true;
    return true;
}

bool ComPort::set(int baudRate, int dataBits, ParityType parity, int stopBits, FlowControlType flow)
{
    if (!isOpen())
        return false;

    termios tio {};
    tio.c_iflag = IGNPAR;
    tio.c_cflag = CREAD;

    speed_t speed;
    // Unknown rates are accepted and leave the port alone: callers pass
    // through whatever a board announces and carry on at the current rate.
    if (!speedFor(baudRate, speed))
        return true;
    cfsetispeed(&tio, speed);
    cfsetospeed(&tio, speed);

    switch (dataBits)
    {
        case 5: tio.c_cflag |= CS5; break;
        case 6: tio.c_cflag |= CS6; break;
        case 7: tio.c_cflag |= CS7; break;
        case 8: tio.c_cflag |= CS8; break;
        default: return false;
    }

    if (parity == parityEven)
        tio.c_cflag |= PARENB;
    else if (parity == parityOdd)
        tio.c_cflag |= PARENB | PARODD;

    if (stopBits == 2)
        tio.c_cflag |= CSTOPB;
    else if (stopBits != 1)
        return false;

    switch (flow)
    {
        case flowNone: tio.c_cflag |= CLOCAL; break;
        case flowHardware: tio.c_cflag |= CLOCAL | CRTSCTS; break;
        case flowSoftware: tio.c_iflag |= IXON | IXOFF | 0x8000; break;
        default: return false;
    }

    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 1;

    // What was fetched ahead is part of the input queue being flushed.
    tcflush(fd, TCIFLUSH);
    dropReadAhead();
    if (tcsetattr(fd, TCSANOW, &tio) != 0)
        return false;

    // Whatever the device had buffered before the new settings took hold is
    // noise from the old configuration. A device that never falls silent
    // would hold the caller (and the port lock of every search, open and
    // close with it) for ever: past a limit the port fails to configure.
    const auto start = juce::Time::getMillisecondCounter();
    int drained = 0;
    while (ready(50) == 1)
    {
        if (readChar(-1) < 0)
            return false;
        const auto elapsed = juce::Time::getMillisecondCounter() - start;
        if (++drained >= drainLimitBytes || elapsed >= drainLimitMs)
        {
            juce::Logger::writeToLog("ComPort::set(" + devicePath + ") gave up: the line did not fall silent ("
                                     + juce::String(drained) + " bytes in " + juce::String(elapsed) + " ms)");
            return false;
        }
    }
    return true;
}

void ComPort::dropReadAhead() noexcept
{
    readPos = readEnd = 0;
    buffered.store(0, std::memory_order_relaxed);
}

//==============================================================================
int ComPort::waitFor(WaitFor what, int timeoutMs, int& err)
{
    for (;;)
    {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(fd, &set);
        timeval tv;
        timeval* tvp = nullptr;
        if (timeoutMs >= 0)
        {
            setTimeout(tv, timeoutMs);
            tvp = &tv;
        }
        const int r = what == WaitFor::read ? select(fd + 1, &set, nullptr, nullptr, tvp)
                                            : select(fd + 1, nullptr, &set, nullptr, tvp);
        if (r < 0 && errno == EINTR)
            continue;
        err = r < 0 ? errno : 0;
        return r;
    }
}

int ComPort::ready(int timeoutMs)
{
    if (!isOpen())
        return -1;
    if (readPos < readEnd)
        return 1;
    int err = 0;
    const int r = waitFor(WaitFor::read, timeoutMs, err);
    if (r < 0)
    {
        juce::Logger::writeToLog("ComPort::ready(" + devicePath + ") error " + juce::String(err));
        return r;
    }
    return r > 0 ? 1 : 0;
}

int ComPort::readChar(int timeoutMs)
{
    if (!isOpen())
        return -1;
    for (;;)
    {
        if (readPos < readEnd)
        {
            const unsigned char c = readAhead[readPos++];
            buffered.store(readEnd - readPos, std::memory_order_relaxed);
            // Signed on purpose: the boards send ASCII only, so a byte of 0x80 or
            // above comes back negative and every caller treats it as a failure.
            return (int) (signed char) c;
        }

        int err = 0;
        const int r = waitFor(WaitFor::read, timeoutMs, err);
        if (r < 0)
        {
            juce::Logger::writeToLog("ComPort::readChar(" + devicePath + ") select error " + juce::String(err));
            return -1;
        }
        if (r == 0)
            return -1;

        const ssize_t n = ::read(fd, readAhead, sizeof readAhead);
        if (n > 0)
        {
            readPos = 0;
            readEnd = (int) n;
            buffered.store(readEnd, std::memory_order_relaxed);
            continue;
        }
        if (n == 0)
            return -1;
        if (errno == EAGAIN || errno == EINTR)
            continue;
        juce::Logger::writeToLog("ComPort::readChar(" + devicePath + ") read error " + juce::String(errno));
        return -1;
    }
}

int ComPort::readString(juce::String& line, int maxLength, int timeoutMs)
{
    line.clear();
    if (maxLength < 1)
        return 0;

    // Collected as bytes and converted once: appending to a juce::String one
    // character at a time would reallocate for every byte.
    juce::MemoryOutputStream bytes(256);
    int count = 0;
    int result = 0;
    for (;;)
    {
        const int r = ready(timeoutMs);
        if (r != 1)
        {
            result = r < 0 ? -1 : count;
            break;
        }
        const int c = readChar(-1);
        if (c < 0)
        {
            result = -1;
            break;
        }
        if (c == '\r')
            continue;
        if (c == '\n')
        {
            result = count;
            break;
        }
        bytes.writeByte((char) c);
        if (++count >= maxLength)
        {
            result = count;
            break;
        }
    }
    line = juce::String(juce::CharPointer_ASCII((const char*) bytes.getData()), bytes.getDataSize());
    return result;
}

bool ComPort::writeChar(char c, int timeoutMs)
{
    if (!isOpen())
        return false;
    int err = 0;
    const int r = waitFor(WaitFor::write, timeoutMs, err);
    if (r == 0)
    {
        juce::Logger::writeToLog("ComPort::writeChar(" + devicePath + ") timed out error " + juce::String(timeoutMs));
        return false;
    }
    if (r < 0)
    {
        juce::Logger::writeToLog("ComPort::writeChar(" + devicePath + ") select error " + juce::String(err));
        return false;
    }
    if (::write(fd, &c, 1) != 1)
    {
        // Reports the timeout, not errno: the text is what existing bench logs
        // are searched for.
        juce::Logger::writeToLog("ComPort::writeChar(" + devicePath + ") write error " + juce::String(timeoutMs));
        return false;
    }
    return true;
}

bool ComPort::writeString(const char* text, int timeoutMs)
{
    for (const char* p = text; *p != 0; ++p)
        if (!writeChar(*p, timeoutMs))
            return false;
    return true;
}

bool ComPort::removed() const
{
    struct stat st;
    return stat(devicePath.toRawUTF8(), &st) != 0;
}

void ComPort::close()
{
    if (!open_.exchange(false))
        return;
    dropReadAhead();
    juce::Thread::sleep(10);
    ::close(fd.exchange(-1));
}

int ComPort::waitForInput(int timeoutMs, int wakeFd) const
{
    if (buffered.load(std::memory_order_relaxed) > 0)
        return 0;
    // The descriptor may be closed (even reused) while this waits: select then
    // waits on the old file or wakes early, and either is harmless.
    const int f = fd.load();
    if (f < 0 || f >= FD_SETSIZE || wakeFd >= FD_SETSIZE)
        return -1;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(f, &set);
    if (wakeFd >= 0)
        FD_SET(wakeFd, &set);
    timeval tv;
    setTimeout(tv, timeoutMs);
    const int r = select(juce::jmax(f, wakeFd) + 1, &set, nullptr, nullptr, &tv);
    if (r < 0)
        return errno == EINTR ? 0 : -1;
    return wakeFd >= 0 && FD_ISSET(wakeFd, &set) ? 1 : 0;
}
