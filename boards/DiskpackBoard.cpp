#include "boards/DiskpackBoard.h"

#include <cstring>

namespace
{
int clampField(int v)
{
    return juce::jlimit(0, 3, v);
}


// The one-digit yes/no replies: anything above 1 means the board and this
// program disagree about the command, so it is not taken as "yes".
bool decodeFlag(bool sent, int value, bool& result)
{
    if (!sent || value > 1)
        return false;
    result = value != 0;
    return true;
}
} // namespace

DiskpackBoard::~DiskpackBoard()
{
    // Stop the event thread while eventReceived still belongs to this class.
    closeBoard(false);
}

//==============================================================================
bool DiskpackBoard::setLed(int red, int green, int blue, int flash)
{
    const int byte = (clampField(flash) << 6) | (clampField(red) << 4) | (clampField(green) << 2) | clampField(blue);
    return sendCommand('L', byte, 2);
}

bool DiskpackBoard::monitorDiskActivity(bool on)
{
    return sendCommand('A', on);
}

bool DiskpackBoard::setWriteProtect(bool on)
{
    return sendCommand('X', on);
}

bool DiskpackBoard::getWriteProtect(bool& on)
{
    int value = 0;
    const bool sent = sendCommandGetIntResponse('Y', 1, value, -1, 0);
    return decodeFlag(sent, value, on);
}

bool DiskpackBoard::setDisplayText(const char* text)
{
    if (text == nullptr || std::strlen(text) > (size_t) maxDisplayTextLength)
        return false;
    return sendCommand('D', text);
}

bool DiskpackBoard::setDisplayBrightness(int level)
{
    // The display is dark below 144 and saturates at 200. A negative level is
    // passed through unclamped, as the board has always received it.
    // Computed wide so that no level overflows; any negative result sends no
    // digits at all.
    const long long v = level < 16 ? 144 + ((long long) level * 56) / 15 : 200;
    return sendCommand('B', (int) juce::jmax(-1LL, v), 2);
}

bool DiskpackBoard::setScsiIdMsb(bool on)
{
    return sendCommand('S', on);
}

bool DiskpackBoard::getBatteryVoltage(int& mV)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('V', 2, raw, -1, 0))
        return false;
    mV = raw * 20;
    return true;
}

bool DiskpackBoard::getBatteryVoltageRange(int& minMv, int& maxMv) const
{
    minMv = 2700;
    maxMv = 3500;
    return true;
}

bool DiskpackBoard::enableTemperatureEvents(bool on)
{
    return sendCommand('T', on);
}

bool DiskpackBoard::writeText(int page, const char* text)
{
    if (text == nullptr || std::strlen(text) >= (size_t) maxDisplayTextLength + 1
        || (unsigned) page >= (unsigned) numTextPageSlots)
        return false;
    if (!sendCommand('P', page, 2))
        return false;
    return sendCommand('W', text);
}

bool DiskpackBoard::readText(int page, juce::String& text)
{
    if ((unsigned) page > (unsigned) maxTextPages)
        return false;
    if (!sendCommand('P', page, 2))
        return false;
    return sendCommandGetStringResponse('R', text);
}

bool DiskpackBoard::setNumTextPages(int n)
{
    if ((unsigned) n > (unsigned) maxTextPages)
        return false;
    return sendCommand('Q', n, 2);
}

bool DiskpackBoard::getOperatingHours(int& hours)
{
    return sendCommandGetIntResponse('O', 4, hours, -1, 0);
}

void DiskpackBoard::splitMinMaxTemperatures(int raw, int& minDegrees, int& maxDegrees)
{
    minDegrees = signedByte((uint32_t) raw >> 8);
    maxDegrees = signedByte((uint32_t) raw);
}

bool DiskpackBoard::getMinMaxTemperatures(int& minDegrees, int& maxDegrees)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('M', 4, raw, -1, 0))
        return false;
    splitMinMaxTemperatures(raw, minDegrees, maxDegrees);
    return true;
}

bool DiskpackBoard::getGuid(juce::String& guid)
{
    return sendCommandGetStringResponse('U', guid);
}

bool DiskpackBoard::prepareClosedown()
{
    return sendCommand('C', -1, 2);
}

bool DiskpackBoard::getParallelScsiType(bool& parallel)
{
    int value = 0;
    const bool sent = sendCommandGetIntResponse('I', 1, value, -1, 0);
    return decodeFlag(sent, value, parallel);
}

bool DiskpackBoard::getSasAddr(int port, juce::String& addr)
{
    return sendCommandGetStringResponse('E', port, 1, addr);
}

bool DiskpackBoard::resetEeprom()
{
    return sendCommand('Z', -1, 2);
}

bool DiskpackBoard::getBackplaneVoltageRail(int group, int rail, int& value)
{
    int selector = 0;
    if (!fitArgument((long long) group * 16 + rail, selector))
        return false;
    return sendCommandGetIntResponse('G', 4, value, selector, 2);
}

//==============================================================================
void DiskpackBoard::eventReceived(const juce::String& line)
{
    using L = DiskpackBoardEventListener;
    static const EventRow<L> rows[] = {
        { 'b', L::buttonEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.diskpackButtonEvent(v.number); } },
        { 't', L::temperatureEventBit, EventDecoding::signedNumber, [](L& l, const EventValue& v) { l.diskpackTemperatureEvent(v.number); } },
        { 'l', L::ledEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.diskpackLedEvent(v.number != 0); } },
    };
    dispatchEvent(line, "DiskpackBoardEventListener", rows);
}
