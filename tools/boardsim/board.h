// One emulated board: its pty, personality, faults and thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "boardsim/faults.h"
#include "boardsim/options.h"
#include "boardsim/personality.h"
#include "boardsim/pty.h"
#include "boardsim/wire.h"

namespace boardsim {

class Board {
public:
    // Receives the lines the board reports on stdout ("rx ..."); must be
    // safe to call from any thread.
    using Output = std::function<void(const std::string&)>;

    // `faultLogFd`, when not -1, receives one line per command received
    // (see --fault-log); the caller keeps it open while the board runs.
    Board(std::size_t index, BoardConfig config, std::string linkPath, bool log, bool verbose, int faultLogFd,
          Output output, PersonalityFactory factory = makePersonality);
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    // Creates the pty, publishes the link and starts the board's thread.
    bool start(std::string& error);
    // Stops the thread, closes the pty and removes the link.
    void stop();

    std::size_t index() const { return index_; }
    const std::string& name() const { return config_.name; }
    const std::string& linkPath() const { return linkPath_; }

    // Control from the driver. Each runs on the board's own thread (so it
    // needs no locking against the wire traffic) and returns an empty string
    // on success, else why it failed.
    std::string sendLine(const std::string& text);
    std::string sendRaw(const std::string& bytes);
    std::string unplug();
    std::string plug();
    std::string setFault(const std::string& setting);
    std::string personalityControl(const std::string& verb, const std::string& args);

private:
    using Clock = std::chrono::steady_clock;

    std::string call(std::function<std::string()> fn);
    void wake();
    void run();
    void runTasks();
    void readMaster();
    // Hands received bytes to a personality that reads bytes rather than
    // lines; returns how many it took (the rest are lines).
    std::size_t receiveBytes(const char* data, std::size_t size);
    void onLine(const std::string& line, bool cut);
    void processInbox();
    // The reply to one command line, with the faults and numbered events it
    // gets; `delayMs` is how long to hold it back.
    Replier respond(const std::string& line, unsigned& delayMs);
    void adopt(Replier& replier);
    std::string render(const Replier& replier) const;
    void transmit(const std::string& bytes);
    // One more line of the babble fault, if the host has room for it.
    void babble();
    bool writeAll(const char* data, std::size_t size);
    void resetWire();
    void refreshTick(Clock::time_point now);
    void diag(const std::string& text) const;

    const std::size_t index_;
    const BoardConfig config_;
    const std::string linkPath_;
    const bool log_;
    const bool verbose_;
    const int faultLogFd_;
    const Output output_;
    const PersonalityFactory factory_;

    // Shared with the driver's thread.
    std::mutex mutex_;
    std::deque<std::function<void()>> tasks_;
    bool running_ = false;
    std::atomic<bool> stopping_{false};
    int wakeFd_ = -1;
    std::thread thread_;

    // The board thread's own from start() on.
    Pty pty_;
    std::string publishedTarget_;
    std::unique_ptr<Personality> personality_;
    Faults faults_;
    LineReader reader_;
    std::deque<std::string> inbox_;
    unsigned long commandCount_ = 0;
    unsigned long eventNumber_ = 0; // of the last numbered event; kept across unplugs
    bool replyPending_ = false;
    Clock::time_point replyDue_;
    std::string pendingBytes_;
    std::chrono::milliseconds tickInterval_{0};
    Clock::time_point nextTick_;
    Clock::time_point nextSpeedCheck_;
    Clock::time_point wireFree_;
    Clock::time_point rxWireFree_;
    bool masterBroken_ = false;
    Clock::time_point nextBabble_;
    std::string babbleRest_; // the part of a babble line the pty had no room for
};

} // namespace boardsim
