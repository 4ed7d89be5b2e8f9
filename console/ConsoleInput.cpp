#include "console/ConsoleInput.h"

#include "link/ConsoleTerminal.h"

#include <cerrno>
#include <optional>
#include <unistd.h>

std::atomic<unsigned char> stopFlag { 0 };

void onControlC()
{
    stopFlag = 1;
}

namespace ConsoleInput
{
namespace
{
// The part of an over-long text line that the diskpack could not take. Only
// the console thread reads answers, so it needs no lock.
std::optional<std::string> pending;

bool readByte(char& c)
{
    for (;;)
    {
        const ssize_t n = ::read(STDIN_FILENO, &c, 1);
        if (n == 1)
            return true;
        if (n < 0 && errno == EINTR)
            continue;
        return false;
    }
}

std::string cutToTextLine(const std::string& text)
{
    if (text.size() <= (size_t) maxTextLine)
        return text;
    pending = text.substr((size_t) maxTextLine);
    return text.substr(0, (size_t) maxTextLine);
}
}

bool readLine(std::string& line)
{
    // The prompt has to be on screen before we block; stdio would flush
    // stdout itself only if the answer came through stdin's own buffer.
    fflush(stdout);
    line.clear();
    if (pending)
    {
        line = *pending;
        pending.reset();
        return true;
    }
    char c = 0;
    bool any = false;
    while (readByte(c))
    {
        any = true;
        if (c == '\n')
            break;
        line += c;
    }
    if (!line.empty() && line.back() == '\r')
        line.pop_back();
    return any;
}

int askInt(const char* prompt)
{
    int value = 0;
    ask(prompt, "%d", value);
    return value;
}

std::string readTextLine()
{
    std::string line;
    readLine(line);
    return cutToTextLine(line);
}

void readNumberAndText(int& number, std::string& text)
{
    number = 0;
    std::string line;
    readLine(line);
    int used = 0;
    if (sscanf(line.c_str(), "%d%n", &number, &used) != 1)
        used = 0;
    text = cutToTextLine(line.substr((size_t) used));
}

bool confirm(const char* prompt)
{
    printf("%s", prompt);
    std::string line;
    readLine(line);
    const char c = line.empty() ? '\n' : line[0];
    return c == 'y' || c == 'Y';
}

std::string readRawLine(const char* prompt, size_t maxLength)
{
    // Single-key mode before the prompt shows: keys typed between two getch()
    // calls would otherwise be echoed by the terminal as well as by us.
    setupTTY(true);
    printf("%s", prompt);
    fflush(stdout);
    std::string text;
    for (;;)
    {
        const int c = getch();
        if (c < 0 || c == '\n' || c == '\r')
            break;
        if (text.size() >= maxLength)
            continue;
        text += (char) c;
        putchar(c);
        fflush(stdout);
    }
    putchar('\n');
    resetTTY();
    return text;
}

void clearPending()
{
    pending.reset();
}
}
