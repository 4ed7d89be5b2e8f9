// One pseudo-terminal standing in for a board's USB serial adapter.
#pragma once

#include <string>

namespace boardsim {

class Pty {
public:
    Pty() = default;
    ~Pty() { close(); }
    Pty(const Pty&) = delete;
    Pty& operator=(const Pty&) = delete;

    // Creates the pair: master non-blocking, slave opened here and kept open
    // so the product can open and close its end freely without the master
    // ever seeing a hangup. The slave starts raw at 1200 baud.
    bool open(std::string& error);
    // Closes both ends; whoever has the slave open sees a hangup.
    void close();

    bool isOpen() const { return master_ >= 0; }
    int master() const { return master_; }
    const std::string& slavePath() const { return slavePath_; }

    // Flips the slave's speed between 1200 and 2400 baud, keeping every other
    // setting the product made. A pty drops the parity flag, so a product that
    // sets the same 8E1 configuration twice would otherwise send a request
    // that changes nothing and have it refused; our flip guarantees its next
    // request is a change. Speed has no effect on a pty's data.
    bool toggleSpeed(std::string& error);
    // Puts the speed back to one of ours if the host has configured the port
    // since the last line: a host that configures, says nothing and comes
    // back later (a presence check run twice) would otherwise repeat an
    // unchanged request.
    bool reclaimSpeed(std::string& error);

private:
    int master_ = -1;
    int slave_ = -1; // never read: it only holds the tty open
    std::string slavePath_;
};

// Publishes `target` as the symlink `link`, replacing an older symlink there
// atomically. Fails if `link` exists and is not a symlink.
bool publishLink(const std::string& link, const std::string& target, std::string& error);
// Removes `link` if it still points at `target` (another process may own it now).
void removeLink(const std::string& link, const std::string& target);

} // namespace boardsim
