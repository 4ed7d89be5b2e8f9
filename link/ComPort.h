#pragma once

#include <juce_core/juce_core.h>

#include <atomic>

// Programs that drive a port usually also read keys and catch Ctrl-C.
#include "link/ConsoleTerminal.h"

/** A serial device opened by a small port number: blocking reads and writes
    with per-character millisecond timeouts. A ComPort has no lock of its own;
    its owner serialises use (waitForInput alone may be called meanwhile).

    Reads fetch whatever the device has in one call and serve the characters
    from the port's own buffer; the timeouts still apply to each character. */
class ComPort
{
public:
    enum ParityType { parityNone = 0, parityEven = 1, parityOdd = 2 };
    enum FlowControlType { flowNone = 0, flowHardware = 1, flowSoftware = 2 };

    /** Longest line readString is asked for by the board link. */
    static constexpr int maxLineLength = 1080;

    ComPort() = default;
    ~ComPort();

    bool open(int port, bool isUsb);
    bool set(int baudRate, int dataBits, ParityType parity, int stopBits, FlowControlType flow);
    bool set(int baudRate, int dataBits, int parity, int stopBits, int flow)
    {
        return set(baudRate, dataBits, (ParityType) parity, stopBits, (FlowControlType) flow);
    }

    int ready(int timeoutMs);
    int readChar(int timeoutMs);
    int readString(juce::String& line, int maxLength, int timeoutMs);
    bool writeChar(char c, int timeoutMs);
    bool writeString(const char* text, int timeoutMs);
    bool removed() const;
    void close();

    /** Waits until input is waiting, `wakeFd` (when not negative) turns
        readable or the time is up, and reads nothing. Unlike the rest it may
        run while the owner uses the port on another thread: a wait that ends
        early is harmless. Returns 1 when `wakeFd` is readable, 0 otherwise,
        and -1 when it could not wait (closed, or select failed), so that the
        caller pauses some other way. */
    int waitForInput(int timeoutMs, int wakeFd = -1) const;

    bool isOpen() const noexcept { return open_.load(); }
    int getPortNumber() const noexcept { return portNumber; }
    bool getIsUsb() const noexcept { return isUsb; }
    juce::String getDevicePath() const { return devicePath; }

    /** Rescans the device directory and returns the number of USB adaptor
        `name` (-1 if it is not there). Numbers never change once given. */
    static int usbPortNumber(const juce::String& name);

    /** Forgets every USB adaptor name seen so far. Only for tests that run
        several emulated device directories in one process. */
    static void forgetUsbSerialNames();

private:
    static bool scanUsbSerialNames();
    enum class WaitFor { read, write };
    int waitFor(WaitFor what, int timeoutMs, int& err);
    void dropReadAhead() noexcept;

    std::atomic<bool> open_ { false };
    int portNumber = -1;
    bool isUsb = false;
    juce::String devicePath;
    // Atomic only for waitForInput, which looks at it without the owner's lock.
    std::atomic<int> fd { -1 };

    // Characters fetched from the device and not yet handed out. `buffered`
    // mirrors readEnd - readPos for waitForInput.
    static constexpr int readAheadSize = 4096;
    unsigned char readAhead[readAheadSize];
    int readPos = 0, readEnd = 0;
    std::atomic<int> buffered { 0 };

    JUCE_DECLARE_NON_COPYABLE(ComPort)
};
