// Tests of the dock emulator: its command line and JSON reader in-process,
// and the docks it publishes driven as a child process over its socket and
// control lines, the way the product and a test script would.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <sys/socket.h>
#include <sys/un.h>
#include <zlib.h>

#include "docksim/json.h"
#include "docksim/options.h"
#include "support/EmulatorTestKit.h"

using namespace emutest;
using namespace docksim;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

const std::string kUsbDriver = "com_tarvoworks_driver_usbDockDriver";
const std::string kTbtDriver = "com_tarvoworks_driver_TbtDockDriver";
constexpr int64_t kNotAttached = 0xE00002D9;

Json parsed(const std::string& text)
{
    Json j;
    std::string error;
    return Json::parse(text, j, error) ? j : Json("unparsable: " + text);
}

// docksim as a child process with its own socket directory.
class Docksim {
public:
    explicit Docksim(std::vector<std::string> args)
    {
        args.insert(args.begin(), {DOCKSIM_PATH, "--socket", socketPath()});
        child_ = std::make_unique<Child>(args);
        ready_ = child_->out.line() == "ready";
    }
    ~Docksim()
    {
        child_->in.close(); // end of file on stdin ends it
        child_->wait();
    }

    bool ready() const { return ready_; }
    std::string socketPath() const { return dir_.path + "/dock.sock"; }
    int exitStatus() { return child_->wait(); }

    // Sends a control line; returns its answer, keeping other lines printed.
    std::string control(const std::string& line)
    {
        if (!child_->in.write(line + "\n"))
            return "<unwritten>";
        for (;;) {
            std::string l = child_->out.line();
            if (l == "ok" || l.rfind("error: ", 0) == 0 || l[0] == '<')
                return l;
            printed_.push_back(l);
        }
    }
    // Waits for a printed line other than an answer.
    bool printed(const std::string& line)
    {
        for (;;) {
            for (const auto& p : printed_)
                if (p == line)
                    return true;
            std::string l = child_->out.line();
            if (l[0] == '<')
                return false;
            printed_.push_back(l);
        }
    }

private:
    TempDir dir_;
    std::unique_ptr<Child> child_;
    std::vector<std::string> printed_;
    bool ready_ = false;
};

// One product connection: requests with fresh ids, completions kept aside.
class Client {
public:
    explicit Client(const std::string& path)
    {
        const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
        connected_ = ::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
        in_.fd = fd;
    }
    bool connected() const { return connected_; }

    bool sendRaw(const std::string& text)
    {
        for (size_t done = 0; done < text.size();) {
            const ssize_t n = ::send(in_.fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
            if (n <= 0)
                return false;
            done += static_cast<size_t>(n);
        }
        return true;
    }
    // The reply to `request` (an object without "id").
    Json ask(Json request)
    {
        const int64_t id = nextId_++;
        request.set("id", Json(id));
        if (!sendRaw(request.dump() + "\n"))
            return Json("<unsent>");
        return replyTo(id);
    }
    Json replyTo(int64_t id)
    {
        for (;;) {
            const std::string l = in_.line();
            if (l[0] == '<')
                return Json(l);
            Json j = parsed(l);
            if (j.find("completion"))
                completions_.push_back(j);
            else if (const Json* got = j.find("id"); got && got->asInt() == id)
                return j;
        }
    }
    // The completion of `call`, or a string saying none came.
    Json completion(int64_t call, std::chrono::milliseconds limit = kWait)
    {
        const auto deadline = Clock::now() + limit;
        for (;;) {
            for (auto it = completions_.begin(); it != completions_.end(); ++it)
                if (it->find("completion")->asInt() == call) {
                    Json c = *it;
                    completions_.erase(it);
                    return c;
                }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
                return Json("<no completion>");
            const std::string l = in_.line(left);
            if (l[0] != '<')
                completions_.push_back(parsed(l));
        }
    }

    // Shorthands for the requests the product makes.
    std::vector<int64_t> match(const std::string& by, const std::string& value)
    {
        std::vector<int64_t> out;
        const Json entries = field(ask(Json::object().set("op", "match").set("by", by).set("value", value)), "entries");
        for (const Json& e : entries.items())
            out.push_back(e.asInt());
        return out;
    }
    Json entryOp(const char* op, int64_t entry, const char* wanted)
    {
        return field(ask(Json::object().set("op", op).set("entry", Json(entry))), wanted);
    }
    int64_t resultOf(const Json& reply) { return reply.find("result") ? reply.find("result")->asInt() : -1; }
    static Json field(const Json& reply, const char* name)
    {
        const Json* f = reply.find(name);
        return f ? *f : Json("<no " + std::string(name) + " in " + reply.dump() + ">");
    }

    // Opens the user client of the first USB dock driver service.
    int64_t openUsb()
    {
        const auto services = match("name", kUsbDriver);
        if (services.empty())
            return 0;
        const int64_t c = field(ask(Json::object().set("op", "open").set("entry", Json(services[0])).set("type", 0)),
                                "connection").asInt();
        ask(scalar(c, 0));
        return c;
    }
    static Json scalar(int64_t connection, int selector)
    {
        return Json::object().set("op", "scalar").set("connection", Json(connection)).set("selector", selector).set("input", Json::array());
    }
    // Sends a command block; the whole completion, or a string when none.
    Json cdb(int64_t connection, const std::string& block, int length, int64_t* result = nullptr,
             std::chrono::milliseconds limit = kWait)
    {
        const int64_t call = nextCall_++;
        Json input = Json::array();
        input.push(Json(int64_t(0x7000))).push(length);
        const Json r = ask(Json::object().set("op", "async").set("connection", Json(connection)).set("selector", 2)
                               .set("call", Json(call)).set("input", input).set("struct", block));
        if (result)
            *result = resultOf(r);
        return resultOf(r) == 0 ? completion(call, limit) : r;
    }
    // The reply text of a Thunderbolt command.
    std::string tbt(int64_t entry, const std::string& command)
    {
        const Json set = ask(Json::object().set("op", "set_properties").set("entry", Json(entry))
                                 .set("properties", Json::object().set("sendCommand", command)));
        if (resultOf(set) != 0)
            return "<set failed>";
        const Json props = field(ask(Json::object().set("op", "get_properties").set("entry", Json(entry))), "properties");
        const Json* comms = props.find("HostComms");
        return comms && comms->find("reply") ? comms->find("reply")->asString() : "<no reply>";
    }

private:
    Stream in_;
    bool connected_ = false;
    int64_t nextId_ = 1, nextCall_ = 100;
    std::vector<Json> completions_;
};

std::string dataOf(const Json& completion) { return Client::field(completion, "data").asString(); }

// A command block: opcode DE, the subcode and argument bytes, zero-padded.
std::string block(std::vector<uint8_t> bytes, uint8_t opcode = 0xDE)
{
    bytes.insert(bytes.begin(), opcode);
    bytes.resize(16, 0);
    return hex(bytes);
}

// An XBoot2 request as the product builds it: lower-case hex and a CRC-32
// of the raw bytes.
std::string xboot2(char request, const std::vector<uint8_t>& data)
{
    std::vector<uint8_t> raw{static_cast<uint8_t>(request)};
    raw.insert(raw.end(), data.begin(), data.end());
    const uint32_t crc = static_cast<uint32_t>(::crc32(0, raw.data(), static_cast<uInt>(raw.size())));
    std::string text = "*" + std::string(1, request) + hex(data) + hex({uint8_t(crc >> 24), uint8_t(crc >> 16), uint8_t(crc >> 8), uint8_t(crc)});
    for (size_t i = 2; i < text.size(); ++i)
        text[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(text[i])));
    return text;
}

} // namespace

// ---------------------------------------------------------------------------
// In process: the command line and the JSON reader

TEST(DocksimOptions, MistakesAreRejected)
{
    const std::vector<std::vector<std::string>> bad = {
        {"--dock", "s"},                                             // no socket
        {"--socket", "/tmp/x"},                                      // no dock
        {"--socket", "/tmp/x", "--dock", "q"},                       // unknown type
        {"--socket", "/tmp/x", "--id", "1", "--dock", "m"},          // per-dock option before a dock
        {"--socket", "/tmp/x", "--dock", "m", "--id", "10"},         // id is one digit
        {"--socket", "/tmp/x", "--dock", "s", "--version", "1.2"},   // USB version is A.B.C
        {"--socket", "/tmp/x", "--dock", "s", "--version", "1.2.256"},
        {"--socket", "/tmp/x", "--dock", "m", "--twin"},             // twin is USB only
        {"--socket", "/tmp/x", "--dock", "s", "--fault", "nack"},    // a Thunderbolt fault
        {"--socket", "/tmp/x", "--dock", "m", "--fault", "nack=0"},
        {"--socket", "/tmp/x", "--dock", "m", "--fault"},
    };
    for (const auto& args : bad) {
        Options o;
        std::string error;
        EXPECT_FALSE(parseOptions(args, o, error)) << args.back();
        EXPECT_FALSE(error.empty()) << args.back();
    }
    Options o;
    std::string error;
    ASSERT_TRUE(parseOptions({"--socket", "/tmp/x", "--dock", "s", "--twin", "--version", "2.10.3", "--dock", "n",
                              "--id", "7", "--fault", "nack=always"}, o, error)) << error;
    EXPECT_EQ(o.docks.size(), 2u);
    EXPECT_EQ(o.docks[1].id, 7);
    EXPECT_TRUE(o.docks[0].twin);
}

TEST(DocksimJson, ParsesStrictJsonAndRefusesTheRest)
{
    const std::pair<const char*, const char*> good[] = {
        {R"( {"a": [1, -2, true, null], "b": {"c": "x\"\u00e9\ud83d\ude00"}} )",
         "{\"a\":[1,-2,true,null],\"b\":{\"c\":\"x\\\"\xC3\xA9\xF0\x9F\x98\x80\"}}"},
        {"-9223372036854775808", "-9223372036854775808"},
        {"\"tab\\there\\u0001\"", "\"tab\\there\\u0001\""},
    };
    for (const auto& [text, dumped] : good) {
        Json j;
        std::string error;
        ASSERT_TRUE(Json::parse(text, j, error)) << text << ": " << error;
        EXPECT_EQ(j.dump(), dumped);
    }
    const char* bad[] = {"", "{", "{\"a\":1,}", "[1 2]", "{\"a\":1,\"a\":2}", "1.5", "1e3", "01",
                         "9223372036854775808", "\"\\ud800\"", "\"a\nb\"", "tru", "{} x", "'a'",
                         "{\"a\" 1}", "\"\\q\""};
    for (const char* text : bad) {
        Json j;
        std::string error;
        EXPECT_FALSE(Json::parse(text, j, error)) << text;
    }
    std::string deep(65 + 1, '[');
    Json j;
    std::string error;
    EXPECT_FALSE(Json::parse(deep + std::string(66, ']'), j, error)) << "nesting is limited";
}

// ---------------------------------------------------------------------------
// The USB dock

TEST(DocksimUsb, CommandBlocksAreAnsweredWithTheirReplyLayouts)
{
    Docksim sim({"--dock", "s", "--version", "2.10.3"});
    ASSERT_TRUE(sim.ready());
    Client c(sim.socketPath());
    const int64_t conn = c.openUsb();
    ASSERT_GT(conn, 0);
    struct Row {
        std::vector<uint8_t> cdb;
        int length;
        std::string reply;
    };
    const std::string serial0 = hex({'S', 'I', 'M', 'D', 'I', 'S', 'K', '0', '0', 'Z', '0'});
    const Row rows[] = {
        // status: diskpack in (bits 0, 3), temperature 30 << 4 = 0x01E0 valid
        {{0x00}, 16, "0009000055E001" + std::string(18, '0')},
        {{0x00}, 128, "0009000055E001" + std::string(2 * 121, '0')},
        {{0x05}, 4, "05020A03"},                               // firmware 2.10.3, cut to 4 bytes
        {{0x04}, 9, "042853494D000D0000"},                       // GUID bytes 1..8 (9 bytes: first 8 shown)
        {{0x0A}, 3, "0AE001"},                                 // 30 degrees << 4, little-endian
        {{0x0F, 0}, 4, "0F55022F"},                            // 12034 mV
        {{0x0F, 1}, 4, "0F55E10C"},                            // 3297 mV
        {{0x0F, 2}, 2, "0F4E"},                                // no such rail
        {{0x0D}, 3, "0D5501"},                                 // diskpack id 1
        {{0x0E, 0}, 15, "0E0055" + hex({11}) + serial0},       // disk serial: index, U, length, text
        {{0x0E, 2}, 3, "0E024E"},                              // only disks 0 and 1
        {{0x07, 1}, 2, "0755"},
        {{0x06}, 3, "065501"},                                 // write protect as just set
        {{0x0B, 30, 0, 4, 1, 2, 3, 4}, 2, "0B55"},             // crosses the page end at 32: wraps to 0
        {{0x0C, 30, 0, 2}, 4, "0C550102"},
        {{0x0C, 0, 0, 2}, 4, "0C550304"},
        {{0x0C, 0, 2, 1}, 3, "0C4E00"},                        // address 512 is past the end
        {{0x0B, 0, 0, 12}, 2, "0B4E"},                         // at most 11 bytes a block
        {{0x02, 255, 0, 0, 1, 0}, 2, "0255"},
        {{0x03}, 7, "0355FF00000100"},                         // the LED as set
        {{0x10, 1, 0, 0, 255, 0}, 2, "1055"},
        {{0x08}, 2, "084E"},                                   // unused subcode
        {{0x11}, 2, "114E"},
    };
    for (const Row& row : rows) {
        const Json done = c.cdb(conn, block(row.cdb), row.length);
        EXPECT_EQ(dataOf(done), row.reply.substr(0, 2 * row.length)) << block(row.cdb);
        EXPECT_EQ(Client::field(done, "argc").asInt(), 3);
    }
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x00, 0x40, 0xC0}, 0xE4), 2)), "0055") << "firmware upgrade start";
    EXPECT_EQ(sim.control("check led 255,0,0,1,0"), "ok") << "LED bytes start at the block's byte 2";
    EXPECT_EQ(sim.control("check dockled 1,0,0,255,0"), "ok");
    EXPECT_EQ(sim.control("check eeprom:1E 01020304"), "error: check: eeprom:1E is 0102FFFF, not 01020304");
    EXPECT_EQ(sim.control("check eeprom:0 0304"), "ok");
    EXPECT_EQ(sim.control("check upgrades 1"), "ok");
    EXPECT_EQ(Client::field(c.cdb(conn, block({0x00}, 0x12), 16), "result").asInt(), 0xE00002C7) << "unknown opcode";
}

TEST(DocksimUsb, StatusFollowsTheControlLines)
{
    Docksim sim({"--dock", "s"});
    Client c(sim.socketPath());
    const int64_t conn = c.openUsb();
    const std::pair<const char*, std::string> steps[] = {
        {"button down", "0009000255E001"},
        {"diskpack-temp -2", "0009000255E0FF"},
        {"led on", "0009000255E0FF000000000001"},
        {"diskpack out", "00000002000000000000000001"},
    };
    for (const auto& [line, status] : steps) {
        ASSERT_EQ(sim.control(line), "ok") << line;
        EXPECT_EQ(dataOf(c.cdb(conn, block({0x00}), 16)).substr(0, status.size()), status) << line;
    }
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 2)), "0D4E") << "no diskpack, no id";
    EXPECT_EQ(sim.control("dock-temp 40"), "error: the USB dock has no 'dock-temp'");
}

TEST(DocksimUsb, RegistryCountsTheTwinByItsAncestorsLocation)
{
    Docksim sim({"--dock", "s", "--twin", "--id", "2"});
    Client c(sim.socketPath());
    const auto services = c.match("name", kUsbDriver);
    ASSERT_EQ(services.size(), 2u);
    for (int64_t s : services) {
        const Json own = c.entryOp("get_properties", s, "properties");
        EXPECT_FALSE(own.find("locationID")) << "the service itself holds no location";
        const Json found = c.ask(Json::object().set("op", "search").set("entry", Json(s)).set("key", "locationID"));
        EXPECT_EQ(Client::field(found, "value").asInt(), 0x14200000);
        const Json serial =
            c.ask(Json::object().set("op", "search").set("entry", Json(s)).set("key", "USB Serial Number"));
        EXPECT_EQ(Client::field(serial, "value").asString(), "XD100002");
    }
    const Json none = c.ask(Json::object().set("op", "search").set("entry", Json(services[0])).set("key", "nothing"));
    EXPECT_EQ(c.resultOf(none), 0);
    EXPECT_FALSE(none.find("value"));
}

TEST(DocksimUsb, FaultsSpoilTheNextCallsOnly)
{
    Docksim sim({"--dock", "s", "--log", "--fault", "wrong-subcode"});
    Client c(sim.socketPath());
    const int64_t conn = c.openUsb();
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 3)), "8D5501");
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 3)), "0D5501") << "applies once";
    EXPECT_TRUE(sim.printed("cdb " + block({0x0D})));

    struct Row {
        const char* fault;
        int64_t asyncResult;
        int64_t completionResult; // -1: none comes
    };
    const Row rows[] = {
        {"invalid-dest", 0x10000003, -1},
        {"not-attached", 0, 0xE00002D9},
        {"io-error", 0, 0xE00002BC},
    };
    for (const Row& row : rows) {
        ASSERT_EQ(sim.control(std::string("fault ") + row.fault), "ok");
        int64_t result = -1;
        const Json done = c.cdb(conn, block({0x0D}), 3, &result);
        EXPECT_EQ(result, row.asyncResult) << row.fault;
        if (row.completionResult >= 0) {
            EXPECT_EQ(Client::field(done, "result").asInt(), row.completionResult) << row.fault;
            EXPECT_EQ(dataOf(done), "") << row.fault;
        }
    }
    ASSERT_EQ(sim.control("fault no-reply"), "ok");
    EXPECT_EQ(c.cdb(conn, block({0x0D}), 3, nullptr, 2000ms).dump(), "\"<no completion>\"") << "no-reply";

    ASSERT_EQ(sim.control("fault late"), "ok");
    const auto start = Clock::now();
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 3)), "0D5501");
    EXPECT_GE(Clock::now() - start, 1400ms) << "a late completion comes after 1500 ms";
    EXPECT_EQ(sim.control("fault nack"), "error: fault 'nack' does not apply to a USB dock");

    ASSERT_EQ(sim.control("diskpack-id 2"), "ok");
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 3)), "0D5502");
    ASSERT_EQ(sim.control("fault eeprom-read-fail"), "ok");
    int64_t result = -1;
    EXPECT_EQ(Client::field(c.cdb(conn, block({0x0C, 0, 0, 1}), 3, &result), "result").asInt(), 0xE00002BC);
    const std::string plain = dataOf(c.cdb(conn, block({0x0C, 0, 0, 1}), 3));
    ASSERT_EQ(sim.control("fault eeprom-flip"), "ok");
    const std::string flipped = dataOf(c.cdb(conn, block({0x0C, 0, 0, 1}), 3));
    ASSERT_EQ(plain.size(), 6u);
    EXPECT_EQ(std::stoi(plain.substr(4), nullptr, 16) ^ 0xFF, std::stoi(flipped.substr(4), nullptr, 16));
}

TEST(DocksimUsb, UnpluggedDockCompletesNotAttachedAndLeavesMatching)
{
    Docksim sim({"--dock", "s"});
    Client c(sim.socketPath());
    const int64_t conn = c.openUsb();
    const int64_t service = c.match("name", kUsbDriver).at(0);
    ASSERT_EQ(sim.control("unplug"), "ok");
    EXPECT_TRUE(c.match("name", kUsbDriver).empty());
    EXPECT_EQ(Client::field(c.cdb(conn, block({0x00}), 128), "result").asInt(), kNotAttached);
    EXPECT_EQ(c.resultOf(c.ask(Client::scalar(conn, 3))), kNotAttached) << "present? no";
    EXPECT_EQ(c.resultOf(c.ask(Json::object().set("op", "parent").set("entry", Json(service)))), kNotAttached);
    ASSERT_EQ(sim.control("plug"), "ok");
    const auto again = c.match("name", kUsbDriver);
    ASSERT_EQ(again.size(), 1u);
    EXPECT_NE(again[0], service) << "a device plugged in anew is a new entry";
    EXPECT_EQ(c.resultOf(c.ask(Client::scalar(conn, 3))), 0);
    Client other(sim.socketPath());
    const Json open = other.ask(Json::object().set("op", "open").set("entry", Json(again[0])).set("type", 0));
    const int64_t taken = other.resultOf(other.ask(Client::scalar(Client::field(open, "connection").asInt(), 0)));
    EXPECT_EQ(taken, 0xE00002C5) << "the first connection still holds the user client";
}

// ---------------------------------------------------------------------------
// The Thunderbolt docks

TEST(DocksimTbt, CommandsAreAnsweredAsTheFirmwareDoes)
{
    Docksim sim({"--log", "--dock", "m", "--id", "4", "--version", "V2.01", "--dock", "n"});
    Client c(sim.socketPath());
    const auto drivers = c.match("class", kTbtDriver);
    ASSERT_EQ(drivers.size(), 2u);
    struct Row {
        int dock;
        std::string command, reply;
    };
    const Row rows[] = {
        {0, "?", "Thunderbolt Single Dock V2.01"}, {1, "?", "Thunderbolt CD2 Dock 1.0.0"},
        {0, "@", "R4"}, {0, "I", "R1"}, {0, "U", "R2854425451000004"},
        {0, "G0", "R2F02"}, {0, "G4", "R0CE5"}, {0, "G5", "N"}, {1, "G6", "R0387"}, {1, "G7", "N"},
        {0, "X1", "OK"}, {0, "Y0", "R1"}, {0, "Y1", "N"}, {0, "X2", "N"},
        {0, "O", "R04D2"}, {0, "M0", "R1629"}, {0, "M1", "R1830"}, {0, "M2", "N"},
        {0, "W01F0031A2B3C", "OK"}, {0, "R01F003", "R1A2B3C" + std::string(58, 'F')},
        {0, "R01F021", "N"}, {0, "R11F003", "N"}, {0, "W10000100", "N"}, {0, "W01F0031A2B", "N"},
        {0, "w01F0031A2B3C", "N"}, {0, "L7f", "N"}, {0, "LC5", "OK"}, {1, "LC5", "N"}, {1, "L45", "OK"},
        {0, "S1234", "OK"}, {0, "E", "R1234"}, {0, "S123", "N"},
        {0, "t9", "OK"}, {1, "t9", "N"}, {1, "t6", "OK"},
        {0, "F80", "N"}, {1, "F80", "OK"}, {1, "*R2", "OK"}, {0, "*R2", "N"}, {1, "*R4", "N"},
        {0, "Z", "OK"}, {0, "R000020", "R" + std::string(64, 'F')}, {0, "", "N"}, {0, "Q", "N"},
    };
    for (const Row& row : rows)
        EXPECT_EQ(c.tbt(drivers[row.dock], row.command), row.reply) << row.dock << " " << row.command;
    EXPECT_TRUE(sim.printed("tbt 1 *R2"));
    EXPECT_EQ(sim.control("check 1 resetport 2"), "ok");
    EXPECT_EQ(sim.control("check 1 typeid 6"), "ok");
    EXPECT_EQ(sim.control("check 0 led C5"), "ok");
}

TEST(DocksimTbt, EventsQueueAndDrainOneByOne)
{
    Docksim sim({"--dock", "m", "--dock", "n"});
    Client c(sim.socketPath());
    const auto drivers = c.match("class", kTbtDriver);
    EXPECT_EQ(c.tbt(drivers[0], "&"), "") << "nothing queued";
    EXPECT_EQ(c.tbt(drivers[0], "!"), "OK");
    for (const char* event : {"i01", "b0", "t23", "p1E", "l0"})
        EXPECT_EQ(c.tbt(drivers[0], "&"), event);
    EXPECT_EQ(c.tbt(drivers[0], "&"), "");
    EXPECT_EQ(sim.control("dock-temp -10"), "ok");
    EXPECT_EQ(c.tbt(drivers[0], "&"), "") << "no t event before T1";
    EXPECT_EQ(c.tbt(drivers[0], "T1"), "OK");
    const std::pair<const char*, const char*> steps[] = {
        {"dock-temp -10", "tF6"}, {"diskpack fault", "i03"}, {"button down", "b1"}, {"led on", "l1"},
        {"event dHello", "dHello"}, {"diskpack out", "i00"},
    };
    for (const auto& [line, event] : steps) {
        ASSERT_EQ(sim.control(line), "ok") << line;
        EXPECT_EQ(c.tbt(drivers[0], "&"), event) << line;
    }
    EXPECT_EQ(c.tbt(drivers[0], "M1"), "RF630") << "the minimum follows the temperature";
    EXPECT_EQ(c.tbt(drivers[0], "I"), "N") << "no diskpack";
    EXPECT_EQ(sim.control("1 fan 200"), "error: unknown command '1'");
    EXPECT_EQ(sim.control("fan 1 200"), "ok");
    EXPECT_EQ(c.tbt(drivers[1], "&"), "jC8");
    EXPECT_EQ(sim.control("led 1 on"), "error: the CD2 dock reports its fan, not its LED");
}

TEST(DocksimTbt, RegistryLeadsToDiskSerialsAndTheUid)
{
    Docksim sim({"--dock", "m", "--dock", "n"});
    Client c(sim.socketPath());
    const auto drivers = c.match("class", kTbtDriver);
    ASSERT_EQ(drivers.size(), 2u);
    for (int dock = 0; dock < 2; ++dock) {
        // As the product walks it: parent, its first child, the disk branches,
        // then first children down to "Device Characteristics".
        const int64_t parent = c.entryOp("parent", drivers[dock], "entry").asInt();
        const int64_t first = c.entryOp("children", parent, "entries").items().at(0).asInt();
        const Json branches = c.entryOp("children", first, "entries");
        ASSERT_EQ(branches.items().size(), dock ? 4u : 2u);
        for (size_t disk = 0; disk < branches.items().size(); ++disk) {
            int64_t e = branches.items()[disk].asInt();
            std::string serial;
            for (int depth = 0; depth < 5 && serial.empty(); ++depth) {
                const Json dc = Client::field(c.entryOp("get_properties", e, "properties"), "Device Characteristics");
                if (dc.isObject())
                    serial = Client::field(dc, "Serial Number").asString();
                else
                    e = c.entryOp("children", e, "entries").items().at(0).asInt();
            }
            EXPECT_EQ(serial, "SIMDISK" + std::to_string(dock) + std::to_string(disk) + "Z0");
        }
        // Up to the Thunderbolt path, whose target's parent holds the UID.
        int64_t e = drivers[dock];
        std::string path;
        for (int depth = 0; depth < 6 && path.empty() && e; ++depth) {
            const Json p = c.entryOp("get_properties", e, "properties");
            path = p.find("Thunderbolt Path") ? p.find("Thunderbolt Path")->asString() : "";
            e = c.entryOp("parent", e, "entry").asInt();
        }
        const int64_t target = Client::field(c.ask(Json::object().set("op", "lookup").set("path", path)), "entry").asInt();
        ASSERT_GT(target, 0) << path;
        const int64_t port = c.entryOp("parent", target, "entry").asInt();
        EXPECT_EQ(Client::field(c.entryOp("get_properties", port, "properties"), "UID").asInt(), 0x00D1DC5E12340000LL + dock);
    }
    const Json nothing = c.ask(Json::object().set("op", "lookup").set("path", "IOService:/nowhere"));
    EXPECT_EQ(Client::field(nothing, "entry").asInt(), 0);
}

TEST(DocksimTbt, Xboot2PagesRoundTripWithTheirCrc)
{
    Docksim sim({"--dock", "n"});
    Client c(sim.socketPath());
    const int64_t d = c.match("class", kTbtDriver).at(0);
    std::vector<uint8_t> page(514);
    page[0] = 0x00;
    page[1] = 0x05; // page 5
    for (size_t i = 2; i < page.size(); ++i)
        page[i] = static_cast<uint8_t>(i * 7);
    EXPECT_EQ(c.tbt(d, xboot2(':', page)), "N") << "not before %UP";
    EXPECT_EQ(c.tbt(d, "%UP"), "OK");
    EXPECT_EQ(c.tbt(d, xboot2('~', {})), "OK");
    EXPECT_EQ(c.tbt(d, xboot2(':', page)), "OK");
    std::string corrupt = xboot2(':', page);
    corrupt[10] = corrupt[10] == '0' ? '1' : '0';
    EXPECT_EQ(c.tbt(d, corrupt), "N") << "CRC mismatch";
    std::string upper = xboot2(':', page);
    for (auto& ch : upper)
        ch = static_cast<char>(std::toupper(static_cast<unsigned char>(ch)));
    EXPECT_EQ(c.tbt(d, upper), "N") << "the hex is lower case";
    EXPECT_EQ(c.tbt(d, xboot2(':', {0x01, 0x00})), "N") << "short page";

    const std::string read = c.tbt(d, xboot2('$', {0x00, 0x05}));
    ASSERT_EQ(read.size(), 1 + 2 * (512 + 4));
    const std::vector<uint8_t> data(page.begin() + 2, page.end());
    const uint32_t crc = static_cast<uint32_t>(::crc32(0, data.data(), 512));
    EXPECT_EQ(read, "R" + hex(data) + hex({uint8_t(crc >> 24), uint8_t(crc >> 16), uint8_t(crc >> 8), uint8_t(crc)}));
    EXPECT_EQ(c.tbt(d, xboot2('$', {0x01, 0x00})), "N") << "page 256 is past the application section";
    EXPECT_EQ(sim.control("check flash:A00 " + hex(std::vector<uint8_t>(data.begin(), data.begin() + 8))), "ok");
    EXPECT_EQ(c.tbt(d, xboot2('#', {0x02})), "OK");
    EXPECT_EQ(sim.control("check endstatus 2"), "ok");
    EXPECT_EQ(c.tbt(d, xboot2('~', {})), "N") << "the bootloader is left";
}

TEST(DocksimTbt, FaultsAndUnplugFailTheExchange)
{
    Docksim sim({"--dock", "m", "--fault", "nack=2"});
    Client c(sim.socketPath());
    const int64_t d = c.match("class", kTbtDriver).at(0);
    EXPECT_EQ(c.tbt(d, "E"), "N");
    EXPECT_EQ(c.tbt(d, "S0001"), "N");
    EXPECT_EQ(c.tbt(d, "E"), "R04D2") << "two refusals, and S0001 was not carried out";
    ASSERT_EQ(sim.control("fault no-reply"), "ok");
    EXPECT_EQ(c.tbt(d, "@"), "R04D2") << "the old reply stays";
    ASSERT_EQ(sim.control("fault property-read"), "ok");
    EXPECT_EQ(c.resultOf(c.ask(Json::object().set("op", "get_properties").set("entry", Json(d)))), 0xE00002BC);
    ASSERT_EQ(sim.control("fault no-hostcomms"), "ok");
    EXPECT_EQ(c.tbt(d, "@"), "<no reply>");
    EXPECT_EQ(c.tbt(d, "@"), "R0");
    EXPECT_EQ(sim.control("fault late"), "error: fault 'late' does not apply to a Thunderbolt dock");

    ASSERT_EQ(sim.control("diskpack-id 2"), "ok");
    ASSERT_EQ(sim.control("guid 2800000000000001"), "ok");
    EXPECT_EQ(c.tbt(d, "I"), "R2");
    EXPECT_EQ(c.tbt(d, "U"), "R2800000000000001");
    ASSERT_EQ(sim.control("fault eeprom-read-fail"), "ok");
    EXPECT_EQ(c.tbt(d, "R000001"), "N");
    const std::string plain = c.tbt(d, "R000001");
    ASSERT_EQ(sim.control("fault eeprom-flip"), "ok");
    const std::string flipped = c.tbt(d, "R000001");
    EXPECT_EQ(std::stoi(plain.substr(1, 2), nullptr, 16) ^ 0xFF, std::stoi(flipped.substr(1, 2), nullptr, 16));
    EXPECT_EQ(plain.substr(3), flipped.substr(3)) << "only the first byte is spoilt";

    ASSERT_EQ(sim.control("unplug"), "ok");
    EXPECT_EQ(c.tbt(d, "@"), "<set failed>");
    EXPECT_TRUE(c.match("class", kTbtDriver).empty());
    ASSERT_EQ(sim.control("plug"), "ok");
    EXPECT_EQ(c.tbt(c.match("class", kTbtDriver).at(0), "@"), "R0");
}

// ---------------------------------------------------------------------------
// docksim itself

TEST(DocksimProcess, SurvivesBadInputAndAnswersWhatItCan)
{
    Docksim sim({"--dock", "s", "--dock", "m"});
    ASSERT_TRUE(sim.ready());
    Client c(sim.socketPath());
    // Not answered: not JSON, not an object, no usable id; over-long lines.
    for (const std::string& junk : {std::string("nonsense\n"), std::string("[1,2]\n"), std::string("{\"op\":\"match\"}\n"),
                                    std::string("{\"id\":-4,\"op\":\"match\"}\n"), std::string("\xff\xfe{\n"),
                                    std::string(2 << 20, 'x') + "\n", std::string("{\"id\":1,\"op\":\"path\",\"entry\":1}\x00\n", 32)})
        ASSERT_TRUE(c.sendRaw(junk));
    // Answered with a failure: wrong fields.
    const Json failing[] = {
        Json::object().set("op", "fly"),
        Json::object().set("op", "path").set("entry", "1"),
        Json::object().set("op", "path").set("entry", Json(int64_t(1) << 40)),
        Json::object().set("op", "match").set("by", "colour").set("value", "x"),
        Json::object().set("op", "open").set("entry", 1).set("type", 0),
        Json::object().set("op", "scalar").set("connection", 1).set("selector", 0).set("input", Json::array()),
        Json::object().set("op", "async").set("connection", 5).set("selector", 2),
        Json::object().set("op", "set_properties").set("entry", 1).set("properties", Json::object()),
    };
    for (const Json& rq : failing)
        EXPECT_GT(c.resultOf(c.ask(rq)), 0) << rq.dump();
    const int64_t conn = c.openUsb();
    Json shortBlock = Json::object().set("op", "async").set("connection", Json(conn)).set("selector", 2).set("call", 1);
    shortBlock.set("input", Json::array().push(0).push(16)).set("struct", "DE00");
    EXPECT_EQ(c.resultOf(c.ask(shortBlock)), 0xE00002C2) << "a block is 16 bytes";
    EXPECT_EQ(Client::field(c.ask(Json::object().set("op", "path").set("entry", 1)), "path").asString(), "IOService:/");

    const std::pair<const char*, const char*> controls[] = {
        {"frob", "error: unknown command 'frob'"},
        {"diskpack 7 in", "error: no dock '7'"}, {"diskpack", "error: usage: diskpack [D] in|out|fault"},
        {"check 0 nothing 1", nullptr}, {"fault 0 bogus", "error: unknown fault 'bogus'"},
        {"rail 1 9 5000", "error: rail takes a rail 0..4 and millivolts -32768..32767"},
    };
    for (const auto& [line, answer] : controls) {
        const std::string got = sim.control(line);
        if (answer)
            EXPECT_EQ(got, answer) << line;
        else
            EXPECT_EQ(got.rfind("error: check: no field 'nothing'; fields:", 0), 0u) << got;
    }
    EXPECT_EQ(c.match("class", kTbtDriver).size(), 1u) << "still serving after all that";
    EXPECT_EQ(sim.control("quit"), "ok");
    EXPECT_EQ(sim.exitStatus(), 0);
    EXPECT_FALSE(fs::exists(sim.socketPath())) << "the socket file is removed";
}
