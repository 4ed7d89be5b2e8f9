#include "firmware/XBootFWUpdater.h"

#include "link/ControlBoard.h"

namespace
{
constexpr int writeTimeoutMs = 1000;
constexpr int answerTimeoutMs = 1000;
constexpr int readDigitTimeoutMs = 100;
constexpr int maxAttempts = 5;

/** The bootloader talks on the board's own serial port, so only a serial board
    that is open can be updated this way. */
ControlBoard* openSerialBoard(HardwareBoard* board)
{
    auto* serial = dynamic_cast<ControlBoard*>(board);
    return serial != nullptr && serial->boardIsOpen() ? serial : nullptr;
}

void appendPageNumber(int page, juce::String& line, int& sum)
{
    HardwareBoard::appendHexByte(page >> 8, line);
    HardwareBoard::appendHexByte(page, line);
    sum += ((page >> 8) & 0xFF) + (page & 0xFF);
}
}

bool XBootFWUpdater::startFirmwareUpdate()
{
    auto* serial = openSerialBoard(board);
    if (serial == nullptr)
        return false;
    // From here on the bootloader owns the wire: nothing may read its answers
    // as events.
    serial->stopThread(ControlBoard::threadStopTimeoutMs);
    return serial->sendCommand('%', "UP");
}

bool XBootFWUpdater::endFirmwareUpdate(FirmwareStatus)
{
    auto* serial = openSerialBoard(board);
    if (serial == nullptr)
        return false;
    // This bootloader has no way to take the outcome: "#" just starts the
    // application.
    return serial->getPort().writeChar('#', writeTimeoutMs);
}

bool XBootFWUpdater::eraseApplicationSection()
{
    // The bootloader erases each page as it programs it.
    return true;
}

bool XBootFWUpdater::programApplicationPage(const void* data, int page, juce::String& message)
{
    message.clear();
    auto* serial = openSerialBoard(board);
    if (serial == nullptr)
        return false;

    const auto* bytes = static_cast<const unsigned char*>(data);
    const int pageSize = getFlashPageSize();

    juce::String line(":");
    line.preallocateBytes((size_t) (pageSize * 2 + 8));
    int sum = 0;
    appendPageNumber(page, line, sum);
    for (int i = 0; i < pageSize; ++i)
    {
        HardwareBoard::appendHexByte(bytes[i], line);
        sum += bytes[i];
    }
    HardwareBoard::appendHexByte(-sum, line);

    auto& port = serial->getPort();
    for (int attempt = 1;; ++attempt)
    {
        if (!port.writeString(line.toRawUTF8(), writeTimeoutMs))
        {
            message = "failed sending data";
            return false;
        }

        const int answer = port.readChar(answerTimeoutMs);
        if (answer == 'Y')
        {
            if (attempt > 1)
                message = juce::String::formatted("wrote page with %d retries", attempt - 1);
            return true;
        }
        if (answer != 'N')
        {
            message = juce::String::formatted("failed writing page (%d)", answer);
            return false;
        }
        message = "failed writing page (NACK)";
        if (attempt >= maxAttempts)
            return false;
    }
}

bool XBootFWUpdater::readApplicationPage(void* data, int page, juce::String& message)
{
    message.clear();
    auto* serial = openSerialBoard(board);
    if (serial == nullptr)
        return false;

    auto* bytes = static_cast<unsigned char*>(data);
    const int pageSize = getFlashPageSize();

    juce::String request("$");
    int pageSum = 0;
    appendPageNumber(page, request, pageSum);

    for (int attempt = 1;; ++attempt)
    {
        auto& port = serial->getPort();
        if (!port.writeString(request.toRawUTF8(), writeTimeoutMs))
        {
            message = "Failed sending verify command";
            return false;
        }

        int sum = pageSum;
        int stoppedAt = -1;
        int received = 0;
        for (int offset = 0; offset <= pageSize; ++offset)
        {
            // A timed-out read is -1, whose low byte is not zero: it decodes as
            // a zero digit and the read goes on. Only a NUL on the line (what
            // a stalled board leaves behind) ends the page early.
            char digits[3] = { (char) port.readChar(readDigitTimeoutMs), 0, 0 };
            if (digits[0] != 0)
                digits[1] = (char) port.readChar(readDigitTimeoutMs);
            if (digits[0] == 0 || digits[1] == 0)
            {
                stoppedAt = offset;
                break;
            }
            const int value = HardwareBoard::decodeHexByte(digits);
            if (offset < pageSize)
            {
                bytes[offset] = (unsigned char) value;
                sum += value;
            }
            else
            {
                received = value;
            }
        }

        if (stoppedAt < 0)
        {
            const int expected = (-sum) & 0xFF;
            if (received != expected)
            {
                message = juce::String::formatted("Verify checksum fail: expected 0x%02X actual 0x%02X\n",
                                                  expected, received);
                return false;
            }
            if (attempt > 1)
                message = juce::String::formatted("Read page with %d retries", attempt - 1);
            return true;
        }

        message = juce::String::formatted("Verify read time out at offset 0x%03X", stoppedAt);
        // Whatever the board still had of the page would be taken for the next
        // answer: start over on a fresh port.
        if (!serial->reopenPort() || attempt >= maxAttempts)
            return false;
    }
}
