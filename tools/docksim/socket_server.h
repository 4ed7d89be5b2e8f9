// The Unix socket the product connects to, and docksim's one loop: requests
// from any number of connections (each served in the order it sent them),
// completions when they fall due, and control lines from stdin.
#pragma once

#include <functional>
#include <list>
#include <string>

namespace docksim {

class ControlLines;
class Emulator;

class SocketServer {
public:
    static constexpr std::size_t kMaxLine = 1 << 20;
    // Receives every line meant for stdout.
    using Output = std::function<void(const std::string&)>;

    SocketServer(Emulator& emulator, ControlLines& control, Output output);
    ~SocketServer(); // closes the connections and removes the socket file
    SocketServer(const SocketServer&) = delete;
    SocketServer& operator=(const SocketServer&) = delete;

    bool listen(const std::string& path, std::string& error);
    // Prints "ready", then serves until "quit", end of file on `controlFd`, or
    // `stopFd` becoming readable (a signal's self-pipe; -1 for none).
    void run(int controlFd, int stopFd);

private:
    struct Client {
        int fd;
        int id;
        std::string in;
        std::string out;
        bool discarding = false; // in the rest of an over-long line
    };

    void accept();
    bool readFrom(Client& client); // false when the connection ended
    void handleLine(Client& client, const std::string& line);
    bool flush(Client& client);
    void sendDue();
    void drop(std::list<Client>::iterator it);
    bool readControl(int fd, std::string& buffer);

    Emulator& emulator_;
    ControlLines& control_;
    Output output_;
    std::string path_;
    int listenFd_ = -1;
    int nextClient_ = 1;
    std::list<Client> clients_;
};

} // namespace docksim
