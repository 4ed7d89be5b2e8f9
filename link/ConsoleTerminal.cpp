#include "link/ConsoleTerminal.h"

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
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

void onSigInt(int)
{
    if (auto* handler = controlCHandler.load())
        handler();
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
    fd_set set;
    FD_ZERO(&set);
    FD_SET(STDIN_FILENO, &set);
    timeval tv { timeoutMs / 1000, (timeoutMs % 1000) * 1000 };
    return select(STDIN_FILENO + 1, &set, nullptr, nullptr, &tv) > 0;
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
    if (!ttyIsRaw)
    {
        ttyIsRaw = true;
        registerResetAtExit();
    }
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
    signal(SIGINT, onSigInt);
}
