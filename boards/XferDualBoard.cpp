#include "boards/XferDualBoard.h"

#include "boards/SasExpanderCodes.h"

namespace
{
using namespace SasExpander;

// Expander register map: each PHY has a 4 KiB window starting here.
constexpr uint32_t phyWindowBase = 0xC0040000u;
constexpr uint32_t phyWindowSize = 0x1000u;
constexpr uint32_t phyControlOffset = 0x718;   // write: 5 clears counters, 3/1 hold/release reset
constexpr uint32_t phyErrorCountOffset = 0x730;
constexpr uint32_t phyLinkRateOffset = 0x704;
constexpr uint32_t expanderAddrRegister = 0xC0066010u;

uint32_t phyRegister(int phy, uint32_t offset)
{
    return phyWindowBase + (uint32_t) phy * phyWindowSize + offset;
}

void putBigEndian(uint32_t v, unsigned char* p)
{
    p[0] = (unsigned char) (v >> 24);
    p[1] = (unsigned char) (v >> 16);
    p[2] = (unsigned char) (v >> 8);
    p[3] = (unsigned char) v;
}

int clampColour(int c)
{
    return juce::jlimit(0, 3, c);
}

// Link-rate register: rate codes per SasPhyConnectSpeed (index 1..3).
constexpr uint32_t minRateCode[] = { 0, 0x8, 0x9, 0xA };
constexpr uint32_t maxRateCode[] = { 0, 0x80, 0x90, 0xA0 };
// Enabled-rates mask (bit 0 = 1.5, bit 1 = 3, bit 2 = 6 Gbit/s) allowed by a
// maximum and by a minimum.
constexpr uint32_t ratesUpTo[] = { 0, 0x1, 0x3, 0x7 };
constexpr uint32_t ratesFrom[] = { 0, 0x7, 0x6, 0x4 };

bool validSpeed(SasPhyConnectSpeed s)
{
    return s >= sasSpeed1G5 && s <= sasSpeed6G;
}
} // namespace

XferDualBoard::~XferDualBoard()
{
    // Stop the event thread while eventReceived still belongs to this class.
    closeBoard(false);
}

const char* XferDualBoard::boardIdString() const
{
    return "Xfer Drive Dual SAS board";
}

void XferDualBoard::closingBoard() {}

//==============================================================================
bool XferDualBoard::resetEeprom()
{
    return sendCommand('Z', -1, 2);
}

bool XferDualBoard::getVoltageRail(int rail, int& value)
{
    return sendCommandGetIntResponse('G', 4, value, rail, 1);
}

bool XferDualBoard::getOperatingHours(int& hours)
{
    return sendCommandGetIntResponse('O', 4, hours, -1, 0);
}

bool XferDualBoard::getMinMaxTemperatures(int zone, int& min, int& max)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('M', 4, raw, zone, 1))
        return false;
    min = signedByte((uint32_t) raw >> 8);
    max = signedByte((uint32_t) raw);
    return true;
}

bool XferDualBoard::enableSysTemperatureEvents(bool enable)
{
    return sendCommand('T', enable ? 1 : 0, 1);
}

bool XferDualBoard::setFanSpeed(int speed)
{
    // Below 85 the fan stalls, so only "off" is allowed under it. A negative
    // speed is passed on as it stands and so sends no argument at all.
    if ((speed >= 1 && speed < minFanSpeed) || speed > maxFanSpeed)
        return false;
    return sendCommand('F', speed, 2);
}

bool XferDualBoard::setFanAuto(bool autoMode)
{
    // Speed 1 can never be a manual setting, so the board takes it as "auto".
    return sendCommand('F', autoMode ? 1 : 0, 2);
}

bool XferDualBoard::setLedId(int id)
{
    return sendCommand('H', id, 1);
}

//==============================================================================
bool XferDualBoard::getDiskpackId(int which, int& id)
{
    return sendCommandGetIntResponse('I', 1, id, which, 1);
}

bool XferDualBoard::getDiskpackGuid(int which, juce::String& guid)
{
    return sendCommandGetStringResponse('U', which, 1, guid);
}

bool XferDualBoard::enableDiskpackTemperatureEvents(int which, bool enable)
{
    return sendForDiskpack('P', (long long) which * 16 + (enable ? 1 : 0), 2);
}

bool XferDualBoard::setDiskpackLed(int which, int red, int green, int blue, bool flash, bool activity)
{
    const long long v = (long long) which * 256 + (activity ? 0x80 : 0) + (flash ? 0x40 : 0)
                      + (clampColour(red) << 4) + (clampColour(green) << 2) + clampColour(blue);
    return sendForDiskpack('L', v, 3);
}

bool XferDualBoard::setDiskpackPower(int which, bool on)
{
    return sendForDiskpack('D', (long long) which * 16 + (on ? 1 : 0), 2);
}

bool XferDualBoard::setDiskpackWriteProtect(int which, bool protect)
{
    return sendForDiskpack('X', (long long) which * 16 + (protect ? 1 : 0), 2);
}

bool XferDualBoard::sendForDiskpack(char letter, long long argument, int digits)
{
    int fitted = 0;
    return fitArgument(argument, fitted) && sendCommand(letter, fitted, digits);
}

bool XferDualBoard::getDiskpackWriteProtect(int which, bool& isProtected)
{
    int v = 0;
    if (!sendCommandGetIntResponse('Y', 1, v, which, 1))
        return false;
    isProtected = v != 0;
    return true;
}

bool XferDualBoard::readDiskpackEeprom(int which, int addr, int count, unsigned char* buffer)
{
    if ((unsigned) count > (unsigned) maxEepromTransfer)
        return false;
    // Diskpack in bits 20-23, the 12-bit address in bits 8-19, the count below.
    const uint32_t arg = (((uint32_t) which & 15u) << 20) | (((uint32_t) addr << 8) & 0xFFF00u)
                       | ((uint32_t) count & 255u);
    return sendCommandGetArrayResponse('R', (int) arg, 6, buffer, maxEepromTransfer);
}

bool XferDualBoard::writeDiskpackEeprom(int which, int addr, int count, const unsigned char* data)
{
    if ((unsigned) count > (unsigned) maxEepromTransfer)
        return false;
    unsigned char frame[3 + maxEepromTransfer];
    frame[0] = (unsigned char) (((unsigned) which << 4) | (((unsigned) addr >> 8) & 15u));
    frame[1] = (unsigned char) addr;
    frame[2] = (unsigned char) count;
    for (int i = 0; i < count; ++i)
        frame[3 + i] = data[i];
    return sendCommand('W', frame, count + 3);
}

bool XferDualBoard::setDiskFanSpeed(int which, bool autoMode, int speed)
{
    return sendForDiskpack('J', (long long) which * 256 + (autoMode ? 1 : speed), 3);
}

//==============================================================================
bool XferDualBoard::readRegister(uint32_t reg, uint32_t& value)
{
    unsigned char frame[5] = { fnRead };
    putBigEndian(reg, frame + 1);
    int raw = 0;
    if (!sendCommandGetIntResponse('E', frame, 5, raw, 8))
        return false;
    value = (uint32_t) raw;
    return true;
}

bool XferDualBoard::writeRegister(uint32_t reg, uint32_t value)
{
    unsigned char frame[9] = { fnWrite };
    putBigEndian(reg, frame + 1);
    putBigEndian(value, frame + 5);
    return sendCommand('E', frame, 9);
}

bool XferDualBoard::readSasAddress(uint32_t reg, juce::String& addr)
{
    unsigned char frame[5] = { fnReadAddress };
    putBigEndian(reg, frame + 1);
    unsigned char bytes[8] = {};
    if (!sendCommandGetArrayResponse('E', frame, 5, bytes, 8))
        return false;
    addr = juce::String::toHexString(bytes, 8, 0);
    return true;
}

bool XferDualBoard::sasGetExpanderAddr(juce::String& addr)
{
    return readSasAddress(expanderAddrRegister, addr);
}

bool XferDualBoard::sasGetDiskAddr(int which, int disk, juce::String& addr)
{
    if (which < 0 || which > 1 || disk < 0 || disk > 1)
        return false;
    // The diskpacks' disks sit on PHYs 0..3, second disk first.
    const int phy = 1 - disk + 2 * which;
    uint32_t status = 0;
    if (!readRegister(phyRegister(phy, phyStatusOffset), status))
        return false;
    if ((status & statusAttachedMask) != statusAttached)
    {
        addr = "0000000000000000";
        return true;
    }
    return readSasAddress(phyRegister(phy, phyAttachedAddrOffset), addr);
}

bool XferDualBoard::sasReset(bool enableUart)
{
    return sendCommand('E', 6 + (enableUart ? 1 : 0), 2);
}

bool XferDualBoard::sasGetPhyErrorCount(int phy, int& count)
{
    if ((unsigned) phy >= (unsigned) numPhys)
        return false;
    uint32_t v = 0;
    if (!readRegister(phyRegister(phy, phyErrorCountOffset), v))
        return false;
    count = (int) v;
    return true;
}

bool XferDualBoard::sasClearErrorCounts()
{
    for (int phy = 0; phy < numPhys; ++phy)
        if (!writeRegister(phyRegister(phy, phyControlOffset), controlClearCounters))
            return false;
    return true;
}

bool XferDualBoard::sasSetPhyMinMaxSpeed(int port, SasPhyConnectSpeed min, SasPhyConnectSpeed max)
{
    if ((unsigned) port >= (unsigned) numPorts || !validSpeed(min) || !validSpeed(max))
        return false;
    const uint32_t reg = phyRegister(port, phyLinkRateOffset);
    uint32_t value = 0;
    if (!readRegister(reg, value))
        return false;

    uint32_t rates = ratesUpTo[max] & ratesFrom[min];
    if (rates == 0)
        rates = 0x7; // a minimum above the maximum: let the PHY negotiate anything
    value = (value & ~0x7FFu) | (rates << 8) | maxRateCode[max] | minRateCode[min];
    return writeRegister(reg, value);
}

bool XferDualBoard::sasResetPhy(int port)
{
    if ((unsigned) port >= (unsigned) numPorts)
        return false;
    const uint32_t reg = phyRegister(port, phyControlOffset);
    return writeRegister(reg, controlHoldReset) && writeRegister(reg, controlReleaseReset);
}

//==============================================================================
void XferDualBoard::eventReceived(const juce::String& line)
{
    // Per-diskpack flags carry the diskpack in the upper nibble, values in the
    // upper byte.
    using L = XferDualBoardEventListener;
    static const EventRow<L> rows[] = {
        { 't', L::systemTemperatureBit, EventDecoding::number,
          [](L& l, const EventValue& v) { l.systemTemperatureEvent(signedByte(v.raw >> 8), signedByte(v.raw)); } },
        { 'p', L::diskpackTemperatureBit, EventDecoding::number,
          [](L& l, const EventValue& v) { l.diskpackTemperatureEvent((int) (v.raw >> 8), signedByte(v.raw)); } },
        { 'i', L::diskpackBit, EventDecoding::number,
          [](L& l, const EventValue& v) { l.diskpackEvent((int) (v.raw >> 4), (v.raw & 1) != 0, (v.raw & 2) != 0); } },
        { 'b', L::ejectButtonBit, EventDecoding::number,
          [](L& l, const EventValue& v) { l.ejectButtonEvent((int) (v.raw >> 4), (v.raw & 15) != 0); } },
        { 'l', L::diskpackLedBit, EventDecoding::number,
          [](L& l, const EventValue& v) { l.diskpackLedEvent((int) (v.raw >> 4), (v.raw & 15) != 0); } },
        { 'd', L::debugBit, EventDecoding::text, [](L& l, const EventValue& v) { l.debugEvent(v.text); } },
        { 'j', L::diskFanSpeedBit, EventDecoding::number,
          [](L& l, const EventValue& v) { l.diskFanSpeedEvent((int) (v.raw >> 8), (int) (v.raw & 255)); } },
    };
    dispatchEvent(line, "XferDualBoardEventListener", rows);
}
