#pragma once

#include "link/EventTable.h"

#include <juce_core/juce_core.h>

#include <atomic>
#include <cstdint>
#include <functional>

class HardwareBoardFWUpdater;

/** Base of every board's listener interface. The mask has one bit per kind of
    event the board reports; a board calls a callback only when its bit is set. */
class HardwareBoardEventListener
{
public:
    explicit HardwareBoardEventListener(uint32_t mask = 0xFFFFFFFFu) : eventMask(mask) {}
    virtual ~HardwareBoardEventListener() = default;

    bool wants(uint32_t bit) const noexcept { return (eventMask & bit) != 0; }

    uint32_t eventMask;
};

/** The abstract link to one board: listeners, the board lock, the open state,
    and the conversion of every board operation into one line of ASCII text and
    of its reply back into numbers, text or bytes. The transport subclass owns
    the wire and implements sendCommandInternal. */
class HardwareBoard : public juce::Thread
{
public:
    HardwareBoard();
    ~HardwareBoard() override;

    // --- virtual slots ---
    // Board classes built against this interface call them by position, so
    // their order is part of it: add new ones after the last.
    void run() override = 0;
    virtual bool findAndOpen(int boardId) = 0;
    virtual bool syncState() = 0;
    virtual void closeBoard(bool fromOwnThread) = 0;
    virtual int getMcuVariant() const { return 0; }
    virtual const char* boardIdString() const = 0;
    virtual HardwareBoardFWUpdater* getFWUpdater();
    virtual void closingBoard() {}
    virtual bool sendCommandInternal(const juce::String& command, juce::String& reply, bool expectResponse);

    // --- listeners ---
    void registerListener(HardwareBoardEventListener* listener);
    void deregisterListener(HardwareBoardEventListener* listener);
    int getNumListeners() const;

    // --- hex helpers ---
    static char encodeHexChar(int v) noexcept;
    static int decodeHexChar(char c) noexcept;
    static int decodeHexByte(const char* p) noexcept;
    static void appendHexByte(int v, juce::String& s);
    static uint32_t decodeHexResponse(const juce::String& reply) noexcept;
    static int decodeWordResponse(const juce::String& reply, unsigned short* out, int maxWords);
    /** The low byte of v as a two's complement number. */
    static int signedByte(uint32_t v) noexcept
    {
        const int b = (int) (v & 0xFF);
        return b >= 128 ? b - 256 : b;
    }

    // --- command line builders (what the senders put on the wire, less the terminator) ---
    static juce::String buildCommand(char cmd, int value, int digits);
    static juce::String buildCommand(char cmd, const unsigned char* data, int length);
    static juce::String buildCommand(char cmd, const char* text);

    // --- senders ---
    bool sendCommand(char cmd, int value, int digits);
    bool sendCommand(char cmd, const unsigned char* data, int length);
    bool sendCommand(char cmd, bool on);
    bool sendCommand(char cmd, const char* text);

    // --- senders with decoded replies ---
    bool sendCommandGetIntResponse(char cmd, int responseDigits, int& result, int value = -1, int valueDigits = 0);
    bool sendCommandGetIntResponse(char cmd, const unsigned char* data, int length, int& result, int responseDigits);
    bool sendCommandGetStringResponse(char cmd, juce::String& out);
    bool sendCommandGetStringResponse(char cmd, int value, int digits, juce::String& out);
    bool sendCommandGetArrayResponse(char cmd, int value, int digits, unsigned char* out, int count);
    bool sendCommandGetArrayResponse(char cmd, const unsigned char* data, int length, unsigned char* out, int count);
    bool sendCommandGetArrayResponse(char cmd, const char* text, unsigned char* out, int count);

    // --- state ---
    juce::String getVersionString() const;
    bool boardIsOpen() const noexcept { return isOpen.load(); }
    bool isQuiet() const noexcept { return quiet.load(); }
    void setQuiet(bool shouldBeQuiet) noexcept { quiet = shouldBeQuiet; }
    juce::CriticalSection& getLock() noexcept { return lock; }

protected:
    /** Calls fn for every registered listener whose mask has `bit`, in
        registration order. Runs on whichever thread decodes the event. */
    void forEachListener(uint32_t bit, const std::function<void(HardwareBoardEventListener&)>& fn);

    /** Decodes one event line with the row for its letter and hands it to
        every listener of type Listener that wants the row's bit. A letter no
        row knows is logged as "<listenerName>: received unknown event 'x'". */
    template <class Listener, size_t numRows>
    void dispatchEvent(const juce::String& line, const char* listenerName, const EventRow<Listener> (&rows)[numRows])
    {
        if (line.isEmpty())
            return;
        const auto letter = line[0];
        for (auto& row : rows)
        {
            if (row.letter != letter)
                continue;
            const EventValue value = decodeEvent(row.decoding, line);
            forEachListener(row.bit, [&](HardwareBoardEventListener& base) {
                if (auto* listener = dynamic_cast<Listener*>(&base))
                    row.deliver(*listener, value);
            });
            return;
        }
        juce::Logger::writeToLog(juce::String(listenerName) + ": received unknown event '"
                                 + juce::String::charToString(letter) + "'");
    }

    /** Closes the board once, whoever asks: `closeOpen(fromOwnThread)` runs
        under the close lock. A close from the board's own thread gives way
        when the console is closing the board already, since the console then
        waits for that very thread to end. */
    void closeOnce(bool fromOwnThread, const std::function<void(bool)>& closeOpen);

    /** Runs `fn` under the same close lock, so that no close runs meanwhile
        (a reopen or a reconfiguration of the transport). On the board's own
        thread it gives way as a close does; returns whether `fn` ran. */
    bool whileNotClosing(const std::function<void()>& fn);

    /** Writes a link diagnostic unless the board is quiet. */
    void logLine(const juce::String& text) const;

    void setVersionString(const juce::String& text);

    juce::Array<HardwareBoardEventListener*> listeners;
    juce::String versionString;
    std::atomic<bool> isOpen { false };
    juce::CriticalSection lock;
    std::atomic<bool> quiet { false };

private:
    bool decodeArrayReply(bool sent, const juce::String& reply, unsigned char* out, int count);
    bool decodeIntReply(bool sent, const juce::String& line, const juce::String& reply, int responseDigits, int& result);

    // Listeners may be registered from the console while the event thread
    // delivers; this lock keeps the array consistent (it is never held while a
    // callback runs).
    juce::CriticalSection listenerLock;
    // The version text is written by discovery and cleared by close, possibly
    // on the event thread, while the console reads it.
    juce::CriticalSection versionLock;
    // Serialises closing between the console and the board's own thread.
    juce::CriticalSection closeLock;
    bool underCloseLock(bool giveWay, const std::function<void()>& fn);

    JUCE_DECLARE_NON_COPYABLE(HardwareBoard)
};
