#pragma once

#include <string>
#include <vector>

/** An emulator as a child process, driven by control lines on its standard input. */
class SimProcess
{
public:
    /** Starts `boardsim --dir DIR <args>` and waits for its "ready" line. */
    SimProcess(const std::string& dir, const std::vector<std::string>& args);
    /** Starts any emulator speaking the same control lines; argv[0] is its path. */
    explicit SimProcess(const std::vector<std::string>& argv);
    ~SimProcess();

    bool isReady() const { return ready; }

    /** Sends one control line; returns "ok" or "error: ..." and keeps other lines printed. */
    std::string control(const std::string& line, int timeoutMs = 10000);

    /** Lines printed by the emulator that are not answers to control lines. */
    std::vector<std::string> output();

    void stop();

private:
    bool readLine(std::string& line, int timeoutMs);

    int pid = -1;
    int toChild = -1, fromChild = -1;
    bool ready = false;
    std::string buffer;
    std::vector<std::string> other;
};
