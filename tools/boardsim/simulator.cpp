#include "boardsim/simulator.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <unistd.h>

#include "boardsim/wire.h"

namespace boardsim {

Simulator::Simulator(Options options, Output output, PersonalityFactory factory)
    : options_(std::move(options)), output_(std::move(output)), factory_(std::move(factory))
{
}

Simulator::~Simulator() { stop(); }

void Simulator::emit(const std::string& line)
{
    std::lock_guard<std::mutex> lock(outputMutex_);
    output_(line);
}

bool Simulator::start(std::string& error)
{
    if (!options_.faultLog.empty() && faultLogFd_ < 0) {
        faultLogFd_ = ::open(options_.faultLog.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND | O_CLOEXEC, 0644);
        if (faultLogFd_ < 0) {
            error = "--fault-log " + options_.faultLog + ": " + std::strerror(errno);
            return false;
        }
    }
    for (std::size_t i = 0; i < options_.boards.size(); ++i) {
        const BoardConfig& config = options_.boards[i];
        const std::string link = options_.dir + "/tty.usbserial-" + config.name;
        auto board = std::make_unique<Board>(i, config, link, options_.log, options_.verbose,
                                             faultLogFd_, [this](const std::string& line) { emit(line); }, factory_);
        if (!board->start(error)) {
            error = "board " + std::to_string(i) + " (" + config.name + "): " + error;
            board->stop();
            stop();
            return false;
        }
        boards_.push_back(std::move(board));
    }
    return true;
}

void Simulator::stop()
{
    for (auto& board : boards_)
        board->stop();
    boards_.clear();
    if (faultLogFd_ >= 0) {
        ::close(faultLogFd_);
        faultLogFd_ = -1;
    }
}

Board* Simulator::findBoard(const std::string& token)
{
    if (!token.empty() && token.find_first_not_of("0123456789") == std::string::npos && token.size() < 6) {
        const std::size_t index = std::stoul(token);
        return index < boards_.size() ? boards_[index].get() : nullptr;
    }
    static const std::string prefix = "tty.usbserial-";
    const std::string name = token.compare(0, prefix.size(), prefix) == 0 ? token.substr(prefix.size()) : token;
    for (auto& board : boards_)
        if (board->name() == name)
            return board.get();
    return nullptr;
}

std::string Simulator::control(const std::string& line)
{
    // VERB, then B, then the rest of the line verbatim: event text keeps its spaces.
    const auto verbEnd = line.find(' ');
    const std::string verb = line.substr(0, verbEnd);
    std::string boardToken;
    std::string rest;
    bool hasRest = false;
    if (verbEnd != std::string::npos) {
        const auto boardEnd = line.find(' ', verbEnd + 1);
        boardToken = line.substr(verbEnd + 1, boardEnd == std::string::npos ? std::string::npos : boardEnd - verbEnd - 1);
        if (boardEnd != std::string::npos) {
            rest = line.substr(boardEnd + 1);
            hasRest = true;
        }
    }

    if (verb == "quit") {
        if (verbEnd != std::string::npos)
            return "error: quit takes no arguments";
        quit_ = true;
        return "ok";
    }
    if (verbEnd == std::string::npos || boardToken.empty()) {
        if (verb.empty())
            return "error: empty command";
        static const char* const core[] = {"event", "send", "unplug", "plug", "fault"};
        const bool known = std::find(std::begin(core), std::end(core), verb) != std::end(core);
        return known ? "error: " + verb + " needs a board" : "error: unknown command '" + verb + "'";
    }
    Board* board = findBoard(boardToken);
    if (!board)
        return "error: no board '" + boardToken + "'";

    auto needsArgument = [&](const char* what) { return "error: " + verb + " needs " + what; };
    auto noArgument = [&] { return "error: " + verb + " takes only a board"; };
    std::string error;
    if (verb == "event") {
        if (!hasRest)
            return needsArgument("a line of text");
        error = board->sendLine(rest);
    } else if (verb == "send") {
        std::string bytes;
        if (!hasRest || !hexDecode(rest, bytes) || bytes.empty())
            return needsArgument("hex pairs");
        error = board->sendRaw(bytes);
    } else if (verb == "unplug") {
        if (hasRest)
            return noArgument();
        error = board->unplug();
    } else if (verb == "plug") {
        if (hasRest)
            return noArgument();
        error = board->plug();
    } else if (verb == "fault") {
        if (!hasRest)
            return needsArgument("a fault FAULT or 'clear'");
        error = board->setFault(rest);
    } else {
        error = board->personalityControl(verb, rest);
    }
    return error.empty() ? "ok" : "error: " + error;
}

void runControlLoop(Simulator& simulator, int controlFd, int stopFd)
{
    simulator.emit("ready");
    // Control lines may carry long hex strings; the limit only guards memory.
    LineReader reader(1 << 20);
    char buf[4096];
    while (!simulator.quitRequested()) {
        pollfd fds[2] = {{controlFd, POLLIN, 0}, {stopFd, POLLIN, 0}};
        const int n = ::poll(fds, stopFd >= 0 ? 2 : 1, -1);
        if (n < 0) {
            if (errno == EINTR)
                continue;
            std::cerr << "boardsim: poll: " << std::strerror(errno) << std::endl;
            return;
        }
        if (stopFd >= 0 && fds[1].revents)
            return;
        if (!fds[0].revents)
            continue;
        const ssize_t got = ::read(controlFd, buf, sizeof buf);
        if (got < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (got <= 0)
            return;
        for (auto& received : reader.feed(buf, static_cast<std::size_t>(got))) {
            std::string& line = received.text;
            if (!line.empty() && line.back() == '\r')
                line.pop_back();
            if (line.empty())
                continue;
            if (received.cut) {
                simulator.emit("error: control line too long");
                continue;
            }
            simulator.emit(simulator.control(line));
            if (simulator.quitRequested())
                return;
        }
    }
}

} // namespace boardsim
