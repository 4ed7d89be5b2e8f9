#pragma once

#include "docks/platform/DockPlatform.h"

#include <cstddef>
#include <cstdint>

/** A reply from the emulator: its request's id, the result code, and the
    whole reply object from which the operation reads its own fields. When the
    request failed on the way (timeout, closed socket, a line that could not be
    read), `problem` says why for the log, and is empty when the emulator itself
    answered. */
struct DocksimReply
{
    int64_t id = 0;
    DockPlatform::Result result = DockPlatform::resultError;
    juce::var body;
    juce::String problem;
};

/** The completion of an asynchronous call, checked: `data` holds the bytes the
    driver wrote, `argc` the number of result arguments it reports. */
struct DocksimCompletion
{
    int64_t call = 0;
    DockPlatform::Result result = DockPlatform::resultError;
    juce::MemoryBlock data;
    uint32_t argc = 0;
};

/** One line from the emulator, classified. A line that names its request or
    call but is broken otherwise still carries the id or call, so that exactly
    that request fails; a line that names neither is `unreadable`. */
struct DocksimLine
{
    enum class Kind
    {
        reply,
        badReply,       // names a request (reply.id) but its fields are wrong
        completion,
        badCompletion,  // names a call (completion.call) but its fields are wrong
        unreadable
    };

    Kind kind = Kind::unreadable;
    DocksimReply reply;
    DocksimCompletion completion;
    juce::String problem;
};

/** The emulator's socket protocol: request lines out, replies and completions
    in, and the readers of a reply's fields. Everything that comes in is checked
    here, so nothing the emulator sends reaches the product unvalidated. */
class DocksimProtocol
{
public:
    /** Longer lines are a protocol error; the reader never holds more. */
    static constexpr size_t maxLineBytes = 1u << 20;
    /** Deeper nesting is refused before parsing, which recurses per level. */
    static constexpr int maxNesting = 32;
    /** Completions report at most this many result arguments. */
    static constexpr uint32_t maxArgc = 16;

    /** The request line, ended by '\n': `fields` with "id" and "op" added. */
    static juce::String requestLine(int64_t id, const juce::String& op, const juce::DynamicObject::Ptr& fields);

    /** Classifies one line (without its '\n'). Never throws. */
    static DocksimLine parseLine(const char* data, size_t size);

    // Readers of a reply's fields. Each returns false with a reason in
    // `problem` when the field is missing or not what the protocol allows.

    /** An entry or connection number; 0 only when `zeroAllowed`. */
    static bool readObject(const juce::var& body, const char* field, bool zeroAllowed,
                           DockPlatform::Object& value, juce::String& problem);
    /** An array of positive entry numbers. */
    static bool readObjects(const juce::var& body, const char* field,
                            juce::Array<DockPlatform::Object>& values, juce::String& problem);
    static bool readText(const juce::var& body, const char* field, juce::String& value, juce::String& problem);
    /** A property value as the seam carries it (numbers as int64); void when
        the field is absent and `absentAllowed`. */
    static bool readProperty(const juce::var& body, const char* field, bool absentAllowed,
                             juce::var& value, juce::String& problem);

    /** A property value the product may send: dictionaries, arrays, text,
        integers and booleans, copied with numbers as int64. False for anything
        else (raw data, doubles, void). */
    static bool toProtocolValue(const juce::var& value, juce::var& copy);

    /** Upper-case hex, as the product sends. */
    static juce::String toHex(const void* data, size_t size);
    /** Hex of either case; false for odd length or a non-hex digit. */
    static bool fromHex(const juce::String& hex, juce::MemoryBlock& data);
};
