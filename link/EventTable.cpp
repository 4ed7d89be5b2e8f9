#include "link/EventTable.h"

#include "link/HardwareBoard.h"

EventValue decodeEvent(EventDecoding decoding, const juce::String& line)
{
    EventValue value;
    switch (decoding)
    {
        case EventDecoding::none:
            break;
        case EventDecoding::number:
        case EventDecoding::signedNumber:
            value.raw = HardwareBoard::decodeHexResponse(line);
            value.number = (int) value.raw;
            if (decoding == EventDecoding::signedNumber && (value.raw & 0x80) != 0)
                value.number -= 256;
            break;
        case EventDecoding::text:
            value.text = line.substring(1);
            break;
        case EventDecoding::words:
            HardwareBoard::decodeWordResponse(line, value.words, EventValue::maxWords);
            break;
    }
    return value;
}
