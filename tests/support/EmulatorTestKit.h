#pragma once

// What the emulator tests share, in plain POSIX: these tests link neither product nor JUCE.

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace emutest {

using Clock = std::chrono::steady_clock;
// Generous: a loaded machine may stall any step a while, and a deadline reached only means a failure.
constexpr std::chrono::milliseconds kWait{10000};
inline const std::string kNone = "<nothing>";

inline std::string hex(const std::vector<uint8_t>& bytes)
{
    static const char d[] = "0123456789ABCDEF";
    std::string out;
    for (uint8_t b : bytes)
        out += {d[b >> 4], d[b & 15]};
    return out;
}

struct TempDir {
    std::string path;
    TempDir()
    {
        char p[] = "/tmp/emulator_test.XXXXXX";
        if (!::mkdtemp(p))
            throw std::runtime_error("mkdtemp failed");
        path = p;
    }
    ~TempDir() { std::filesystem::remove_all(path); }
};

// A pty, pipe or socket end; what comes in is kept until a test takes it.
class Stream {
public:
    Stream(int f = -1) : fd(f) {}
    ~Stream() { close(); }
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    void close()
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
    bool write(const std::string& bytes)
    {
        for (size_t done = 0; done < bytes.size();) {
            pollfd p{fd, POLLOUT, 0};
            if (::poll(&p, 1, 5000) <= 0)
                return false;
            const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
            if (n < 0 && errno != EAGAIN && errno != EINTR)
                return false;
            done += n > 0 ? static_cast<size_t>(n) : 0;
        }
        return true;
    }
    // One line without its "\r\n" or "\n", or kNone if none came in time.
    std::string line(std::chrono::milliseconds limit = kWait)
    {
        if (!fill([&] { return buffer_.find('\n') != std::string::npos; }, limit))
            return kNone;
        const auto nl = buffer_.find('\n');
        std::string l = buffer_.substr(0, nl > 0 && buffer_[nl - 1] == '\r' ? nl - 1 : nl);
        buffer_.erase(0, nl + 1);
        return l;
    }
    // `count` bytes, or those that came in time.
    std::string bytes(size_t count)
    {
        fill([&] { return buffer_.size() >= count; });
        std::string out = buffer_.substr(0, count);
        buffer_.erase(0, out.size());
        return out;
    }
    // True once the far end is gone: reads report end of file or an error.
    bool hungUp() { return !fill([] { return false; }) && ended_; }

    int fd;

private:
    bool fill(const std::function<bool()>& enough, std::chrono::milliseconds limit = kWait)
    {
        const auto deadline = Clock::now() + limit;
        while (!enough()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            pollfd p{fd, POLLIN, 0};
            if (ended_ || left.count() <= 0)
                return false;
            if (::poll(&p, 1, static_cast<int>(left.count()) + 1) <= 0)
                continue;
            char chunk[4096];
            const ssize_t n = ::read(fd, chunk, sizeof chunk);
            if (n > 0)
                buffer_.append(chunk, static_cast<size_t>(n));
            else if (n == 0 || (errno != EAGAIN && errno != EINTR))
                ended_ = true;
        }
        return true;
    }

    std::string buffer_;
    bool ended_ = false;
};

// An emulator run as a child process with pipes on its stdin and stdout; killed if the test gives up on it.
struct Child {
    explicit Child(std::vector<std::string> argv)
    {
        std::vector<char*> args;
        for (auto& a : argv)
            args.push_back(a.data());
        args.push_back(nullptr);
        int i[2], o[2];
        if (::pipe2(i, O_CLOEXEC) || ::pipe2(o, O_CLOEXEC))
            throw std::runtime_error("pipe failed");
        if ((pid = ::fork()) == 0) {
            ::dup2(i[0], 0);
            ::dup2(o[1], 1);
            ::execv(args[0], args.data());
            ::_exit(127);
        }
        ::close(i[0]);
        ::close(o[1]);
        in.fd = i[1];
        out.fd = o[0];
    }
    ~Child()
    {
        if (pid > 0 && ::kill(pid, SIGKILL) == 0)
            ::waitpid(pid, nullptr, 0);
    }

    // The exit status, or -1 if the child did not end in time: its stdout closes as it ends.
    int wait()
    {
        int st = 0;
        if (!out.hungUp() || ::waitpid(pid, &st, 0) != pid)
            return -1;
        pid = -1;
        return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    }

    Stream in, out;
    pid_t pid = -1;
};

} // namespace emutest
