#include "FirmwareImage.h"

#include <srecord/input/file/binary.h>
#include <srecord/input/file/intel.h>
#include <srecord/memory.h>
#include <srecord/memory/walker/writer.h>
#include <srecord/output/file/intel.h>
#include <srecord/quit.h>

#include <cstdarg>
#include <cstdio>
#include <stdexcept>

namespace
{
// Far beyond the flash of any board we update; a file reaching past it is not
// an application image, and we need not allocate for it.
constexpr unsigned long largestImage = 16ul * 1024 * 1024;

/** srecord reports a bad file through a "quit" object that must not return;
    this one turns the report into an exception that load() catches. */
class ThrowingQuit : public srecord::quit
{
public:
    void message_v(const char* format, va_list args) override
    {
        char text[1024];
        std::vsnprintf(text, sizeof text, format, args);
        last = text;
    }

    void exit(int) override { throw std::runtime_error(last); }

private:
    std::string last;
};

bool looksLikeIntelHex(const juce::File& file)
{
    juce::FileInputStream in(file);
    if (!in.openedOk())
        return false;
    char head[64] = {};
    const int got = in.read(head, (int) sizeof head);
    int i = 0;
    while (i < got && (head[i] == ' ' || head[i] == '\t' || head[i] == '\r' || head[i] == '\n'))
        ++i;
    if (i >= got || head[i] != ':')
        return false;
    for (; i < got; ++i)
        if (!juce::CharacterFunctions::isPrintable(head[i]) && head[i] != '\r' && head[i] != '\n')
            return false;
    return true;
}
}

FirmwareImage::Format FirmwareImage::formatForName(const juce::File& file)
{
    const auto ext = file.getFileExtension().toLowerCase();
    return ext == ".hex" || ext == ".ihx" || ext == ".ihex" ? Format::intelHex : Format::binary;
}

const char* FirmwareImage::formatName(Format format)
{
    switch (format)
    {
        case Format::intelHex: return "Intel HEX";
        case Format::binary: return "raw binary";
        case Format::guess: break;
    }
    return "guessed";
}

bool FirmwareImage::load(const juce::File& file, Format format, juce::String& error)
{
    data.reset();
    const auto name = file.getFullPathName();
    // srecord opens the file lazily and reports a missing or empty one from a
    // destructor, where no error can be handled: rule both out first.
    if (!file.existsAsFile())
    {
        error = name + ": no such file";
        return false;
    }
    if (!juce::FileInputStream(file).openedOk())
    {
        error = name + ": cannot be read";
        return false;
    }
    if (file.getSize() == 0)
    {
        error = name + ": the file is empty";
        return false;
    }

    if (format == Format::guess)
    {
        // A name that says which settles it; otherwise the content does.
        const auto ext = file.getFileExtension().toLowerCase();
        if (formatForName(file) == Format::intelHex)
            format = Format::intelHex;
        else if (ext == ".bin" || !looksLikeIntelHex(file))
            format = Format::binary;
        else
            format = Format::intelHex;
    }

    loadedAs = format;
    ThrowingQuit quit;
    try
    {
        const std::string path = name.toStdString();
        srecord::input::pointer input = format == Format::intelHex ? srecord::input_file_intel::create(path)
                                                                   : srecord::input_file_binary::create(path);
        input->set_quit(quit);
        srecord::memory memory;
        // The same byte given twice is harmless; two different values for one
        // address mean the file is not one image.
        memory.reader(input, srecord::defcon_ignore, srecord::defcon_fatal_error);

        const unsigned long end = memory.get_upper_bound();
        if (end == 0)
        {
            error = name + ": the image holds no data";
            return false;
        }
        if (end > largestImage)
        {
            error = name + juce::String::formatted(": the image reaches address 0x%lX, far past any board's flash", end - 1);
            return false;
        }

        data.setSize((size_t) end);
        data.fillWith(erased);
        auto* bytes = static_cast<unsigned char*>(data.getData());
        unsigned long address = 0;
        for (;;)
        {
            unsigned char chunk[4096];
            size_t count = sizeof chunk;
            if (!memory.find_next_data(address, chunk, count))
                break;
            std::memcpy(bytes + address, chunk, count);
            address += count;
        }
        return true;
    }
    catch (const std::exception& e)
    {
        data.reset();
        error = juce::String(e.what());
        if (!error.startsWith(name))
            error = name + ": " + error;
        return false;
    }
}

bool FirmwareImage::save(const juce::File& file, Format format, const juce::MemoryBlock& bytes, juce::String& error)
{
    const auto name = file.getFullPathName();
    if (format == Format::guess)
        format = formatForName(file);

    // srecord gives up on an unwritable file by ending the process: find out
    // here, where the technician can be told.
    if (!file.replaceWithData(bytes.getData(), bytes.getSize()))
    {
        error = name + ": cannot be written";
        return false;
    }
    if (format == Format::binary)
        return true;

    srecord::memory memory;
    const auto* p = static_cast<const unsigned char*>(bytes.getData());
    for (size_t i = 0; i < bytes.getSize(); ++i)
        memory.set((unsigned long) i, p[i]);
    {
        srecord::output::pointer out = srecord::output_file_intel::create(name.toStdString());
        memory.walk(srecord::memory_walker_writer::create(out));
    }
    return true;
}

juce::MemoryBlock FirmwareImage::paddedTo(int pageSize) const
{
    juce::MemoryBlock padded((size_t) pageCount(pageSize) * (size_t) pageSize);
    padded.fillWith(erased);
    padded.copyFrom(data.getData(), 0, data.getSize());
    return padded;
}
