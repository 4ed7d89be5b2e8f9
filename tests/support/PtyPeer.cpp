#include "support/PtyPeer.h"

#include "link/ComPort.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>

TempDevDir::TempDevDir()
{
    char templ[] = "/tmp/avrtest-dev-XXXXXX";
    if (mkdtemp(templ) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    dir = templ;
    setenv("AVRTEST_DEV_DIR", dir.c_str(), 1);
    ComPort::forgetUsbSerialNames();
}

TempDevDir::~TempDevDir()
{
    juce::File(dir).deleteRecursively();
    unsetenv("AVRTEST_DEV_DIR");
    ComPort::forgetUsbSerialNames();
}

PtyPeer::PtyPeer(const std::string& dir, const std::string& name)
{
    master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        throw std::runtime_error("cannot create pty");
    const std::string slavePath = ptsname(master);
    slave = ::open(slavePath.c_str(), O_RDWR | O_NOCTTY);
    if (slave < 0)
        throw std::runtime_error("cannot open pty slave");
    termios tio;
    tcgetattr(slave, &tio);
    cfmakeraw(&tio);
    cfsetspeed(&tio, B1200);
    tcsetattr(slave, TCSANOW, &tio);
    link = dir + "/" + name;
    if (symlink(slavePath.c_str(), link.c_str()) != 0)
        throw std::runtime_error("cannot publish pty");
}

PtyPeer::~PtyPeer()
{
    stopServing();
    unplug();
}

bool PtyPeer::settings(termios& tio) const
{
    return slave >= 0 && tcgetattr(slave, &tio) == 0;
}

void PtyPeer::toggleSpeed()
{
    termios tio;
    if (slave < 0 || tcgetattr(slave, &tio) != 0)
        return;
    fast = !fast;
    cfsetspeed(&tio, fast ? B2400 : B1200);
    tcsetattr(slave, TCSANOW, &tio);
}

bool PtyPeer::fill(const std::function<bool()>& enough, int timeoutMs)
{
    const auto deadline = juce::Time::getMillisecondCounter() + (juce::uint32) timeoutMs;
    while (!enough())
    {
        const auto now = juce::Time::getMillisecondCounter();
        if (now >= deadline || master < 0)
            return false;
        pollfd p { master, POLLIN, 0 };
        if (poll(&p, 1, (int) (deadline - now)) <= 0)
            continue;
        char buf[512];
        const ssize_t got = ::read(master, buf, sizeof buf);
        if (got > 0)
            pending.append(buf, (size_t) got);
        else if (got < 0 && errno != EAGAIN && errno != EINTR)
            return false;
    }
    return true;
}

bool PtyPeer::readBytes(std::string& bytes, size_t n, int timeoutMs)
{
    if (!fill([&] { return pending.size() >= n; }, timeoutMs))
        return false;
    bytes = pending.substr(0, n);
    pending.erase(0, n);
    return true;
}

bool PtyPeer::readLine(std::string& line, int timeoutMs)
{
    if (!fill([&] { return pending.find('\n') != std::string::npos; }, timeoutMs))
        return false;
    readBytes(line, pending.find('\n') + 1, 0);
    line.pop_back();
    toggleSpeed();
    return true;
}

void PtyPeer::write(const std::string& bytes)
{
    // Lines from the responder and from the test itself must not interleave.
    std::lock_guard<std::mutex> g(writeLock);
    size_t done = 0;
    while (done < bytes.size() && master >= 0)
    {
        const ssize_t n = ::write(master, bytes.data() + done, bytes.size() - done);
        if (n > 0)
            done += (size_t) n;
        else if (n < 0 && errno != EAGAIN && errno != EINTR)
            return;
    }
}

void PtyPeer::writeIfRoom(const std::string& bytes)
{
    std::lock_guard<std::mutex> g(writeLock);
    if (master < 0)
        return;
    // A blocking pty write waits until every byte fits.
    const int flags = fcntl(master, F_GETFL);
    fcntl(master, F_SETFL, flags | O_NONBLOCK);
    juce::ignoreUnused(::write(master, bytes.data(), bytes.size()));
    fcntl(master, F_SETFL, flags);
}

void PtyPeer::serve(Responder responder)
{
    stopServing();
    serving = true;
    server = std::thread([this, responder] {
        while (serving)
        {
            std::string line;
            if (!readLine(line, 100))
                continue;
            {
                std::lock_guard<std::mutex> g(receivedLock);
                receivedLines.push_back(line);
            }
            for (auto& out : responder(line))
                write(!out.empty() && out[0] == '\x01' ? out.substr(1) : out + "\r\n");
        }
    });
}

void PtyPeer::stopServing()
{
    serving = false;
    if (server.joinable())
        server.join();
}

std::vector<std::string> PtyPeer::received() const
{
    std::lock_guard<std::mutex> g(receivedLock);
    return receivedLines;
}

bool PtyPeer::waitForReceived(size_t n, int timeoutMs) const
{
    return waitUntil([&] { return received().size() >= n; }, timeoutMs);
}

void PtyPeer::unplug()
{
    if (server.joinable() && std::this_thread::get_id() != server.get_id())
        stopServing();
    if (!link.empty())
        ::unlink(link.c_str());
    if (master >= 0)
        ::close(master);
    if (slave >= 0)
        ::close(slave);
    master = slave = -1;
}

bool waitUntil(const std::function<bool()>& condition, int timeoutMs)
{
    const auto deadline = juce::Time::getMillisecondCounter() + (juce::uint32) timeoutMs;
    while (!condition())
    {
        if (juce::Time::getMillisecondCounter() >= deadline)
            return false;
        juce::Thread::sleep(5);
    }
    return true;
}

ProgramRun runProgram(const std::string& commandLine)
{
    ProgramRun run;
    FILE* p = popen((commandLine + " 2>&1").c_str(), "r");
    if (p == nullptr)
        return run;
    char buf[4096];
    for (size_t n; (n = std::fread(buf, 1, sizeof buf, p)) > 0;)
        run.output.append(buf, n);
    const int status = pclose(p);
    run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return run;
}

LogCapture::LogCapture() : previous(juce::Logger::getCurrentLogger())
{
    juce::Logger::setCurrentLogger(this);
}

LogCapture::~LogCapture()
{
    juce::Logger::setCurrentLogger(previous);
}

juce::StringArray LogCapture::lines() const
{
    std::lock_guard<std::mutex> g(m);
    return captured;
}

void LogCapture::clear()
{
    std::lock_guard<std::mutex> g(m);
    captured.clear();
}

void LogCapture::logMessage(const juce::String& message)
{
    std::lock_guard<std::mutex> g(m);
    captured.add(message);
}
