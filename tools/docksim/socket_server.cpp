#include "docksim/socket_server.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <iostream>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include "docksim/control_lines.h"
#include "docksim/emulator.h"
#include "docksim/json.h"

namespace docksim {

namespace {

// A peer that stops reading is dropped rather than allowed to eat memory.
constexpr std::size_t kMaxBacklog = 64u << 20;

void warn(const std::string& what) { std::cerr << "docksim: " << what << std::endl; }

} // namespace

SocketServer::SocketServer(Emulator& emulator, ControlLines& control, Output output)
    : emulator_(emulator), control_(control), output_(std::move(output))
{
}

SocketServer::~SocketServer()
{
    while (!clients_.empty())
        drop(clients_.begin());
    if (listenFd_ >= 0) {
        ::close(listenFd_);
        ::unlink(path_.c_str());
    }
}

bool SocketServer::listen(const std::string& path, std::string& error)
{
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    if (path.size() >= sizeof addr.sun_path) {
        error = "socket path '" + path + "' is too long";
        return false;
    }
    std::memcpy(addr.sun_path, path.c_str(), path.size() + 1);
    struct stat st {};
    if (::lstat(path.c_str(), &st) == 0) {
        // A socket left by a docksim that died may go; anything else stays.
        const int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool alive = probe >= 0 && ::connect(probe, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
        if (probe >= 0)
            ::close(probe);
        if (!S_ISSOCK(st.st_mode) || alive) {
            error = path + " exists" + (alive ? " and is in use" : " and is not a socket");
            return false;
        }
        ::unlink(path.c_str());
    }
    listenFd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (listenFd_ < 0 || ::bind(listenFd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
        ::listen(listenFd_, 16) != 0) {
        error = "cannot listen on " + path + ": " + std::strerror(errno);
        if (listenFd_ >= 0)
            ::close(listenFd_);
        listenFd_ = -1;
        return false;
    }
    path_ = path;
    return true;
}

void SocketServer::accept()
{
    for (;;) {
        const int fd = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0)
            return;
        clients_.push_back(Client{fd, nextClient_++, {}, {}});
    }
}

void SocketServer::drop(std::list<Client>::iterator it)
{
    emulator_.clientGone(it->id);
    ::close(it->fd);
    clients_.erase(it);
}

bool SocketServer::readFrom(Client& client)
{
    char buf[65536];
    const ssize_t got = ::read(client.fd, buf, sizeof buf);
    if (got < 0)
        return errno == EAGAIN || errno == EINTR;
    if (got == 0)
        return false;
    client.in.append(buf, static_cast<std::size_t>(got));
    std::size_t start = 0;
    for (std::size_t nl; (nl = client.in.find('\n', start)) != std::string::npos; start = nl + 1) {
        if (client.discarding)
            client.discarding = false;
        else
            handleLine(client, client.in.substr(start, nl - start));
    }
    client.in.erase(0, start);
    if (client.in.size() > kMaxLine) {
        if (!client.discarding)
            warn("connection " + std::to_string(client.id) + ": line over 1 MiB ignored");
        client.discarding = true;
        client.in.clear();
    }
    return true;
}

void SocketServer::handleLine(Client& client, const std::string& line)
{
    Json request;
    std::string error;
    const Json* id = nullptr;
    if (!Json::parse(line, request, error) || !request.isObject()) {
        warn("connection " + std::to_string(client.id) + ": not a JSON object (" +
             (error.empty() ? "another value" : error) + "); ignored");
        return;
    }
    if (!(id = request.find("id")) || !id->isInt() || id->asInt() <= 0) {
        warn("connection " + std::to_string(client.id) + ": request without a positive integer id; ignored");
        return;
    }
    client.out += emulator_.request(client.id, request).dump() + "\n";
}

bool SocketServer::flush(Client& client)
{
    while (!client.out.empty()) {
        const ssize_t n = ::send(client.fd, client.out.data(), client.out.size(), MSG_NOSIGNAL);
        if (n < 0 && (errno == EPIPE || errno == ECONNRESET)) {
            // The product went away with a completion still due; the read side
            // sees the hang-up and drops the connection quietly.
            client.out.clear();
            return true;
        }
        if (n < 0)
            return errno == EAGAIN || errno == EINTR ? client.out.size() < kMaxBacklog : false;
        client.out.erase(0, static_cast<std::size_t>(n));
    }
    return true;
}

void SocketServer::sendDue()
{
    for (const auto& outgoing : emulator_.takeDue(Emulator::Clock::now()))
        for (Client& c : clients_)
            if (c.id == outgoing.client)
                c.out += outgoing.line + "\n";
}

bool SocketServer::readControl(int fd, std::string& buffer)
{
    char buf[4096];
    const ssize_t got = ::read(fd, buf, sizeof buf);
    if (got < 0)
        return errno == EINTR || errno == EAGAIN;
    if (got == 0)
        return false;
    buffer.append(buf, static_cast<std::size_t>(got));
    for (std::size_t nl; (nl = buffer.find('\n')) != std::string::npos && !control_.quitRequested();) {
        std::string line = buffer.substr(0, nl);
        buffer.erase(0, nl + 1);
        if (!line.empty() && line.back() == '\r')
            line.pop_back();
        if (line.find_first_not_of(" \t") != std::string::npos)
            output_(control_.run(line));
    }
    if (buffer.size() > kMaxLine) {
        output_("error: control line too long");
        buffer.clear();
    }
    return !control_.quitRequested();
}

void SocketServer::run(int controlFd, int stopFd)
{
    output_("ready");
    std::string controlBuffer;
    for (;;) {
        std::vector<pollfd> fds{{controlFd, POLLIN, 0}, {stopFd, POLLIN, 0}, {listenFd_, POLLIN, 0}};
        for (const Client& c : clients_)
            fds.push_back({c.fd, static_cast<short>(POLLIN | (c.out.empty() ? 0 : POLLOUT)), 0});
        int timeout = -1;
        if (const auto due = emulator_.nextDue()) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(*due - Emulator::Clock::now());
            timeout = static_cast<int>(std::max<long long>(0, left.count() + 1));
        }
        if (::poll(fds.data(), fds.size(), timeout) < 0 && errno != EINTR) {
            warn(std::string("poll: ") + std::strerror(errno));
            return;
        }
        if (fds[1].revents)
            return;
        if (fds[0].revents && !readControl(controlFd, controlBuffer))
            return;
        if (fds[2].revents)
            accept();
        // Clients accepted just now have no slot yet; the next round reads them.
        auto it = clients_.begin();
        for (std::size_t i = 3; i < fds.size() && it != clients_.end(); ++i) {
            const bool alive = !(fds[i].revents & (POLLIN | POLLHUP | POLLERR)) || readFrom(*it);
            auto current = it++;
            if (!alive)
                drop(current);
        }
        sendDue();
        for (auto c = clients_.begin(); c != clients_.end();) {
            auto current = c++;
            if (!flush(*current)) {
                warn("connection " + std::to_string(current->id) + " dropped: it does not take what is sent");
                drop(current);
            }
        }
    }
}

} // namespace docksim
