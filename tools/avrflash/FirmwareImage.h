#pragma once

#include <juce_core/juce_core.h>

/** An application image as it lies in flash from address 0: the bytes a file
    does not set read as erased flash (0xFF). */
class FirmwareImage
{
public:
    enum class Format { guess, intelHex, binary };

    static constexpr unsigned char erased = 0xFF;

    /** Reads an Intel HEX or raw binary file. On failure returns false with a
        message fit for the technician in `error`. */
    bool load(const juce::File& file, Format format, juce::String& error);

    /** Writes `bytes` from address 0 as Intel HEX or raw binary (`guess`: Intel
        HEX for a name ending in .hex, .ihx or .ihex). */
    static bool save(const juce::File& file, Format format, const juce::MemoryBlock& bytes, juce::String& error);

    /** The format a file name suggests; binary unless it looks like Intel HEX. */
    static Format formatForName(const juce::File& file);

    static const char* formatName(Format format);

    /** The format the file was read as. */
    Format format() const noexcept { return loadedAs; }

    /** One past the highest address the file sets. */
    size_t size() const noexcept { return data.getSize(); }
    const juce::MemoryBlock& bytes() const noexcept { return data; }

    /** The image cut into pages of `pageSize`, the last one padded with erased flash. */
    juce::MemoryBlock paddedTo(int pageSize) const;
    int pageCount(int pageSize) const noexcept { return (int) ((size() + (size_t) pageSize - 1) / (size_t) pageSize); }

private:
    juce::MemoryBlock data;
    Format loadedAs = Format::guess;
};
