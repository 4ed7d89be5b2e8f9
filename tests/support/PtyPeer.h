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

/** A device directory searched instead of /dev while alive; adaptor numbering starts afresh. */
class TempDevDir
{
public:
    TempDevDir();
    ~TempDevDir();
    const std::string& path() const { return dir; }

private:
    std::string dir;
};

/** The far end of a serial port: a pty published under `name` in `dir`. A pty refuses an
    unchanged 8E1 configuration, so the peer changes its speed after every line it reads. */
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
    void write(const std::string& bytes);
    /** Sends what fits without waiting: noise must not block once nobody reads. */
    void writeIfRoom(const std::string& bytes);
    /** Sends a line the way a board does, ending in "\r\n". */
    void writeLine(const std::string& line) { write(line + "\r\n"); }

    /** Answers each line on a thread with the responder's lines ("\r\n" added unless the
        line starts with '\x01', which is sent raw without the marker). */
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

/** A shell command run to its end: exit status (-1 if none) and all it printed. */
struct ProgramRun
{
    int status = -1;
    std::string output;
};
ProgramRun runProgram(const std::string& commandLine);

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
