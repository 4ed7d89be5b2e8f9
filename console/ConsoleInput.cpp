#include "console/ConsoleInput.h"

#include "link/ConsoleTerminal.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdlib>
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

/** One "%d": blanks, an optional sign and decimal digits, from `p` on. */
bool scanInt(const char*& p, int& value)
{
    char* end = nullptr;
    const long long wide = std::strtoll(p, &end, 10);
    if (end == p)
        return false;
    p = end;
    value = (int) std::clamp<long long>(wide, INT_MIN, INT_MAX);
    return true;
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

void scanInts(const std::string& line, const char* format, std::initializer_list<int*> values)
{
    const char* in = line.c_str();
    auto next = values.begin();
    for (const char* f = format; *f != 0; ++f)
    {
        if (std::isspace((unsigned char) *f))
        {
            while (std::isspace((unsigned char) *in))
                ++in;
        }
        else if (f[0] == '%' && f[1] == 'd')
        {
            if (next == values.end() || !scanInt(in, **next))
                break;
            ++next;
            ++f;
        }
        else if (*in == *f)
        {
            ++in;
        }
        else
        {
            break;
        }
    }
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
    const char* rest = line.c_str();
    if (!scanInt(rest, number))
        rest = line.c_str();
    text = cutToTextLine(line.substr((size_t) (rest - line.c_str())));
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
