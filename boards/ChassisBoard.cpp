#include "boards/ChassisBoard.h"

#include <cstring>

namespace
{
void bayEvent(ChassisBoardEventListener& listener, int bay, const EventValue& value)
{
    listener.bayEvent(bay, (value.number & 1) != 0, (value.number & 2) != 0);
}
}

ChassisBoard::~ChassisBoard()
{
    // closingBoard() must still find this class when the board is closed.
    closeBoard(false);
}

void ChassisBoard::closingBoard()
{
    if (!sendCommand('W', -1, 2))
        juce::Logger::writeToLog("ChassisBoard: failed to update EEPROM contents");
}

//==============================================================================
bool ChassisBoard::setVolume(int volume)
{
    return sendCommand('V', juce::jlimit(0, getMaxVolume(), volume), 2);
}

bool ChassisBoard::setBrightness(int brightness)
{
    return sendCommand('R', juce::jlimit(0, getMaxBrightness(), brightness), 2);
}

bool ChassisBoard::setInverter(bool on)
{
    return sendCommand('I', on);
}

//==============================================================================
char ChassisBoard::bayLetter(int bay)
{
    switch (bay)
    {
        case 1: return 'B';
        case 2: return 'C';
        case 3: return 'D';
        default: return 'A';
    }
}

bool ChassisBoard::updateDiskBayCtrl(int bay)
{
    // There is no byte to send for a bay the enclosure does not have.
    if (!validBay(bay))
        return false;
    const juce::ScopedLock sl(bayLock);
    return sendCommand(bayLetter(bay), bayControl[bay], 2);
}

void ChassisBoard::initialiseBay(int bay)
{
    const juce::ScopedLock sl(bayLock);
    if (bayControl[bay] != -1)
        return;
    bayControl[bay] = 0;
    // If this fails the board still holds whatever it had; the setter's own
    // send will carry the whole byte anyway.
    updateDiskBayCtrl(bay);
}

bool ChassisBoard::changeBayBits(int bay, int clearMask, int setBits)
{
    const juce::ScopedLock sl(bayLock);
    const int old = bayControl[bay];
    const int updated = (old & ~clearMask) | setBits;
    if (updated == old)
        return true;
    // Kept even if the send fails: the next change resends the whole byte.
    bayControl[bay] = updated;
    return updateDiskBayCtrl(bay);
}

bool ChassisBoard::setDiskPackLock(int bay, bool lock)
{
    if (!validBay(bay))
        return false;
    initialiseBay(bay);

    const juce::ScopedLock sl(bayLock);
    if (lock)
        return changeBayBits(bay, 0, bayLockedBit);

    if ((bayControl[bay] & bayPoweredBit) != 0)
    {
        juce::Logger::writeToLog("ChassisBoard: Attempt to unlock powered up disk pack!!\n");
        return false;
    }
    return changeBayBits(bay, bayLockedBit, 0);
}

bool ChassisBoard::setDiskPackPower(int bay, bool on)
{
    if (!validBay(bay))
        return false;
    initialiseBay(bay);

    const juce::ScopedLock sl(bayLock);
    if (!on)
        return changeBayBits(bay, bayPoweredBit, 0);

    if ((bayControl[bay] & bayLockedBit) == 0)
    {
        juce::Logger::writeToLog("ChassisBoard: Attempt to power up unlocked disk pack!!\n");
        return false;
    }
    return changeBayBits(bay, 0, bayPoweredBit);
}

bool ChassisBoard::setDiskPackFanSpeed(int bay, int speed)
{
    if (!validBay(bay))
        return false;
    initialiseBay(bay);
    return changeBayBits(bay, bayFanMask, juce::jlimit(0, getMaxFanSpeed(), speed));
}

//==============================================================================
bool ChassisBoard::setLedState(int state)
{
    return sendCommand('L', state & 31, 2);
}

bool ChassisBoard::isFirstFirmware() const
{
    return getVersionString() == "V1.00";
}

bool ChassisBoard::hasBayConnectionQuery() const
{
    // Compared as the firmware's version texts have always been compared: the
    // first four characters, byte by byte (so "V2.10" counts as older).
    const auto version = getVersionString();
    return std::strncmp(version.toRawUTF8(), "V2.5", 4) >= 0;
}

bool ChassisBoard::setColour(int red, int green, int blue, int mode)
{
    if (isFirstFirmware())
        return true;
    const int byte = ((mode & 3) << 6) | ((red & 3) << 4) | ((green & 3) << 2) | (blue & 3);
    return sendCommand('F', byte, 2);
}

bool ChassisBoard::setAmbientMode(bool on)
{
    if (isFirstFirmware())
        return true;
    return sendCommand('P', on);
}

bool ChassisBoard::setScreenSaverEnable(bool on)
{
    if (isFirstFirmware())
        return true;
    return sendCommand('S', on);
}

bool ChassisBoard::resetShuttle()
{
    return sendCommand('T', -1, 2);
}

bool ChassisBoard::checkBayConnected(int bay, bool& connected)
{
    if ((unsigned) bay > 1u)
        return false;
    if (!hasBayConnectionQuery())
    {
        connected = (bay == 0);
        return true;
    }
    int value = 0;
    if (!sendCommandGetIntResponse('H', 1, value, bay, 1))
    {
        connected = false;
        return false;
    }
    connected = value != 0;
    return true;
}

//==============================================================================
void ChassisBoard::eventReceived(const juce::String& line)
{
    using L = ChassisBoardEventListener;
    static const EventRow<L> rows[] = {
        { 'a', L::bayEventBit(0), EventDecoding::number, [](L& l, const EventValue& v) { bayEvent(l, 0, v); } },
        { 'b', L::bayEventBit(1), EventDecoding::number, [](L& l, const EventValue& v) { bayEvent(l, 1, v); } },
        { 'c', L::bayEventBit(2), EventDecoding::number, [](L& l, const EventValue& v) { bayEvent(l, 2, v); } },
        { 'd', L::bayEventBit(3), EventDecoding::number, [](L& l, const EventValue& v) { bayEvent(l, 3, v); } },
        { 'e', L::dvdEjectEventBit, EventDecoding::none, [](L& l, const EventValue&) { l.dvdEjectEvent(); } },
        { 'v', L::volumeEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.volumeEvent(v.number); } },
        { 'r', L::brightnessEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.brightnessEvent(v.number); } },
        { 's', L::shuttleEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.shuttleEvent(signedByte(v.raw)); } },
        { 't', L::buttonEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.buttonEvent(v.number); } },
    };
    dispatchEvent(line, "ChassisBoardEventListener", rows);
}
