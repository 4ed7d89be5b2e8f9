#include "firmware/XBoot2FWUpdater.h"

#include "link/HardwareBoard.h"

#include <cstring>
#include <vector>
#include <zlib.h>

namespace
{
constexpr int maxWriteAttempts = 5;
constexpr int crcBytes = 4;

void appendLowerHexByte(int v, juce::String& s)
{
    static const char digits[] = "0123456789abcdef";
    const char pair[] = { digits[(v >> 4) & 0xF], digits[v & 0xF], 0 };
    s << pair;
}

/** One bootloader request: the request character, its data bytes in lower-case
    hex, and the CRC-32 of the raw bytes (never of their hex text). */
class Xboot2Command
{
public:
    explicit Xboot2Command(char request)
    {
        const auto byte = (Bytef) request;
        crc = crc32(crc32(0L, Z_NULL, 0), &byte, 1);
        text = juce::String::charToString(request);
    }

    void addByteCrc(int value)
    {
        const auto byte = (Bytef) value;
        appendLowerHexByte(byte, text);
        crc = crc32(crc, &byte, 1);
    }

    void addBytesCrc(const unsigned char* data, int length)
    {
        text.preallocateBytes((size_t) (text.length() + length * 2 + 16));
        for (int i = 0; i < length; ++i)
            appendLowerHexByte(data[i], text);
        crc = crc32(crc, data, (uInt) length);
    }

    void addPageNumber(int page)
    {
        addByteCrc((page >> 8) & 0xFF);
        addByteCrc(page & 0xFF);
    }

    /** The finished request, CRC last, most significant byte first. */
    const juce::String& addCommandCrc()
    {
        for (int shift = 24; shift >= 0; shift -= 8)
            appendLowerHexByte((int) ((crc >> shift) & 0xFF), text);
        return text;
    }

private:
    juce::String text;
    uLong crc = 0;
};
}

bool XBoot2FWUpdater::startFirmwareUpdate()
{
    if (!board->boardIsOpen())
        return false;
    return board->sendCommand('%', "UP");
}

bool XBoot2FWUpdater::endFirmwareUpdate(FirmwareStatus status)
{
    if (!board->boardIsOpen())
        return false;
    Xboot2Command command('#');
    command.addByteCrc(status == 1 || status == 2 ? (int) status : 0);
    return board->sendCommand('*', command.addCommandCrc().toRawUTF8());
}

bool XBoot2FWUpdater::eraseApplicationSection()
{
    if (!board->boardIsOpen())
        return false;
    Xboot2Command command('~');
    return board->sendCommand('*', command.addCommandCrc().toRawUTF8());
}

bool XBoot2FWUpdater::programApplicationPage(const void* data, int page, juce::String& message)
{
    message.clear();
    if (!board->boardIsOpen())
        return false;

    Xboot2Command command(':');
    command.addPageNumber(page);
    command.addBytesCrc(static_cast<const unsigned char*>(data), getFlashPageSize());
    const auto& text = command.addCommandCrc();

    for (int attempt = 1; attempt <= maxWriteAttempts; ++attempt)
    {
        if (board->sendCommand('*', text.toRawUTF8()))
        {
            if (attempt > 1)
                message = juce::String::formatted("wrote page with %d retries", attempt - 1);
            return true;
        }
        message = "failed writing page";
    }
    return false;
}

bool XBoot2FWUpdater::readApplicationPage(void* data, int page, juce::String& message)
{
    message.clear();
    if (!board->boardIsOpen())
        return false;

    Xboot2Command command('$');
    command.addPageNumber(page);

    const int pageSize = getFlashPageSize();
    std::vector<unsigned char> reply((size_t) (pageSize + crcBytes));
    if (!board->sendCommandGetArrayResponse('*', command.addCommandCrc().toRawUTF8(), reply.data(), (int) reply.size()))
    {
        message = "Failed sending verify command";
        return false;
    }

    const auto computed = (uint32_t) crc32(crc32(0L, Z_NULL, 0), reply.data(), (uInt) pageSize);
    uint32_t sent = 0;
    for (int i = 0; i < crcBytes; ++i)
        sent = (sent << 8) | reply[(size_t) (pageSize + i)];

    bool result = true;
    if (computed != sent)
    {
        message = juce::String::formatted("Verify CRC fail: expected 0x%08X actual 0x%08X\n", computed, sent);
        result = false;
    }
    std::memcpy(data, reply.data(), (size_t) pageSize);
    return result;
}
