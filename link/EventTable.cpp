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
            // Subtracted unsigned: a board that sends more digits than a byte
            // must not overflow the int.
            if (decoding == EventDecoding::signedNumber && (value.raw & 0x80) != 0)
                value.number = (int) (value.raw - 256u);
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
