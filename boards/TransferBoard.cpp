#include "boards/TransferBoard.h"

#include "boards/DiskpackBoard.h"

TransferBoard::~TransferBoard()
{
    // Stop the event thread while eventReceived still belongs to this class.
    closeBoard(false);
}

//==============================================================================
bool TransferBoard::resetEeprom()
{
    return sendCommand('Z', -1, 2);
}

bool TransferBoard::getBatteryVoltage(int& mV)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('V', 2, raw, -1, 0))
        return false;
    mV = raw * 200;
    return true;
}

bool TransferBoard::getBatteryCapacity(int& percent)
{
    return sendCommandGetIntResponse('B', 2, percent, -1, 0);
}

bool TransferBoard::getBatteryCurrent(int& mA)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('C', 4, raw, -1, 0))
        return false;
    mA = raw == 0xFFFF ? raw : raw * 10;
    return true;
}

bool TransferBoard::setFanSpeed(int speed)
{
    return sendCommand('F', juce::jlimit(0, getMaxFanSpeed(), speed), 2);
}

bool TransferBoard::setFanPwmFreq(int index)
{
    if ((unsigned) index > 5u)
        return false;
    return sendCommand('W', index, 1);
}

bool TransferBoard::getDiskpackId(int& id)
{
    return sendCommandGetIntResponse('I', 1, id, -1, 0);
}

bool TransferBoard::getDiskpackGuid(juce::String& guid)
{
    return sendCommandGetStringResponse('U', guid);
}

// Write protect: the high digit of X selects the target (0 diskpack, 1
// internal disks); Y takes the same selector as one digit.
bool TransferBoard::setDiskpackWriteProtect(bool on)
{
    return sendCommand('X', on ? 1 : 0, 2);
}

bool TransferBoard::getDiskpackWriteProtect(bool& on)
{
    int v = 0;
    if (!sendCommandGetIntResponse('Y', 1, v, 0, 1))
        return false;
    on = v != 0;
    return true;
}

bool TransferBoard::setInternalDisksWriteProtect(bool on)
{
    return sendCommand('X', 16 + (on ? 1 : 0), 2);
}

bool TransferBoard::getInternalDisksWriteProtect(bool& on)
{
    int v = 0;
    if (!sendCommandGetIntResponse('Y', 1, v, 1, 1))
        return false;
    on = v != 0;
    return true;
}

bool TransferBoard::enableDiskpackTemperatureEvents(bool enable)
{
    return sendCommand('P', enable ? 1 : 0, 1);
}

bool TransferBoard::getOperatingHours(int& hours)
{
    return sendCommandGetIntResponse('O', 4, hours, -1, 0);
}

bool TransferBoard::getMinMaxTemperatures(int& minDegrees, int& maxDegrees)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('M', 4, raw, -1, 0))
        return false;
    DiskpackBoard::splitMinMaxTemperatures(raw, minDegrees, maxDegrees);
    return true;
}

//==============================================================================
bool TransferBoard::setDiskpackLed(int which, DiskpackLedMode mode)
{
    const juce::ScopedLock sl(stateLock);
    int updated = 0;
    if (!placeDiskpackLedMode(ledState, which, mode, updated))
        return false;
    if (updated == ledState)
        return true;
    ledState = updated;
    return sendCommand('L', ledState, 1);
}

bool TransferBoard::setPowerBit(int bit, bool on)
{
    const juce::ScopedLock sl(stateLock);
    powerState = on ? (powerState | bit) : (powerState & ~bit);
    // Sent even when nothing changed, so repeating a request puts a board that
    // missed or lost the last one back in step.
    return sendCommand('D', powerState, 1);
}

bool TransferBoard::setDiskpackPower(bool on)
{
    return setPowerBit(powerDiskpackBit, on);
}

bool TransferBoard::setInternalDiskPower(bool on)
{
    return setPowerBit(powerInternalDisksBit, on);
}

bool TransferBoard::setTapeDrivePower(bool on)
{
    return setPowerBit(powerTapeDriveBit, on);
}

//==============================================================================
bool TransferBoard::getSasAddr(int port, juce::String& addr)
{
    return sendCommandGetStringResponse('E', port, 1, addr);
}

bool TransferBoard::setSasAddr(int port, const juce::String& addr)
{
    if (addr.isNotEmpty() && wireLength(addr) != sasAddressLength)
        return false;
    const auto text = juce::String(port) + addr;
    return sendCommand('S', text.toRawUTF8());
}

bool TransferBoard::getFittedDevices(int& value)
{
    return sendCommandGetIntResponse('N', 2, value, -1, 0);
}

int TransferBoard::getNumInternalDisks()
{
    int v = 0;
    return getFittedDevices(v) ? (v & 15) : 0;
}

bool TransferBoard::getTapeDriveFitted()
{
    int v = 0;
    return getFittedDevices(v) && v >= 16;
}

bool TransferBoard::setDevicesFitted(int numDisks, bool tape)
{
    int fitted = 0;
    if (!fitArgument((tape ? 16 : 0) + (long long) numDisks, fitted))
        return false;
    return sendCommand('R', fitted, 2);
}

//==============================================================================
void TransferBoard::eventReceived(const juce::String& line)
{
    using L = TransferBoardEventListener;
    static const EventRow<L> rows[] = {
        { 'p', L::diskpackTemperatureEventBit, EventDecoding::signedNumber, [](L& l, const EventValue& v) { l.diskpackTemperatureEvent(v.number); } },
        { 'd', L::doorEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.doorEvent(v.number != 0); } },
        { 'i', L::diskpackEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.diskpackEvent(v.number != 0); } },
        { 'l', L::ledEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.ledEvent(v.number); } },
    };
    dispatchEvent(line, "TransferBoardEventListener", rows);
}
