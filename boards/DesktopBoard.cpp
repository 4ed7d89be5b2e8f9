#include "boards/DesktopBoard.h"

#include "boards/SasExpanderCodes.h"

#include <cstring>

namespace
{
using namespace SasExpander;

// Expander register map (24-bit addresses): each PHY has a 1 KiB window.
constexpr uint32_t phyWindowBase = 0x040000u;
constexpr uint32_t phyWindowSize = 0x400u;
constexpr uint32_t phyRateOffset = 0x0A0;
constexpr uint32_t phyControlOffset = 0x310;   // write: 5 clears counters, 3/1 hold/release reset
constexpr uint32_t phyErrorCountOffset = 0x318;

// Offsets in the EEPROM image.
constexpr int addressBlock = 64;          // 0x51, then the 8-byte SAS address
constexpr int serialHigh = 71;
constexpr int serialLow = 72;
constexpr int identification = 73;        // 24 characters, space padded
constexpr int firstChecksumStart = 64, firstChecksum = 192;
constexpr int secondChecksumStart = 193, secondChecksum = 251;

uint32_t phyRegister(int phy, uint32_t offset)
{
    return phyWindowBase + (uint32_t) phy * phyWindowSize + offset;
}


/** The value that makes bytes [from, at] of the image sum to 0 modulo 256. */
unsigned char checksumFor(const DesktopBoard::EepromImage& image, int from, int at)
{
    unsigned sum = 0;
    for (int i = from; i < at; ++i)
        sum += image[(size_t) i];
    return (unsigned char) (0x100u - (sum & 0xFFu));
}

void sealChecksums(DesktopBoard::EepromImage& image)
{
    image[firstChecksum] = checksumFor(image, firstChecksumStart, firstChecksum);
    image[secondChecksum] = checksumFor(image, secondChecksumStart, secondChecksum);
}

} // namespace

DesktopBoard::EepromImage DesktopBoard::makeFactoryImage()
{
    DesktopBoard::EepromImage image {};
    image.fill(0xFF);
    image[0] = 0x81;

    static const unsigned char address[] = { 0x51, 0x50, 0x06, 0x05, 0xBC, 0xDA, 0x10, 0x00, 0x0F };
    std::memcpy(&image[addressBlock], address, sizeof(address));

    const char* ident = "LSILOGICSASx12 A.0";
    for (int i = 0; i < 24; ++i)
        image[(size_t) (identification + i)] = (unsigned char) (i < (int) std::strlen(ident) ? ident[i] : ' ');

    static const unsigned char config[] = {
        0x00, 0x00, 0x00, 0x1C, 0x00, 0x01, 0x03, 0x00, 0x00, 0x2F, 0x0F, 0x00, 0x00, 0x00, 0x00,
        0x00, 0x00, 0x00, 0x0F, 0x00, 0x00, 0x0F, 0x00, 0x1E, 0x1E, 0x1E, 0x1E, 0x20, 0x2C, 0x20, 0x2A,
        0x20, 0x25, 0x20, 0x14, 0x07, 0x00, 0x00, 0x07, 0x00, 0x00, 0x07, 0x00, 0x00, 0x07, 0x00, 0x00,
        0x06, 0x00, 0x00, 0x06, 0x00, 0x00, 0x06, 0x00, 0x00, 0x06, 0x00, 0x00, 0x06, 0x00, 0x00, 0x06,
        0x00, 0x00, 0x06, 0x00, 0x00, 0x06,
    };
    static_assert(sizeof(config) == 69, "configuration block runs from 97 to 165");
    std::memset(&image[97], 0, (size_t) (firstChecksum - 97));
    std::memcpy(&image[97], config, sizeof(config));

    static const unsigned char phyConfig[] = {
        0x10, 0x00, 0x08, 0x60, 0x60, 0x00, 0x40, 0x00, 0x00, 0xA0, 0x30, 0x80, 0x00, 0x00, 0x0F,
        0xE0, 0x00, 0x00, 0x00, 0x21, 0x00, 0x20, 0x14, 0x00, 0x00, 0x0F, 0xFF, 0x60, 0x28, 0x00, 0x00,
        0x0F, 0xFF, 0x90, 0x00, 0x18, 0xE3, 0x00, 0x40, 0x00, 0x00, 0xFC, 0x23, 0x28, 0x00, 0x00, 0x20,
        0x00, 0x50, 0x00, 0x00, 0xA0, 0x38, 0x00, 0x00, 0x00, 0x00, 0x00,
    };
    static_assert(sizeof(phyConfig) == secondChecksum - secondChecksumStart, "second block runs from 193 to 250");
    std::memcpy(&image[secondChecksumStart], phyConfig, sizeof(phyConfig));

    sealChecksums(image);
    return image;
}

DesktopBoard::~DesktopBoard()
{
    // Stop the event thread while eventReceived still belongs to this class.
    closeBoard(false);
}

const char* DesktopBoard::boardIdString() const
{
    return "Desktop Transfer Station board";
}

void DesktopBoard::closingBoard() {}

//==============================================================================
bool DesktopBoard::resetEeprom()
{
    return sendCommand('Z', -1, 2);
}

bool DesktopBoard::getBatteryVoltage(int& mV)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('V', 2, raw, -1, 0))
        return false;
    mV = raw * 100;
    return true;
}

bool DesktopBoard::getDiskpackId(int& id)
{
    return sendCommandGetIntResponse('I', 1, id, -1, 0);
}

bool DesktopBoard::getDiskpackGuid(juce::String& guid)
{
    return sendCommandGetStringResponse('U', guid);
}

bool DesktopBoard::setDiskpackWriteProtect(bool protect)
{
    return sendCommand('X', protect);
}

bool DesktopBoard::getDiskpackWriteProtect(bool& isProtected)
{
    int v = 0;
    if (!sendCommandGetIntResponse('Y', 1, v, 0, 1))
        return false;
    isProtected = v != 0;
    return true;
}

bool DesktopBoard::enableDiskpackTemperatureEvents(bool enable)
{
    return sendCommand('P', enable ? 1 : 0, 1);
}

bool DesktopBoard::getOperatingHours(int& hours)
{
    return sendCommandGetIntResponse('O', 4, hours, -1, 0);
}

bool DesktopBoard::getMinMaxTemperatures(int& min, int& max)
{
    int raw = 0;
    if (!sendCommandGetIntResponse('M', 4, raw, -1, 0))
        return false;
    min = signedByte((uint32_t) raw >> 8);
    max = signedByte((uint32_t) raw);
    return true;
}

bool DesktopBoard::setDiskpackLed(int which, DiskpackLedMode mode)
{
    int next = 0;
    if (!placeDiskpackLedMode(ledState, which, mode, next))
        return false;
    if (next == ledState)
        return true;
    ledState = next;
    return sendCommand('L', ledState, 1);
}

bool DesktopBoard::setDiskpackPower(bool on)
{
    return sendCommand('D', on);
}

bool DesktopBoard::setLedId(int id)
{
    return sendCommand('H', id, 1);
}

//==============================================================================
bool DesktopBoard::writeRegister(uint32_t reg, uint32_t value)
{
    const unsigned char frame[8] = {
        (unsigned char) fnWrite,
        (unsigned char) (reg >> 16), (unsigned char) (reg >> 8), (unsigned char) reg,
        (unsigned char) (value >> 24), (unsigned char) (value >> 16), (unsigned char) (value >> 8), (unsigned char) value,
    };
    return sendCommand('E', frame, 8);
}

bool DesktopBoard::sasGetExpanderAddr(juce::String& addr)
{
    return sendCommandGetStringResponse('E', (int) (fnReadAddress << 24), 8, addr);
}

bool DesktopBoard::sasGetDiskAddr(int disk, juce::String& addr)
{
    if ((unsigned) disk >= (unsigned) numDisks)
        return false;
    // Disk 0 sits on the last PHY, disk 3 on the first of the disk PHYs.
    const int phy = firstDiskPhy + 3 - disk;
    int status = 0;
    if (!sendCommandGetIntResponse('E', 8, status, (int) ((fnRead << 24) | phyRegister(phy, phyStatusOffset)), 8))
        return false;
    if (((uint32_t) status & statusAttachedMask) != statusAttached)
    {
        addr = "0000000000000000";
        return true;
    }
    return sendCommandGetStringResponse('E', (int) ((fnReadAddress << 24) | phyRegister(phy, phyAttachedAddrOffset)), 8, addr);
}

bool DesktopBoard::sasReset()
{
    return sendCommand('E', fnResetExpander, 2);
}

int DesktopBoard::sasProgramEeprom(int serial)
{
    if ((unsigned) serial >= 4096u)
        return programBadSerial;

    auto& image = eepromImage;
    image[serialHigh] = (unsigned char) (serial >> 4);
    image[serialLow] = (unsigned char) ((serial << 4) | 0x0F);
    sealChecksums(image);

    for (int b = 0; b < eepromBlocks; ++b)
    {
        const unsigned char* block = &image[(size_t) (b * eepromBlockSize)];
        unsigned char frame[2 + eepromBlockSize];
        frame[0] = (unsigned char) fnWriteEepromBlock;
        frame[1] = (unsigned char) b;
        std::memcpy(frame + 2, block, eepromBlockSize);
        if (!sendCommand('E', frame, (int) sizeof(frame)))
            return programWriteFailed;

        unsigned char readBack[eepromBlockSize] = {};
        if (!sendCommandGetArrayResponse('E', (fnReadEepromBlock << 8) + b, 4, readBack, eepromBlockSize))
            return programReadFailed;
        if (std::memcmp(readBack, block, eepromBlockSize) != 0)
            return programVerifyFailed;
    }

    // The expander only loads its configuration at reset. Programming has
    // already been verified, so a failed reset does not undo it.
    sasReset();
    return programOk;
}

bool DesktopBoard::getPhyErrorCount(int phy, int& count)
{
    if ((unsigned) phy >= (unsigned) numPhys)
        return false;
    return sendCommandGetIntResponse('E', 8, count, (int) ((fnRead << 24) | phyRegister(phy, phyErrorCountOffset)), 8);
}

bool DesktopBoard::clearErrorCounts()
{
    for (int phy = 0; phy < numPhys; ++phy)
        if (!writeRegister(phyRegister(phy, phyControlOffset), controlClearCounters))
            return false;
    return true;
}

bool DesktopBoard::setPhyMinMaxSpeed(int phy, SasPhyConnectSpeed min, SasPhyConnectSpeed max)
{
    if (phy < firstDiskPhy || phy >= numPhys)
        return false;
    // This expander has no 6 Gbit/s rate.
    auto code = [](SasPhyConnectSpeed s) -> int {
        return s == sasSpeed1G5 ? 0x80 : s == sasSpeed3G ? 0x90 : -1;
    };
    const int minCode = code(min), maxCode = code(max);
    if (minCode < 0 || maxCode < 0)
        return false;
    return writeRegister(phyRegister(phy, phyRateOffset), ((uint32_t) minCode << 24) | ((uint32_t) maxCode << 16));
}

bool DesktopBoard::resetPhy(int phy)
{
    if (phy < firstDiskPhy || phy >= numPhys)
        return false;
    const uint32_t reg = phyRegister(phy, phyControlOffset);
    return writeRegister(reg, controlHoldReset) && writeRegister(reg, controlReleaseReset);
}

//==============================================================================
void DesktopBoard::eventReceived(const juce::String& line)
{
    using L = DesktopBoardEventListener;
    static const EventRow<L> rows[] = {
        { 'd', L::debugBit, EventDecoding::text, [](L& l, const EventValue& v) { l.debugEvent(v.text); } },
        { 'p', L::diskpackTemperatureBit, EventDecoding::signedNumber, [](L& l, const EventValue& v) { l.diskpackTemperatureEvent(v.number); } },
        { 'v', L::leverBit, EventDecoding::number, [](L& l, const EventValue& v) { l.leverEvent(v.number != 0); } },
        { 'i', L::diskpackBit, EventDecoding::number, [](L& l, const EventValue& v) { l.diskpackEvent(v.number != 0); } },
        { 'l', L::ledBit, EventDecoding::number, [](L& l, const EventValue& v) { l.ledEvent(v.number); } },
    };
    dispatchEvent(line, "DesktopBoardEventListener", rows);
}
