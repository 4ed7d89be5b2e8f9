// A set of emulated boards and the control lines that drive them.
#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "boardsim/board.h"
#include "boardsim/options.h"

namespace boardsim {

class Simulator {
public:
    // Receives every line meant for stdout ("ready", "ok", "error: ...",
    // "rx ..."). Calls are serialised by the simulator.
    using Output = std::function<void(const std::string&)>;

    Simulator(Options options, Output output, PersonalityFactory factory = makePersonality);
    ~Simulator();
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // Publishes every board; on failure the ones already made are taken down.
    bool start(std::string& error);
    // Stops the boards and removes their links. Safe to call twice.
    void stop();

    // Carries out one control line and returns its reply: "ok" or "error: ...".
    std::string control(const std::string& line);
    bool quitRequested() const { return quit_; }

    // Writes one line through the output, serialised with the boards' lines.
    void emit(const std::string& line);

    std::size_t boardCount() const { return boards_.size(); }
    const Board& board(std::size_t index) const { return *boards_.at(index); }

private:
    Board* findBoard(const std::string& token);

    Options options_;
    Output output_;
    PersonalityFactory factory_;
    std::mutex outputMutex_;
    std::vector<std::unique_ptr<Board>> boards_;
    bool quit_ = false;
    int faultLogFd_ = -1;
};

// Prints "ready", then serves control lines from `controlFd` until "quit",
// end of file, or `stopFd` becoming readable (a signal's self-pipe; -1 for
// none). The caller stops the simulator afterwards.
void runControlLoop(Simulator& simulator, int controlFd, int stopFd);

} // namespace boardsim
