#pragma once

#include <juce_core/juce_core.h>

#include "support/JucePrinters.h"

#include <termios.h>

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

/** A temporary device directory that the link searches instead of /dev for the
    life of the object. Each one starts the USB adaptor numbering afresh. */
class TempDevDir
{
public:
    TempDevDir();
    ~TempDevDir();
    const std::string& path() const { return dir; }

private:
    std::string dir;
};

/** The far end of a serial port: a pseudo-terminal whose slave is published in
    a device directory under a chosen name, as an adaptor would appear. The peer
    keeps the slave open so the port under test may be opened and closed freely.

    Linux ptys drop the parity bit and then refuse an unchanged 8E1
    configuration, so after every line it receives the peer changes the pty's
    speed: each configuration by the link is then a real change. */
class PtyPeer
{
public:
    using Responder = std::function<std::vector<std::string>(const std::string& line)>;

    PtyPeer(const std::string& dir, const std::string& name);
    ~PtyPeer();

    /** Reads one line sent by the link (without "\n"); false on timeout. */
    bool readLine(std::string& line, int timeoutMs = 5000);
    /** Reads exactly n raw bytes; false on timeout. */
    bool readBytes(std::string& bytes, size_t n, int timeoutMs = 5000);
    /** Sends raw bytes. */
    void write(const std::string& bytes);
    /** Sends what of `bytes` fits without waiting, for noise that must not
        block when nobody reads the port any more. */
    void writeIfRoom(const std::string& bytes);
    /** Sends a line the way a board does, ending in "\r\n". */
    void writeLine(const std::string& line) { write(line + "\r\n"); }

    /** Answers every received line on a thread of its own with the lines the
        responder returns (each sent with "\r\n"; an entry starting with '\x01'
        is sent raw without the marker or a terminator). */
    void serve(Responder responder);
    void stopServing();
    std::vector<std::string> received() const;
    /** Waits until the peer has received at least n lines. */
    bool waitForReceived(size_t n, int timeoutMs = 10000) const;

    /** The adaptor is pulled: the link disappears and the pty closes. */
    void unplug();

    const std::string& linkPath() const { return link; }
    /** The pty's current terminal settings, as the link last left them. */
    bool settings(struct termios& tio) const;

private:
    void toggleSpeed();
    /** Reads from the pty into `pending` until `enough` holds; false on timeout. */
    bool fill(const std::function<bool()>& enough, int timeoutMs);
    int master = -1, slave = -1;
    std::string link;
    bool fast = false;
    std::string pending;

    std::thread server;
    std::atomic<bool> serving { false };
    std::mutex writeLock;
    mutable std::mutex receivedLock;
    std::vector<std::string> receivedLines;
};

/** Polls `condition` until it holds or `timeoutMs` passes. */
bool waitUntil(const std::function<bool()>& condition, int timeoutMs = 10000);

/** Collects the process's log lines while alive. */
class LogCapture : public juce::Logger
{
public:
    LogCapture();
    ~LogCapture() override;
    juce::StringArray lines() const;
    bool contains(const juce::String& line) const { return lines().contains(line); }
    void clear();

protected:
    void logMessage(const juce::String& message) override;

private:
    juce::Logger* previous;
    mutable std::mutex m;
    juce::StringArray captured;
};
