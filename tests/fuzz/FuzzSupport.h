#pragma once

#include <juce_core/juce_core.h>

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

// Printing and log lines still run in full but go nowhere, so a run shows only the fuzzer's report.
namespace fuzz
{
class DiscardingLogger : public juce::Logger
{
    void logMessage(const juce::String&) override {}
};

/** Call first in every input; does its work once. */
inline void silenceOutput()
{
    static const bool silenced = [] {
        std::fflush(stdout);
        const int null = ::open("/dev/null", O_WRONLY);
        if (null >= 0)
            ::dup2(null, STDOUT_FILENO);
        static DiscardingLogger logger;
        juce::Logger::setCurrentLogger(&logger);
        return true;
    }();
    (void) silenced;
}

/** A decoder broke a promise the input cannot excuse: stop, so the fuzzer keeps the input. */
inline void check(bool ok, const char* what)
{
    if (ok)
        return;
    std::fprintf(stderr, "fuzz check failed: %s\n", what);
    std::abort();
}

/** The bytes as text if they are shortest-form UTF-8, the only text a transport hands on. JUCE's own
    check also passes overlong forms, which its String then miscounts: text the product never receives. */
inline bool textOf(const uint8_t* p, size_t size, juce::String& text)
{
    for (size_t i = 0; i < size;)
    {
        const uint8_t lead = p[i];
        const int extra = lead < 0x80 ? 0 : (lead & 0xE0) == 0xC0 ? 1 : (lead & 0xF0) == 0xE0 ? 2 : (lead & 0xF8) == 0xF0 ? 3 : -1;
        if (extra < 0 || size - i <= (size_t) extra)
            return false;
        uint32_t value = extra == 0 ? lead : lead & (0x3F >> extra);
        for (int k = 1; k <= extra; ++k)
        {
            if ((p[i + (size_t) k] & 0xC0) != 0x80)
                return false;
            value = (value << 6) | (p[i + (size_t) k] & 0x3F);
        }
        static const uint32_t shortest[] = { 0, 0x80, 0x800, 0x10000 };
        if (value < shortest[extra] || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF))
            return false;
        i += (size_t) extra + 1;
    }
    text = juce::String::fromUTF8((const char*) p, (int) size);
    return true;
}
} // namespace fuzz
