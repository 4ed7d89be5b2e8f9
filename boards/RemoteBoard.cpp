#include "boards/RemoteBoard.h"

RemoteBoard::~RemoteBoard()
{
    // Stop the event thread while eventReceived still belongs to this class.
    closeBoard(false);
}

bool RemoteBoard::setContrast(int contrast)
{
    return sendCommand('C', contrast, 1);
}

bool RemoteBoard::getContrast(int& contrast)
{
    return sendCommandGetIntResponse('E', 1, contrast, -1, 0);
}

bool RemoteBoard::setRingBright(int brightness)
{
    return sendCommand('R', brightness, 1);
}

bool RemoteBoard::getRingBright(int& brightness)
{
    return sendCommandGetIntResponse('I', 1, brightness, -1, 0);
}

bool RemoteBoard::setColour(int red, int green, int blue, int mode)
{
    const int byte = ((mode & 3) << 6) | ((red & 3) << 4) | ((green & 3) << 2) | (blue & 3);
    return sendCommand('F', byte, 2);
}

bool RemoteBoard::setAmbientMode(bool on)
{
    return sendCommand('P', on);
}

bool RemoteBoard::enableQtEvents(bool on)
{
    return sendCommand('Q', on);
}

bool RemoteBoard::graphicsCommand(int length, const unsigned char* data)
{
    if (sendCommand('G', data, length))
        return true;
    ++graphicsFailures;
    return false;
}

bool RemoteBoard::bootMessage(const char* text)
{
    return sendCommand('M', text);
}

bool RemoteBoard::poll()
{
    if (graphicsFailures.load() > 1)
        return false;
    int v = -1;
    return sendCommandGetIntResponse('@', 1, v, -1, 0) && v == 0;
}

//==============================================================================
void RemoteBoard::eventReceived(const juce::String& line)
{
    using L = RemoteBoardEventListener;
    static const EventRow<L> rows[] = {
        { 'k', L::keyEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.keyEvent(v.number); } },
        { 'r', L::rotorEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.rotorEvent(v.number); } },
        { 'd', L::debugEventBit, EventDecoding::text, [](L& l, const EventValue& v) { l.debugEvent(v.text.toRawUTF8()); } },
        { 'q', L::signalEventBit, EventDecoding::words, [](L& l, const EventValue& v) { l.signalEvent(v.words); } },
        { 'f', L::referenceEventBit, EventDecoding::words, [](L& l, const EventValue& v) { l.referenceEvent(v.words); } },
        { 'e', L::encoderEventBit, EventDecoding::signedNumber, [](L& l, const EventValue& v) { l.encoderEvent(v.number); } },
    };
    dispatchEvent(line, "RemoteBoardEventListener", rows);
}
