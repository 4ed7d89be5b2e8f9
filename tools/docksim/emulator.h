// The docks behind the socket: the registry they publish, the user-client
// connections the product opens on the USB driver, and the completions of
// its asynchronous calls. Single-threaded: the server calls it from its loop.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "docksim/dock.h"
#include "docksim/json.h"
#include "docksim/options.h"
#include "docksim/registry.h"

namespace docksim {

// The driver kit's result codes the emulator answers with.
namespace result {
constexpr uint32_t kSuccess = 0;
constexpr uint32_t kError = 0xE00002BC;
constexpr uint32_t kBadArgument = 0xE00002C2;
constexpr uint32_t kExclusiveAccess = 0xE00002C5;
constexpr uint32_t kUnsupported = 0xE00002C7;
constexpr uint32_t kNotOpen = 0xE00002CD;
constexpr uint32_t kNotAttached = 0xE00002D9;
constexpr uint32_t kSendInvalidDest = 0x10000003;
} // namespace result

class Emulator {
public:
    using Clock = std::chrono::steady_clock;
    using Output = std::function<void(const std::string&)>;
    static constexpr std::chrono::milliseconds kLateDelay{1500};

    struct Outgoing {
        int client;
        std::string line;
    };

    // `log` receives the "cdb ..." and "tbt ..." lines when logging is on.
    Emulator(const Options& options, Output log);
    ~Emulator();

    // Answers one request of `client`; completions it causes are queued.
    Json request(int client, const Json& request);
    // The client's socket closed: its connections close with it.
    void clientGone(int client);
    // Completions due by `now`, in the order they were made.
    std::vector<Outgoing> takeDue(Clock::time_point now);
    std::optional<Clock::time_point> nextDue() const;

    std::size_t dockCount() const { return docks_.size(); }
    Dock& dock(std::size_t index) { return *docks_.at(index); }
    void plug(std::size_t index) { docks_.at(index)->plug(registry_); }
    void unplug(std::size_t index);

private:
    struct Connection {
        int client;
        int dock;
        bool userClientOpen = false;
    };
    struct Pending {
        Clock::time_point due;
        int client;
        int dock;
        int64_t call;
        uint32_t result;
        std::vector<uint8_t> data;
    };
    using Op = Json (Emulator::*)(int client, const Json& request, uint32_t& result);
    static const std::pair<const char*, Op> kOps[];

    Json match(int, const Json& rq, uint32_t& result);
    Json path(int, const Json& rq, uint32_t& result);
    Json lookup(int, const Json& rq, uint32_t& result);
    Json parent(int, const Json& rq, uint32_t& result);
    Json children(int, const Json& rq, uint32_t& result);
    Json search(int, const Json& rq, uint32_t& result);
    Json getProperties(int, const Json& rq, uint32_t& result);
    Json setProperties(int, const Json& rq, uint32_t& result);
    Json open(int client, const Json& rq, uint32_t& result);
    Json close(int client, const Json& rq, uint32_t& result);
    Json scalar(int client, const Json& rq, uint32_t& result);
    Json async(int client, const Json& rq, uint32_t& result);

    // The entry named by the request's `entry`, or null with `result` set.
    RegistryEntry* entryOf(const Json& rq, uint32_t& result);
    Connection* connectionOf(int client, const Json& rq, uint32_t& result);
    void log(const std::string& line);

    Registry registry_;
    std::vector<std::unique_ptr<Dock>> docks_;
    std::map<int64_t, Connection> connections_;
    int64_t nextConnection_ = 1000000; // apart from entry numbers, so a mix-up shows
    std::vector<Pending> pending_;
    bool logging_;
    Output log_;
};

} // namespace docksim
