#include "link/HardwareBoard.h"

#include "firmware/XBootFWUpdater.h"

HardwareBoard::HardwareBoard() : juce::Thread("HardwareBoard") {}

HardwareBoard::~HardwareBoard() = default;

HardwareBoardFWUpdater* HardwareBoard::getFWUpdater()
{
    return new XBootFWUpdater(this);
}

bool HardwareBoard::sendCommandInternal(const juce::String&, juce::String&, bool)
{
    return false;
}

//==============================================================================
void HardwareBoard::registerListener(HardwareBoardEventListener* listener)
{
    const juce::ScopedLock sl(listenerLock);
    listeners.addIfNotAlreadyThere(listener);
}

void HardwareBoard::deregisterListener(HardwareBoardEventListener* listener)
{
    const juce::ScopedLock sl(listenerLock);
    listeners.removeFirstMatchingValue(listener);
}

int HardwareBoard::getNumListeners() const
{
    const juce::ScopedLock sl(listenerLock);
    return listeners.size();
}

void HardwareBoard::forEachListener(uint32_t bit, const std::function<void(HardwareBoardEventListener&)>& fn)
{
    juce::Array<HardwareBoardEventListener*> snapshot;
    {
        const juce::ScopedLock sl(listenerLock);
        snapshot = listeners;
    }
    for (auto* l : snapshot)
        if (l != nullptr && l->wants(bit))
            fn(*l);
}

void HardwareBoard::logLine(const juce::String& text) const
{
    if (!quiet)
        juce::Logger::writeToLog(text);
}

juce::String HardwareBoard::getVersionString() const
{
    const juce::ScopedLock sl(versionLock);
    return versionString;
}

void HardwareBoard::setVersionString(const juce::String& text)
{
    const juce::ScopedLock sl(versionLock);
    versionString = text;
}

//==============================================================================
char HardwareBoard::encodeHexChar(int v) noexcept
{
    v &= 0xF;
    return (char) (v < 10 ? '0' + v : 'A' + v - 10);
}

int HardwareBoard::decodeHexChar(char c) noexcept
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return 0;
}

int HardwareBoard::decodeHexByte(const char* p) noexcept
{
    if (p[0] == 0 || p[1] == 0)
        return -1;
    return decodeHexChar(p[0]) * 16 + decodeHexChar(p[1]);
}

void HardwareBoard::appendHexByte(int v, juce::String& s)
{
    const char digits[] = { encodeHexChar(v >> 4), encodeHexChar(v), 0 };
    s << digits;
}

uint32_t HardwareBoard::decodeHexResponse(const juce::String& reply) noexcept
{
    uint32_t value = 0;
    const int len = reply.length();
    for (int i = 1; i < len; ++i)
        value = value * 16u + (uint32_t) decodeHexChar((char) reply[i]);
    return value;
}

int HardwareBoard::decodeWordResponse(const juce::String& reply, unsigned short* out, int maxWords)
{
    const int groups = reply.length() > 1 ? (reply.length() - 1) / 4 : 0;
    const int toStore = maxWords > 0 ? juce::jmin(groups, maxWords) : groups;
    for (int w = 0; w < toStore; ++w)
    {
        unsigned value = 0;
        for (int d = 0; d < 4; ++d)
            value = value * 16u + (unsigned) decodeHexChar((char) reply[1 + w * 4 + d]);
        out[w] = (unsigned short) value;
    }
    return groups - toStore;
}

//==============================================================================
juce::String HardwareBoard::buildCommand(char cmd, int value, int digits)
{
    juce::String line = juce::String::charToString(cmd);
    if (value >= 0)
        for (int nibble = digits - 1; nibble >= 0; --nibble)
            line += juce::String::charToString(encodeHexChar(value >> (4 * nibble)));
    return line;
}

juce::String HardwareBoard::buildCommand(char cmd, const unsigned char* data, int length)
{
    juce::String line = juce::String::charToString(cmd);
    for (int i = 0; i < length; ++i)
        appendHexByte(data[i], line);
    return line;
}

juce::String HardwareBoard::buildCommand(char cmd, const char* text)
{
    return juce::String::charToString(cmd) + juce::String(text);
}

bool HardwareBoard::sendCommand(char cmd, int value, int digits)
{
    juce::String reply;
    return sendCommandInternal(buildCommand(cmd, value, digits), reply, false);
}

bool HardwareBoard::sendCommand(char cmd, const unsigned char* data, int length)
{
    juce::String reply;
    return sendCommandInternal(buildCommand(cmd, data, length), reply, false);
}

bool HardwareBoard::sendCommand(char cmd, bool on)
{
    return sendCommand(cmd, on ? 1 : 0, 1);
}

bool HardwareBoard::sendCommand(char cmd, const char* text)
{
    juce::String reply;
    return sendCommandInternal(buildCommand(cmd, text), reply, false);
}

//==============================================================================
bool HardwareBoard::decodeIntReply(bool sent, const juce::String& line, const juce::String& reply,
                                   int responseDigits, int& result)
{
    if (!sent)
        return false;
    if (reply.length() != responseDigits + 1)
    {
        logLine("HardwareBoard::sendCommandGetIntResponse '" + line + "' received "
                + juce::String(reply.length()) + " digits");
        return false;
    }
    result = (int) decodeHexResponse(reply);
    return true;
}

bool HardwareBoard::sendCommandGetIntResponse(char cmd, int responseDigits, int& result, int value, int valueDigits)
{
    const auto line = buildCommand(cmd, value, valueDigits);
    juce::String reply;
    const bool sent = sendCommandInternal(line, reply, true);
    return decodeIntReply(sent, line, reply, responseDigits, result);
}

bool HardwareBoard::sendCommandGetIntResponse(char cmd, const unsigned char* data, int length, int& result, int responseDigits)
{
    const auto line = buildCommand(cmd, data, length);
    juce::String reply;
    const bool sent = sendCommandInternal(line, reply, true);
    return decodeIntReply(sent, line, reply, responseDigits, result);
}

bool HardwareBoard::sendCommandGetStringResponse(char cmd, juce::String& out)
{
    return sendCommandGetStringResponse(cmd, -1, 0, out);
}

bool HardwareBoard::sendCommandGetStringResponse(char cmd, int value, int digits, juce::String& out)
{
    juce::String reply;
    if (!sendCommandInternal(buildCommand(cmd, value, digits), reply, true))
        return false;
    out = reply.substring(1);
    return true;
}

bool HardwareBoard::decodeArrayReply(bool sent, const juce::String& reply, unsigned char* out, int count)
{
    if (!sent)
        return false;
    const int len = reply.length();
    for (int i = 0; i < count; ++i)
    {
        const int hi = 1 + 2 * i;
        if (hi + 1 >= len)
            return false;
        out[i] = (unsigned char) (decodeHexChar((char) reply[hi]) * 16 + decodeHexChar((char) reply[hi + 1]));
    }
    return true;
}

bool HardwareBoard::sendCommandGetArrayResponse(char cmd, int value, int digits, unsigned char* out, int count)
{
    juce::String reply;
    const bool sent = sendCommandInternal(buildCommand(cmd, value, digits), reply, true);
    return decodeArrayReply(sent, reply, out, count);
}

bool HardwareBoard::sendCommandGetArrayResponse(char cmd, const unsigned char* data, int length, unsigned char* out, int count)
{
    juce::String reply;
    const bool sent = sendCommandInternal(buildCommand(cmd, data, length), reply, true);
    return decodeArrayReply(sent, reply, out, count);
}

bool HardwareBoard::sendCommandGetArrayResponse(char cmd, const char* text, unsigned char* out, int count)
{
    juce::String reply;
    const bool sent = sendCommandInternal(buildCommand(cmd, text), reply, true);
    return decodeArrayReply(sent, reply, out, count);
}

void HardwareBoard::closeOnce(bool fromOwnThread, const std::function<void(bool)>& closeOpen)
{
    underCloseLock(fromOwnThread, [&] { closeOpen(fromOwnThread); });
}

bool HardwareBoard::whileNotClosing(const std::function<void()>& fn)
{
    return underCloseLock(getCurrentThreadId() == getThreadId(), fn);
}

bool HardwareBoard::underCloseLock(bool giveWay, const std::function<void()>& fn)
{
    // The lock holder may be waiting for this board's thread to end: that
    // thread must not wait for the lock in turn.
    if (giveWay)
    {
        const juce::ScopedTryLock tl(closeLock);
        if (tl.isLocked())
            fn();
        return tl.isLocked();
    }
    const juce::ScopedLock sl(closeLock);
    fn();
    return true;
}
