#include "link/ConsoleTerminal.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <signal.h>
#include <sys/select.h>
#include <termios.h>
#include <unistd.h>

namespace
{
std::atomic<bool> ttyIsRaw { false };
std::atomic<void (*)()> controlCHandler { nullptr };
std::atomic<bool> resetRegistered { false };

void registerResetAtExit()
{
    if (!resetRegistered.exchange(true))
        atexit(resetTTY);
}

/** Ctrl-C writes a byte here after its handler has run, so that a wait for a
    key ends at once whichever thread the signal interrupted. Made once, with
    the first handler, and kept for the life of the process. */
struct InterruptPipe
{
    int fds[2] = { -1, -1 };

    InterruptPipe()
    {
        if (pipe(fds) != 0)
            fds[0] = fds[1] = -1;
        for (int end : fds)
            if (end >= 0)
                fcntl(end, F_SETFL, fcntl(end, F_GETFL) | O_NONBLOCK);
    }
};

InterruptPipe& interruptPipe()
{
    static InterruptPipe p;
    return p;
}

std::atomic<int> interruptWriteEnd { -1 };

void onSigInt(int)
{
    const int savedErrno = errno;
    if (auto* handler = controlCHandler.load())
        handler();
    const char wake = 1;
    const int end = interruptWriteEnd.load();
    if (end >= 0)
        (void) !::write(end, &wake, 1);
    errno = savedErrno;
}
}

void setupTTY(bool singleKey)
{
    termios tio;
    if (tcgetattr(STDOUT_FILENO, &tio) != 0)
    {
        printf("setupTTY: tcgetattr failed\n");
        return;
    }
    if (singleKey)
        tio.c_lflag &= ~(tcflag_t) (ICANON | ECHO);
    else
        tio.c_lflag |= ICANON | ECHO;
    if (tcsetattr(STDOUT_FILENO, TCSANOW, &tio) != 0)
        printf("setupTTY: tcsetattr failed\n");
}

bool kbhit()
{
    return waitForKey(0);
}

bool waitForKey(int timeoutMs)
{
    if (!ttyIsRaw)
    {
        setupTTY(true);
        ttyIsRaw = true;
        registerResetAtExit();
    }
    const int interrupted = interruptWriteEnd.load() >= 0 ? interruptPipe().fds[0] : -1;
    fd_set set;
    FD_ZERO(&set);
    FD_SET(STDIN_FILENO, &set);
    if (interrupted >= 0)
        FD_SET(interrupted, &set);
    timeval tv { timeoutMs / 1000, (timeoutMs % 1000) * 1000 };
    if (select(std::max(STDIN_FILENO, interrupted) + 1, &set, nullptr, nullptr, &tv) <= 0)
        return false;
    if (interrupted >= 0 && FD_ISSET(interrupted, &set))
    {
        char bytes[16];
        while (::read(interrupted, bytes, sizeof bytes) > 0)
            ;
        return false;
    }
    return true;
}

int getch()
{
    termios before {};
    const bool haveTerminal = tcgetattr(STDOUT_FILENO, &before) == 0;
    if (haveTerminal)
    {
        termios raw = before;
        raw.c_lflag &= ~(tcflag_t) (ICANON | ECHO);
        tcsetattr(STDOUT_FILENO, TCSANOW, &raw);
    }
    // The mode it found is put back below, so the terminal is not left raw: marking it so would
    // keep a later waitForKey() from switching to single keys.
    registerResetAtExit();
    unsigned char c = 0;
    ssize_t n;
    do
        n = ::read(STDIN_FILENO, &c, 1);
    while (n < 0 && errno == EINTR);
    if (haveTerminal)
        tcsetattr(STDOUT_FILENO, TCSANOW, &before);
    return n == 1 ? (int) c : -1;
}

void resetTTY()
{
    setupTTY(false);
    ttyIsRaw = false;
}

void setControlCHandler(void (*handler)())
{
    controlCHandler = handler;
    interruptWriteEnd = interruptPipe().fds[1];
    signal(SIGINT, onSigInt);
}
