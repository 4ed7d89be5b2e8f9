#pragma once

#include <juce_core/juce_core.h>

#include <cstdint>

/** How the characters after an event's letter are read. */
enum class EventDecoding
{
    none,         // the letter alone carries the event
    number,       // hex digits
    signedNumber, // hex digits; bit 7 set makes the value negative (value - 256)
    text,         // free text
    words         // groups of four hex digits, as many as the listener takes
};

/** One event line as its table row asked for it to be read. */
struct EventValue
{
    /** More than any board sends; the listener reads as many as it knows. */
    static constexpr int maxWords = 16;

    uint32_t raw = 0;   // the hex digits as they came
    int number = 0;     // raw, or raw less 256 for a signed number
    juce::String text;
    unsigned short words[maxWords] = {};
};

/** One kind of event a board reports: its letter, the listener's mask bit
    for it, how its value is read and the listener operation that receives it.
    A board's events are one array of these, applied by
    HardwareBoard::dispatchEvent. */
template <class Listener>
struct EventRow
{
    char letter;
    uint32_t bit;
    EventDecoding decoding;
    void (*deliver)(Listener& listener, const EventValue& value);
};

/** Reads an event line the way a row asks for. */
EventValue decodeEvent(EventDecoding decoding, const juce::String& line);
