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
    if (line.isEmpty())
        return;

    const auto letter = line[0];
    uint32_t bit = 0;
    switch (letter)
    {
        case 'k': bit = RemoteBoardEventListener::keyEventBit; break;
        case 'r': bit = RemoteBoardEventListener::rotorEventBit; break;
        case 'd': bit = RemoteBoardEventListener::debugEventBit; break;
        case 'q': bit = RemoteBoardEventListener::signalEventBit; break;
        case 'f': bit = RemoteBoardEventListener::referenceEventBit; break;
        case 'e': bit = RemoteBoardEventListener::encoderEventBit; break;
        default:
            juce::Logger::writeToLog("RemoteBoardEventListener: received unknown event '"
                                     + juce::String::charToString(letter) + "'");
            return;
    }

    int value = 0;
    unsigned short words[RemoteBoardEventListener::numTouchValues] = {};
    juce::String text;
    if (letter == 'k' || letter == 'r' || letter == 'e')
    {
        value = (int) decodeHexResponse(line);
        if (letter == 'e' && (value & 0x80) != 0)
            value -= 256;
    }
    else if (letter == 'd')
    {
        text = line.substring(1);
    }
    else
    {
        decodeWordResponse(line, words, RemoteBoardEventListener::numTouchValues);
    }

    forEachListener(bit, [&](HardwareBoardEventListener& l) {
        auto* listener = dynamic_cast<RemoteBoardEventListener*>(&l);
        if (listener == nullptr)
            return;
        switch (letter)
        {
            case 'k': listener->keyEvent(value); break;
            case 'r': listener->rotorEvent(value); break;
            case 'e': listener->encoderEvent(value); break;
            case 'd': listener->debugEvent(text.toRawUTF8()); break;
            case 'q': listener->signalEvent(words); break;
            default: listener->referenceEvent(words); break;
        }
    });
}
