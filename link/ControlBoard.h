#pragma once

#include "link/ComPort.h"
#include "link/HardwareBoard.h"

/** The board link for every board on a serial port: finds its board by probing
    the ports, owns the port while open, runs one command exchange at a time and
    reads the board's unsolicited event lines on the board's own thread.

    Subclasses whose closingBoard() does real work must call closeBoard(false)
    in their own destructor: by the time this destructor runs the subclass part
    is gone. */
class ControlBoard : public HardwareBoard, private juce::Thread::Listener
{
public:
    static constexpr int maxPorts = 16;
    static constexpr int threadStopTimeoutMs = 10000;

    ControlBoard();
    ~ControlBoard() override;

    void run() override;
    bool findAndOpen(int boardId) override;
    bool syncState() override;
    void closeBoard(bool fromOwnThread) override;
    bool sendCommandInternal(const juce::String& command, juce::String& reply, bool expectResponse) override;

    // --- further slots ---
    // Called by position, like the base's: new ones go after the last.
    virtual bool isUsb() const { return true; }
    virtual int firstSearchPort() const { return 0; }
    virtual int numSearchPorts() const { return 9; }
    virtual int getBaudRate() const { return 19200; }
    virtual void eventReceived(const juce::String& line) { juce::ignoreUnused(line); }
    /** How long the event thread pauses after a turn that brought nothing
        (asked when the thread starts). A line from the board ends the pause
        early. */
    virtual int idlePauseMs() const { return 10; }

    static int searchForControlBoard(bool isUsb, int firstPort, int lastPort, const char* idString,
                                     int boardId, int baudRate, juce::String& version);

    bool openPort(int port, bool isUsb);
    void closePort();
    bool changePortRate();
    bool reopenPort();

    /** The board's serial port, for the XBoot updater which talks to the
        bootloader directly. */
    ComPort& getPort() noexcept { return port; }

    static bool isPortOpen(int port);

    /** Guards openPorts and every open, close and reconfiguration of a port,
        and is held for a whole search. Never taken under a board's lock. */
    static juce::CriticalSection portLock;

protected:
    ComPort port;
    juce::StringArray pendingEvents;

    static bool openPorts[maxPorts];

private:
    /** What the event thread carries from one turn to the next. */
    struct EventPoll
    {
        juce::StringArray parked;   // lines an exchange set aside, taken whole
        juce::String line;          // the line just read from the port
        int idleCount = 0;          // quiet turns since the last unplug check
        int consecutiveErrors = 0;  // failed reads in a row
        int pauseMs = 0;            // the board's idlePauseMs()
    };

    /** One look under the board lock: >0 when there are lines to deliver,
        0 when the port was quiet, <0 when a read failed. */
    int pollForEvents(EventPoll& poll);
    void deliverEvents(EventPoll& poll);
    /** Waits between turns that brought nothing; true when the thread was told
        to stop. */
    bool pauseUntilNextPoll(int status, int pauseMs);
    /** The unplug watch, after a turn with nothing delivered. */
    bool boardIsGone(int status, EventPoll& poll);

    void closeOpenBoard(bool fromOwnThread);
    bool exchange(const juce::String& command, const juce::String& line, int writeTimeoutMs, juce::String& reply,
                  bool expectResponse);

    // The event thread pauses on this pipe (and on the port): a byte ends the
    // pause, when the thread is told to stop or an exchange parked lines.
    void exitSignalSent() override;
    void wakeEventThread();
    void drainWakePipe();
    int wakePipe[2] = { -1, -1 };
    // Set while an exchange holds the board lock: what arrives then is the
    // exchange's, so the event thread does not wake for it.
    std::atomic<bool> exchangeInFlight { false };

    JUCE_DECLARE_NON_COPYABLE(ControlBoard)
};
