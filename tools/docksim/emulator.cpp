#include "docksim/emulator.h"

#include <algorithm>
#include <cstdio>

#include "docksim/tbt_dock.h"
#include "docksim/usb_dock.h"

namespace docksim {

namespace {

constexpr std::size_t kCdbSize = 16;
constexpr int kCompletionArgs = 3;
constexpr int64_t kExecuteCommand = 2;

enum Selector { kOpenUserClient = 0, kCloseUserClient = 1, kPresent = 3 };

bool intField(const Json& rq, const char* key, int64_t& value)
{
    const Json* v = rq.find(key);
    if (!v || !v->isInt())
        return false;
    value = v->asInt();
    return true;
}

const std::string* stringField(const Json& rq, const char* key)
{
    const Json* v = rq.find(key);
    return v && v->isString() ? &v->asString() : nullptr;
}

int hexDigit(char c)
{
    return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// Hex text of either case, as the protocol allows.
bool hexField(const Json& rq, const char* key, std::vector<uint8_t>& out)
{
    const std::string* text = stringField(rq, key);
    if (!text || text->size() % 2)
        return false;
    for (std::size_t i = 0; i < text->size(); i += 2) {
        const int hi = hexDigit((*text)[i]), lo = hexDigit((*text)[i + 1]);
        if (hi < 0 || lo < 0)
            return false;
        out.push_back(static_cast<uint8_t>(hi * 16 + lo));
    }
    return true;
}

// A received command made safe for one line of the log.
std::string printable(const std::string& text)
{
    std::string out;
    for (unsigned char c : text) {
        if (c < 0x20 || c >= 0x7f || c == '\\') {
            char buf[8];
            std::snprintf(buf, sizeof buf, "\\x%02X", c);
            out += buf;
        } else {
            out += static_cast<char>(c);
        }
    }
    return out;
}

Json entryArray(const std::vector<int>& ids)
{
    Json out = Json::array();
    for (int id : ids)
        out.push(id);
    return out;
}

} // namespace

const std::pair<const char*, Emulator::Op> Emulator::kOps[] = {
    {"match", &Emulator::match},           {"path", &Emulator::path},
    {"lookup", &Emulator::lookup},         {"parent", &Emulator::parent},
    {"children", &Emulator::children},     {"search", &Emulator::search},
    {"get_properties", &Emulator::getProperties}, {"set_properties", &Emulator::setProperties},
    {"open", &Emulator::open},             {"close", &Emulator::close},
    {"scalar", &Emulator::scalar},         {"async", &Emulator::async},
};

Emulator::Emulator(const Options& options, Output log) : logging_(options.log), log_(std::move(log))
{
    for (const DockConfig& config : options.docks) {
        const int index = static_cast<int>(docks_.size());
        if (config.kind == 's')
            docks_.push_back(std::make_unique<UsbDock>(index, config));
        else
            docks_.push_back(std::make_unique<TbtDock>(index, config));
        docks_.back()->plug(registry_);
    }
}

Emulator::~Emulator() = default;

void Emulator::log(const std::string& line)
{
    if (logging_ && log_)
        log_(line);
}

void Emulator::unplug(std::size_t index) { docks_.at(index)->unplug(registry_); }

Json Emulator::request(int client, const Json& rq)
{
    Json reply = Json::object();
    int64_t id = 0;
    intField(rq, "id", id);
    reply.set("id", Json(id));
    uint32_t res = result::kBadArgument;
    Json fields = Json::object();
    if (const std::string* op = stringField(rq, "op")) {
        const auto* entry = std::find_if(std::begin(kOps), std::end(kOps),
                                         [&](const auto& e) { return *op == e.first; });
        res = result::kUnsupported;
        if (entry != std::end(kOps)) {
            res = result::kSuccess;
            fields = (this->*entry->second)(client, rq, res);
        }
    }
    reply.set("result", Json(res));
    if (res == result::kSuccess)
        for (const auto& [key, value] : fields.members())
            reply.set(key, value);
    return reply;
}

RegistryEntry* Emulator::entryOf(const Json& rq, uint32_t& res)
{
    int64_t id = 0;
    RegistryEntry* e = nullptr;
    if (!intField(rq, "entry", id) || id <= 0 || id > INT32_MAX || !(e = registry_.find(static_cast<int>(id))))
        res = registry_.removed(static_cast<int>(id)) ? result::kNotAttached : result::kBadArgument;
    return e;
}

Emulator::Connection* Emulator::connectionOf(int client, const Json& rq, uint32_t& res)
{
    int64_t id = 0;
    const auto it = intField(rq, "connection", id) ? connections_.find(id) : connections_.end();
    if (it == connections_.end() || it->second.client != client) {
        res = result::kBadArgument;
        return nullptr;
    }
    return &it->second;
}

Json Emulator::match(int, const Json& rq, uint32_t& res)
{
    const std::string* by = stringField(rq, "by");
    const std::string* value = stringField(rq, "value");
    if (!by || !value || (*by != "name" && *by != "class")) {
        res = result::kBadArgument;
        return {};
    }
    return Json::object().set("entries",
                              entryArray(*by == "name" ? registry_.matchName(*value) : registry_.matchClass(*value)));
}

Json Emulator::path(int, const Json& rq, uint32_t& res)
{
    const RegistryEntry* e = entryOf(rq, res);
    return e ? Json::object().set("path", registry_.path(e->id)) : Json();
}

Json Emulator::lookup(int, const Json& rq, uint32_t& res)
{
    const std::string* p = stringField(rq, "path");
    if (!p) {
        res = result::kBadArgument;
        return {};
    }
    return Json::object().set("entry", registry_.lookup(*p));
}

Json Emulator::parent(int, const Json& rq, uint32_t& res)
{
    const RegistryEntry* e = entryOf(rq, res);
    return e ? Json::object().set("entry", e->parent) : Json();
}

Json Emulator::children(int, const Json& rq, uint32_t& res)
{
    const RegistryEntry* e = entryOf(rq, res);
    return e ? Json::object().set("entries", entryArray(e->children)) : Json();
}

Json Emulator::search(int, const Json& rq, uint32_t& res)
{
    const RegistryEntry* e = entryOf(rq, res);
    const std::string* key = stringField(rq, "key");
    if (!e || !key) {
        res = e ? result::kBadArgument : res;
        return {};
    }
    Json out = Json::object();
    if (const Json* v = registry_.search(e->id, *key))
        out.set("value", *v);
    return out;
}

Json Emulator::getProperties(int, const Json& rq, uint32_t& res)
{
    const RegistryEntry* e = entryOf(rq, res);
    if (!e)
        return {};
    Json properties = e->properties;
    if (e->dock >= 0 && !docks_[e->dock]->usb()) {
        Faults& faults = docks_[e->dock]->faults();
        if (faults.take(Fault::PropertyRead)) {
            res = result::kError;
            return {};
        }
        if (faults.take(Fault::NoHostComms))
            properties.erase("HostComms");
    }
    return Json::object().set("properties", std::move(properties));
}

Json Emulator::setProperties(int, const Json& rq, uint32_t& res)
{
    RegistryEntry* e = entryOf(rq, res);
    if (!e)
        return {};
    const Json* properties = rq.find("properties");
    if (!properties || !properties->isObject()) {
        res = result::kBadArgument;
        return {};
    }
    if (e->dock < 0 || docks_[e->dock]->usb()) {
        res = result::kUnsupported;
        return {};
    }
    const std::string* command = stringField(*properties, "sendCommand");
    if (!command) {
        res = result::kBadArgument;
        return {};
    }
    auto& dock = static_cast<TbtDock&>(*docks_[e->dock]);
    log("tbt " + std::to_string(dock.index()) + " " + printable(*command));
    if (dock.faults().take(Fault::NoReply))
        return Json::object();
    const bool eepromRead = command->size() == 7 && (*command)[0] == 'R';
    std::string reply = dock.faults().take(Fault::Nack) || (eepromRead && dock.faults().take(Fault::EepromReadFail))
                            ? "N" : dock.command(*command);
    if (eepromRead && reply.size() >= 3 && reply[0] == 'R' && dock.faults().take(Fault::EepromFlip)) {
        std::vector<uint8_t> first;
        parseHexBytes(reply.substr(1, 2), first);
        reply.replace(1, 2, hexDigits(first.empty() ? 0xFFu : first[0] ^ 0xFFu, 2));
    }
    e->properties.set("HostComms", Json::object().set("reply", reply));
    return Json::object();
}

Json Emulator::open(int client, const Json& rq, uint32_t& res)
{
    const RegistryEntry* e = entryOf(rq, res);
    int64_t type = 0;
    if (!e)
        return {};
    if (e->dock < 0 || !docks_[e->dock]->usb())
        res = result::kUnsupported;
    else if (!intField(rq, "type", type) || type != 0)
        res = result::kBadArgument;
    if (res != result::kSuccess)
        return {};
    const int64_t number = nextConnection_++;
    connections_.emplace(number, Connection{client, e->dock});
    return Json::object().set("connection", Json(number));
}

Json Emulator::close(int client, const Json& rq, uint32_t& res)
{
    if (connectionOf(client, rq, res)) {
        int64_t id = 0;
        intField(rq, "connection", id);
        connections_.erase(id);
    }
    return Json::object();
}

Json Emulator::scalar(int client, const Json& rq, uint32_t& res)
{
    Connection* c = connectionOf(client, rq, res);
    int64_t selector = -1;
    const Json* input = rq.find("input");
    if (!c || !intField(rq, "selector", selector) || !input || !input->isArray()) {
        res = result::kBadArgument;
        return {};
    }
    const bool plugged = docks_[c->dock]->plugged();
    switch (selector) {
    case kOpenUserClient: {
        const bool taken = std::any_of(connections_.begin(), connections_.end(), [&](const auto& other) {
            return &other.second != c && other.second.dock == c->dock && other.second.userClientOpen;
        });
        res = !plugged ? result::kNotAttached : taken ? result::kExclusiveAccess : result::kSuccess;
        c->userClientOpen = c->userClientOpen || res == result::kSuccess;
        break;
    }
    case kCloseUserClient:
        res = c->userClientOpen ? result::kSuccess : result::kNotOpen;
        c->userClientOpen = false;
        break;
    case kPresent:
        res = plugged ? result::kSuccess : result::kNotAttached;
        break;
    default:
        res = result::kBadArgument;
    }
    return Json::object();
}

Json Emulator::async(int client, const Json& rq, uint32_t& res)
{
    Connection* c = connectionOf(client, rq, res);
    int64_t selector = -1, call = 0;
    const Json* input = rq.find("input");
    std::vector<uint8_t> cdb;
    if (!c || !intField(rq, "selector", selector) || selector != kExecuteCommand || !intField(rq, "call", call) ||
        !input || !input->isArray() || input->items().size() < 2 || !input->items()[1].isInt() ||
        input->items()[1].asInt() < 0 || !hexField(rq, "struct", cdb) || cdb.size() != kCdbSize) {
        res = result::kBadArgument;
        return {};
    }
    if (!c->userClientOpen) {
        res = result::kNotOpen;
        return {};
    }
    auto& dock = static_cast<UsbDock&>(*docks_[c->dock]);
    log("cdb " + hexBytes(cdb.data(), cdb.size()));
    Faults& faults = dock.faults();
    if (faults.take(Fault::InvalidDest)) {
        res = result::kSendInvalidDest;
        return {};
    }
    Pending p{Clock::now(), client, c->dock, call, result::kSuccess, {}};
    const bool eepromRead = cdb[0] == 0xDE && cdb[1] == 0x0C;
    if (!dock.plugged() || faults.take(Fault::NotAttached))
        p.result = result::kNotAttached;
    else if (faults.take(Fault::IoError) || (eepromRead && faults.take(Fault::EepromReadFail)))
        p.result = result::kError;
    else if (faults.take(Fault::NoReply))
        return Json::object();
    else if (!dock.execute(cdb.data(), p.data))
        p.result = result::kUnsupported;
    if (p.result != result::kSuccess) {
        p.data.clear();
    } else {
        if (eepromRead && p.data.size() > 2 && faults.take(Fault::EepromFlip))
            p.data[2] ^= 0xFF;
        if (faults.take(Fault::WrongSubcode))
            p.data[0] ^= 0x80;
        else if (faults.take(Fault::Late))
            p.due += kLateDelay;
        // The driver never writes past the buffer the caller announced.
        p.data.resize(std::min<std::size_t>(p.data.size(), static_cast<std::size_t>(input->items()[1].asInt())));
    }
    pending_.push_back(std::move(p));
    return Json::object();
}

void Emulator::clientGone(int client)
{
    for (auto it = connections_.begin(); it != connections_.end();)
        it = it->second.client == client ? connections_.erase(it) : std::next(it);
    pending_.erase(std::remove_if(pending_.begin(), pending_.end(), [&](const Pending& p) { return p.client == client; }),
                   pending_.end());
}

std::vector<Emulator::Outgoing> Emulator::takeDue(Clock::time_point now)
{
    std::vector<Outgoing> out;
    for (auto it = pending_.begin(); it != pending_.end();) {
        if (it->due > now) {
            ++it;
            continue;
        }
        // A late completion for a dock unplugged meanwhile finds it gone.
        if (!docks_[it->dock]->plugged() && it->result == result::kSuccess) {
            it->result = result::kNotAttached;
            it->data.clear();
        }
        Json line = Json::object();
        line.set("completion", Json(it->call))
            .set("result", Json(it->result))
            .set("data", hexBytes(it->data.data(), it->data.size()))
            .set("argc", kCompletionArgs);
        out.push_back({it->client, line.dump()});
        it = pending_.erase(it);
    }
    return out;
}

std::optional<Emulator::Clock::time_point> Emulator::nextDue() const
{
    std::optional<Clock::time_point> next;
    for (const Pending& p : pending_)
        if (!next || p.due < *next)
            next = p.due;
    return next;
}

} // namespace docksim
