#include "simcore/simcore.h"

#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace simcore {

namespace {

int g_stopPipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 's';
    // Nothing to do if the pipe is full: a stop is already pending.
    [[maybe_unused]] ssize_t n = ::write(g_stopPipe[1], &c, 1);
}

} // namespace

void printLine(const std::string& line)
{
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

int stopFdOnSignals()
{
    if (g_stopPipe[0] < 0 && ::pipe2(g_stopPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        return -1;
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    std::signal(SIGPIPE, SIG_IGN);
    return g_stopPipe[0];
}

bool parseDecimal(const std::string& text, long lo, long hi, int& value)
{
    if (text.empty() || text.size() > 11)
        return false;
    std::size_t i = (text[0] == '-' || text[0] == '+') ? 1 : 0;
    if (i == text.size())
        return false;
    long v = 0;
    for (; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        v = v * 10 + (text[i] - '0');
    }
    if (text[0] == '-')
        v = -v;
    if (v < lo || v > hi)
        return false;
    value = static_cast<int>(v);
    return true;
}

} // namespace simcore
