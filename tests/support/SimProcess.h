#pragma once

#include <string>
#include <vector>

/** Runs the board emulator as a child process: boards are published in a
    device directory, and control lines go to its standard input. */
class SimProcess
{
public:
    /** Starts `boardsim --dir DIR <args>` and waits for its "ready" line. */
    SimProcess(const std::string& dir, const std::vector<std::string>& args);
    /** Starts any emulator that speaks the same control-line dialect (such as
        the dock emulator): argv[0] is its path. */
    explicit SimProcess(const std::vector<std::string>& argv);
    ~SimProcess();

    bool isReady() const { return ready; }

    /** Sends one control line; returns its answer ("ok" or "error: ...").
        Lines of other kinds printed meanwhile (such as "rx ...") are kept. */
    std::string control(const std::string& line, int timeoutMs = 10000);

    /** Lines printed by the emulator that are not answers to control lines. */
    std::vector<std::string> output();

    /** Waits until a printed line equals `line`. */
    bool waitForOutput(const std::string& line, int timeoutMs = 10000);

    void stop();

private:
    bool readLine(std::string& line, int timeoutMs);

    int pid = -1;
    int toChild = -1, fromChild = -1;
    bool ready = false;
    std::string buffer;
    std::vector<std::string> other;
};
