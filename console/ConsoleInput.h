#pragma once

#include <atomic>
#include <cstdio>
#include <initializer_list>
#include <string>

/** Set by Ctrl-C and by the `x` key; the keystroke loop, the link test and the
    remote display demonstration end when they see it. Written from a signal
    handler, so it is a lock-free byte. */
extern std::atomic<unsigned char> stopFlag;

/** The Ctrl-C handler: it only raises the stop flag. */
void onControlC();

/** Answers to the menus' prompts.

    Keys are read unbuffered from descriptor 0 by getch(), so the answers are
    read from the same descriptor a line at a time: stdio's read-ahead would
    otherwise swallow keys typed (or piped) after the answer, and the line end
    of a numeric answer would be left behind for the next single-key read.
    Each answer is parsed with the scanf format the prompt documents. */
namespace ConsoleInput
{
    /** The longest text line the diskpack takes. */
    constexpr int maxTextLine = 40;

    /** Reads one answer line (without its line end). Characters left over
        from an over-long text line are answered first. False at end of input
        with nothing read. */
    bool readLine(std::string& line);

    /** Reads `line` as scanf reads it with `format`, a run of "%d"
        conversions and blanks, stopping at the first that does not match.
        A number beyond an int's range counts as the nearest int, where
        scanf would wrap it (4294967296 became 0) or worse. */
    void scanInts(const std::string& line, const char* format, std::initializer_list<int*> values);

    /** Prints the prompt, reads a line and parses it with `format`; every
        value is 0 unless the line supplies it. */
    template <typename... Ints>
    void ask(const char* prompt, const char* format, Ints&... values)
    {
        ((values = 0), ...);
        printf("%s", prompt);
        std::string line;
        readLine(line);
        scanInts(line, format, { &values... });
    }

    /** One integer answer, "%d". */
    int askInt(const char* prompt);

    /** A text line of at most 40 characters (fgets into a 41-byte buffer,
        line end removed). What does not fit stays in the input for the next
        prompt; the keystroke loop never sees it. */
    std::string readTextLine();

    /** "%d" followed by the rest of the same line as text, blank included,
        bounded like readTextLine. */
    void readNumberAndText(int& number, std::string& text);

    /** The reset confirmation: true only for an answer starting y or Y. */
    bool confirm(const char* prompt);

    /** Prints the prompt and reads raw keys until return, echoing each, in
        single-key mode for the whole entry so that nothing is echoed twice.
        At most maxLength keys are kept; further ones are neither stored nor
        echoed. Ends with a line feed and resetTTY(). */
    std::string readRawLine(const char* prompt, size_t maxLength);

    /** Drops any half-read answer kept from a previous over-long line. */
    void clearPending();
}
