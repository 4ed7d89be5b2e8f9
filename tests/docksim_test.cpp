// The dock emulator for what the product never asks of it; docks_sim_test and console_dock_test pin the rest.
#include <gtest/gtest.h>

#include <algorithm>
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
using namespace std::string_literals;

namespace {

const std::string kUsbDriver = "com_tarvoworks_driver_usbDockDriver";
const std::string kTbtDriver = "com_tarvoworks_driver_TbtDockDriver";
constexpr int64_t kNotAttached = 0xE00002D9, kIoError = 0xE00002BC;

// docksim as a child process with its own socket directory; end of file on its stdin ends it.
struct Docksim : TempDir, Child {
    explicit Docksim(std::vector<std::string> args) : Child(withSocket(path + "/dock.sock", args))
    {
        EXPECT_EQ(out.line(), "ready");
    }
    ~Docksim()
    {
        in.close();
        wait();
    }
    static std::vector<std::string> withSocket(const std::string& socket, std::vector<std::string> args)
    {
        args.insert(args.begin(), {DOCKSIM_PATH, "--socket", socket});
        return args;
    }
    std::string socketPath() const { return path + "/dock.sock"; }

    // A control line's answer; lines it logs meanwhile are skipped.
    std::string control(const std::string& line)
    {
        if (!in.write(line + "\n"))
            return "<unwritten>";
        for (std::string l;; )
            if (l = out.line(); l == "ok" || l.rfind("error: ", 0) == 0 || l[0] == '<')
                return l;
    }
};

// One connection speaking the product's protocol; completions are kept aside until asked for.
class Client {
public:
    explicit Client(const std::string& path)
    {
        in_.fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_un addr{};
        addr.sun_family = AF_UNIX;
        std::strncpy(addr.sun_path, path.c_str(), sizeof addr.sun_path - 1);
        ::connect(in_.fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
    }
    bool sendRaw(const std::string& text)
    {
        return ::send(in_.fd, text.data(), text.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(text.size());
    }
    // The reply to a request given as its fields without the id, such as "\"op\":\"path\",\"entry\":1".
    Json ask(const std::string& fields)
    {
        const int64_t id = nextId_++;
        if (!sendRaw("{\"id\":" + std::to_string(id) + "," + fields + "}\n"))
            return Json("<unsent>");
        for (;;) {
            Json j = next();
            if (j.find("completion"))
                completions_.push_back(j);
            else if (j.isString() || (j.find("id") && j.find("id")->asInt() == id))
                return j;
        }
    }
    // The completion of `call`, or a string saying none came.
    Json completion(int64_t call, std::chrono::milliseconds limit = kWait)
    {
        for (const auto deadline = Clock::now() + limit;;) {
            for (auto it = completions_.begin(); it != completions_.end(); ++it)
                if (it->find("completion") && it->find("completion")->asInt() == call) {
                    Json c = *it;
                    completions_.erase(it);
                    return c;
                }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
                return Json("<no completion>");
            if (Json j = next(left); j.isObject())
                completions_.push_back(j);
        }
    }
    static Json field(const Json& reply, const char* name)
    {
        const Json* f = reply.find(name);
        return f ? *f : Json("<no " + std::string(name) + " in " + reply.dump() + ">");
    }
    static int64_t result(const Json& reply) { return reply.find("result") ? reply.find("result")->asInt() : -1; }
    Json properties(int64_t entry)
    {
        return field(ask("\"op\":\"get_properties\",\"entry\":" + std::to_string(entry)), "properties");
    }
    std::vector<int64_t> match(const std::string& by, const std::string& value)
    {
        std::vector<int64_t> out;
        const Json entries = field(ask("\"op\":\"match\",\"by\":\"" + by + "\",\"value\":\"" + value + "\""),
                                   "entries");
        for (const Json& e : entries.items())
            out.push_back(e.asInt());
        return out;
    }
    static std::string scalar(int64_t connection, int selector)
    {
        return R"("op":"scalar","connection":)" + std::to_string(connection) + R"(,"selector":)"
            + std::to_string(selector) + R"(,"input":[])";
    }
    // Opens and claims the user client of the first USB dock driver service.
    int64_t openUsb()
    {
        const auto services = match("name", kUsbDriver);
        if (services.empty())
            return 0;
        const int64_t c = field(ask("\"op\":\"open\",\"type\":0,\"entry\":" + std::to_string(services[0])),
                                "connection").asInt();
        ask(scalar(c, 0));
        return c;
    }
    // Sends a command block; the whole completion, or the refusal when the call was refused.
    Json cdb(int64_t connection, const std::string& block, int length, std::chrono::milliseconds limit = kWait)
    {
        const int64_t call = nextCall_++;
        const Json r = ask("\"op\":\"async\",\"connection\":" + std::to_string(connection) + ",\"selector\":2,\"call\":"
                           + std::to_string(call) + ",\"input\":[28672," + std::to_string(length) + "],\"struct\":\""
                           + block + "\"");
        return result(r) == 0 ? completion(call, limit) : r;
    }
    // The reply text of a Thunderbolt command.
    std::string tbt(int64_t entry, const std::string& command)
    {
        const Json set = ask("\"op\":\"set_properties\",\"entry\":" + std::to_string(entry)
                             + ",\"properties\":{\"sendCommand\":\"" + command + "\"}");
        if (result(set) != 0)
            return "<set failed>";
        const Json props = properties(entry);
        const Json* comms = props.find("HostComms");
        return comms && comms->find("reply") ? comms->find("reply")->asString() : "<no reply>";
    }

private:
    Json next(std::chrono::milliseconds limit = kWait)
    {
        const std::string l = in_.line(limit);
        Json j;
        std::string error;
        return l[0] == '<' || !Json::parse(l, j, error) ? Json(l) : j;
    }

    Stream in_;
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

// An XBoot2 request as the product builds it: lower-case hex and a CRC-32 of the raw bytes.
std::string xboot2(char request, const std::vector<uint8_t>& data)
{
    std::vector<uint8_t> raw{static_cast<uint8_t>(request)};
    raw.insert(raw.end(), data.begin(), data.end());
    const uint32_t crc = static_cast<uint32_t>(::crc32(0, raw.data(), static_cast<uInt>(raw.size())));
    std::string text = hex(data) + hex({uint8_t(crc >> 24), uint8_t(crc >> 16), uint8_t(crc >> 8), uint8_t(crc)});
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return "*" + std::string(1, request) + text;
}

} // namespace

TEST(DocksimOptions, MistakesAndAnythingButStrictJsonAreRefused)
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

    // The JSON reader takes strict JSON only.
    const std::pair<const char*, const char*> good[] = {
        {R"( {"a": [1, -2, true, null], "b": {"c": "x\"\u00e9\ud83d\ude00"}} )",
         "{\"a\":[1,-2,true,null],\"b\":{\"c\":\"x\\\"\xC3\xA9\xF0\x9F\x98\x80\"}}"},
        {"-9223372036854775808", "-9223372036854775808"},
        {"\"tab\\there\\u0001\"", "\"tab\\there\\u0001\""},
    };
    Json j;
    std::string error;
    for (const auto& [text, dumped] : good) {
        ASSERT_TRUE(Json::parse(text, j, error)) << text << ": " << error;
        EXPECT_EQ(j.dump(), dumped);
    }
    const std::string deep = std::string(66, '[') + std::string(66, ']'); // nesting is limited
    for (const std::string text : {"", "{", "{\"a\":1,}", "[1 2]", "{\"a\":1,\"a\":2}", "1.5", "1e3", "01",
                                   "9223372036854775808", "\"\\ud800\"", "\"a\nb\"", "tru", "{} x", "'a'",
                                   "{\"a\" 1}", "\"\\q\"", deep.c_str()})
        EXPECT_FALSE(Json::parse(text, j, error)) << text;
}

TEST(DocksimUsb, CommandBlocksTheProductNeverSendsFaultsAndTheStateChecks)
{
    Docksim sim({"--dock", "s"});
    Client c(sim.socketPath());
    const int64_t conn = c.openUsb();
    ASSERT_GT(conn, 0);
    const std::string status = "0009000055E001"; // diskpack in (bits 0, 3), 30 degrees << 4 valid
    const std::pair<std::vector<uint8_t>, std::string> rows[] = {
        {{0x00}, status + std::string(2 * 121, '0')}, // padded to the 128 bytes asked for
        {{0x0F, 0}, "0F55022F"},                      // 12034 mV
        {{0x0F, 1}, "0F55E10C"},                      // 3297 mV
        {{0x0F, 2}, "0F4E"},                          // no such rail
        {{0x0E, 2}, "0E024E"},                        // only disks 0 and 1
        {{0x0B, 30, 0, 4, 1, 2, 3, 4}, "0B55"},       // crosses the page end at 32: wraps to 0
        {{0x0C, 30, 0, 2}, "0C550102"},
        {{0x0C, 0, 0, 2}, "0C550304"},
        {{0x0C, 0, 2, 1}, "0C4E00"},                  // address 512 is past the end
        {{0x0B, 0, 0, 12}, "0B4E"},                   // at most 11 bytes a block
        {{0x02, 255, 0, 0, 1, 0}, "0255"},
        {{0x03}, "0355FF00000100"},                   // the LED as set
        {{0x10, 1, 0, 0, 255, 0}, "1055"},
        {{0x08}, "084E"},                             // unused subcodes
        {{0x11}, "114E"},
    };
    for (const auto& [cdb, reply] : rows) {
        const Json done = c.cdb(conn, block(cdb), static_cast<int>(reply.size() / 2));
        EXPECT_EQ(dataOf(done), reply) << block(cdb);
        EXPECT_EQ(Client::field(done, "argc").asInt(), 3);
    }
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x00, 0x40, 0xC0}, 0xE4), 2)), "0055") << "firmware upgrade start";
    for (const char* check : {"check led 255,0,0,1,0", "check dockled 1,0,0,255,0", "check eeprom:0 0304",
                              "check upgrades 1"})
        EXPECT_EQ(sim.control(check), "ok") << check; // LED bytes start at the block's byte 2
    EXPECT_EQ(sim.control("check eeprom:1E 01020304"), "error: check: eeprom:1E is 0102FFFF, not 01020304");
    EXPECT_EQ(Client::result(c.cdb(conn, block({0x00}, 0x12), 16)), 0xE00002C7) << "unknown opcode";

    // Faults spoil the next calls only.
    ASSERT_EQ(sim.control("fault wrong-subcode"), "ok");
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 3)), "8D5501");
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 3)), "0D5501") << "applies once";

    const std::tuple<const char*, int64_t, bool> failures[] = {
        {"invalid-dest", 0x10000003, false}, // refused at once
        {"not-attached", kNotAttached, true},
        {"io-error", kIoError, true},
    };
    for (const auto& [fault, result, completes] : failures) {
        ASSERT_EQ(sim.control(std::string("fault ") + fault), "ok");
        const Json done = c.cdb(conn, block({0x0D}), 3);
        EXPECT_EQ(Client::result(done), result) << fault;
        EXPECT_EQ(done.find("completion") ? dataOf(done) : "", "") << fault;
        EXPECT_EQ(done.find("completion") != nullptr, completes) << fault;
    }
    ASSERT_EQ(sim.control("fault no-reply"), "ok");
    EXPECT_EQ(c.cdb(conn, block({0x0D}), 3, 2000ms).dump(), "\"<no completion>\"") << "no-reply";

    ASSERT_EQ(sim.control("fault late"), "ok");
    const auto start = Clock::now();
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 3)), "0D5501");
    EXPECT_GE(Clock::now() - start, 1400ms) << "a late completion comes after 1500 ms";
    EXPECT_EQ(sim.control("fault nack"), "error: fault 'nack' does not apply to a USB dock");

    ASSERT_EQ(sim.control("fault eeprom-read-fail"), "ok");
    EXPECT_EQ(Client::result(c.cdb(conn, block({0x0C, 0, 0, 1}), 3)), kIoError);
    ASSERT_EQ(sim.control("fault eeprom-flip"), "ok");
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0C, 0, 0, 1}), 3)), "0C55FC") << "03 inverted, and the failure used up";

    // The status follows the control lines.
    const std::pair<const char*, std::string> steps[] = {
        {"button down", "0009000255E001"}, {"diskpack-temp -2", "0009000255E0FF"},
        {"led on", "0009000255E0FFFF0000010001"}, {"diskpack out", "00000002000000FF0000010001"},
    };
    for (const auto& [line, now] : steps) {
        ASSERT_EQ(sim.control(line), "ok") << line;
        EXPECT_EQ(dataOf(c.cdb(conn, block({0x00}), 16)).substr(0, now.size()), now) << line;
    }
    EXPECT_EQ(dataOf(c.cdb(conn, block({0x0D}), 2)), "0D4E") << "no diskpack, no id";
    EXPECT_EQ(sim.control("dock-temp 40"), "error: the USB dock has no 'dock-temp'");
}

TEST(DocksimUsb, TheTwinFindsItsAncestorsLocationAndAnUnpluggedDockComesBackAsNewEntries)
{
    Docksim sim({"--dock", "s", "--twin", "--id", "2"});
    Client c(sim.socketPath());
    const auto services = c.match("name", kUsbDriver);
    ASSERT_EQ(services.size(), 2u);
    const auto search = [&](int64_t s, const char* key) {
        return c.ask("\"op\":\"search\",\"entry\":" + std::to_string(s) + ",\"key\":\"" + key + "\"");
    };
    for (int64_t s : services) {
        EXPECT_FALSE(c.properties(s).find("locationID")) << "held by an ancestor";
        EXPECT_EQ(Client::field(search(s, "locationID"), "value").asInt(), 0x14200000);
        EXPECT_EQ(Client::field(search(s, "USB Serial Number"), "value").asString(), "XD100002");
    }
    const Json none = search(services[0], "nothing");
    EXPECT_EQ(Client::result(none), 0);
    EXPECT_FALSE(none.find("value"));

    const int64_t conn = c.openUsb();
    ASSERT_EQ(sim.control("unplug"), "ok");
    EXPECT_TRUE(c.match("name", kUsbDriver).empty());
    EXPECT_EQ(Client::result(c.cdb(conn, block({0x00}), 128)), kNotAttached);
    EXPECT_EQ(Client::result(c.ask(Client::scalar(conn, 3))), kNotAttached) << "present? no";
    EXPECT_EQ(Client::result(c.ask("\"op\":\"parent\",\"entry\":" + std::to_string(services[0]))), kNotAttached);
    ASSERT_EQ(sim.control("plug"), "ok");
    const auto again = c.match("name", kUsbDriver);
    ASSERT_EQ(again.size(), 2u);
    EXPECT_NE(again[0], services[0]);
    EXPECT_EQ(Client::result(c.ask(Client::scalar(conn, 3))), 0);
    Client other(sim.socketPath());
    const Json open = other.ask("\"op\":\"open\",\"type\":0,\"entry\":" + std::to_string(again[0]));
    EXPECT_EQ(Client::result(other.ask(Client::scalar(Client::field(open, "connection").asInt(), 0))), 0xE00002C5)
        << "the first connection still holds the user client";
}

TEST(DocksimTbt, CommandsTheProductNeverSendsFaultsAndUnplug)
{
    Docksim sim({"--dock", "m", "--id", "4", "--dock", "n"});
    Client c(sim.socketPath());
    const auto drivers = c.match("class", kTbtDriver);
    ASSERT_EQ(drivers.size(), 2u);
    const std::tuple<int, std::string, std::string> rows[] = {
        {0, "U", "R2854425451000004"}, {0, "G0", "R2F02"}, {0, "G4", "R0CE5"}, {0, "G5", "N"}, {1, "G7", "N"},
        {0, "Y1", "N"}, {0, "X2", "N"}, {0, "O", "R04D2"}, {0, "M0", "R1629"}, {0, "M2", "N"},
        {0, "W01F0031A2B3C", "OK"}, {0, "R01F021", "N"}, {0, "R11F003", "N"}, {0, "W10000100", "N"},
        {0, "W01F0031A2B", "N"}, {0, "w01F0031A2B3C", "N"}, {0, "L7f", "N"}, {0, "LC5", "OK"}, {1, "LC5", "N"},
        {0, "S123", "N"}, {1, "t9", "N"}, {1, "t6", "OK"}, {0, "F80", "N"}, {1, "*R2", "OK"}, {0, "*R2", "N"},
        {1, "*R4", "N"}, {0, "Z", "OK"}, {0, "R01F003", "R" + std::string(64, 'F')}, {0, "", "N"}, {0, "Q", "N"},
    };
    for (const auto& [dock, command, reply] : rows)
        EXPECT_EQ(c.tbt(drivers[dock], command), reply) << dock << " " << command;
    for (const char* check : {"check 1 resetport 2", "check 1 typeid 6", "check 0 led C5"})
        EXPECT_EQ(sim.control(check), "ok") << check;
    ASSERT_EQ(sim.control("fault 0 nack=2"), "ok");
    EXPECT_EQ(c.tbt(drivers[0], "E"), "N");
    EXPECT_EQ(c.tbt(drivers[0], "S0001"), "N");
    EXPECT_EQ(c.tbt(drivers[0], "E"), "R04D2") << "two refusals, and S0001 was not carried out";
    ASSERT_EQ(sim.control("fault no-reply"), "ok");
    EXPECT_EQ(c.tbt(drivers[0], "@"), "R04D2") << "the old reply stays";
    ASSERT_EQ(sim.control("fault property-read"), "ok");
    EXPECT_EQ(Client::result(c.ask("\"op\":\"get_properties\",\"entry\":" + std::to_string(drivers[0]))), kIoError);
    ASSERT_EQ(sim.control("fault no-hostcomms"), "ok");
    EXPECT_EQ(c.tbt(drivers[0], "@"), "<no reply>");
    EXPECT_EQ(c.tbt(drivers[0], "@"), "R4");
    EXPECT_EQ(sim.control("fault late"), "error: fault 'late' does not apply to a Thunderbolt dock");

    ASSERT_EQ(sim.control("unplug"), "ok");
    EXPECT_EQ(c.tbt(drivers[0], "@"), "<set failed>");
    EXPECT_EQ(c.match("class", kTbtDriver), std::vector<int64_t>{drivers[1]});
    ASSERT_EQ(sim.control("plug"), "ok");
    EXPECT_EQ(c.tbt(c.match("class", kTbtDriver).back(), "@"), "R4") << "back as a new entry";
}

TEST(DocksimTbt, EventsQueueAndDrainOneByOneAndTheBootloaderRefusesWhatIsOutOfTurn)
{
    Docksim sim({"--dock", "m", "--dock", "n"});
    Client c(sim.socketPath());
    const auto drivers = c.match("class", kTbtDriver);
    EXPECT_EQ(c.tbt(drivers[0], "&"), "") << "nothing queued";
    EXPECT_EQ(c.tbt(drivers[0], "!"), "OK");
    for (const char* event : {"i01", "b0", "t23", "p1E", "l0", ""})
        EXPECT_EQ(c.tbt(drivers[0], "&"), event);
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

    // The CD2 dock's bootloader refuses what is out of turn or spoilt.
    std::vector<uint8_t> page{0x00, 0x05}; // page 5
    page.resize(514, 0x5A);
    std::string corrupt = xboot2(':', page), upper = corrupt;
    corrupt[10] = corrupt[10] == '0' ? '1' : '0';
    std::transform(upper.begin(), upper.end(), upper.begin(), [](unsigned char c) { return std::toupper(c); });
    const std::pair<std::string, const char*> requests[] = {
        {xboot2(':', page), "N"},           // not before %UP
        {"%UP", "OK"}, {xboot2(':', page), "OK"},
        {corrupt, "N"}, {upper, "N"},       // the hex is lower case
        {xboot2(':', {0x01, 0x00}), "N"},   // short page
        {xboot2('$', {0x01, 0x00}), "N"},   // page 256 is past the application section
        {xboot2('#', {0x02}), "OK"}, {xboot2('~', {}), "N"}, // the bootloader is left
    };
    for (const auto& [command, reply] : requests)
        EXPECT_EQ(c.tbt(drivers[1], command), reply) << command.substr(0, 12);
    EXPECT_EQ(sim.control("check 1 flash:A00 5A5A5A5A"), "ok");
    EXPECT_EQ(sim.control("check 1 endstatus 2"), "ok");
}

TEST(DocksimProcess, SurvivesBadInputAndAnswersWhatItCan)
{
    Docksim sim({"--dock", "s", "--dock", "m"});
    Client c(sim.socketPath());
    // Not answered: not JSON, not an object, no usable id; over-long lines.
    for (const std::string& junk : {"nonsense\n"s, "[1,2]\n"s, R"({"op":"match"})""\n"s, R"({"id":-4,"op":"match"})""\n"s,
                                    "\xff\xfe{\n"s, std::string(2 << 20, 'x') + "\n",
                                    std::string("{\"id\":1,\"op\":\"path\",\"entry\":1}\x00\n", 32)})
        ASSERT_TRUE(c.sendRaw(junk));
    // Answered with a failure: wrong fields.
    for (const char* rq : {R"("op":"fly")", R"("op":"path","entry":"1")", R"("op":"path","entry":1099511627776)",
                           R"("op":"match","by":"colour","value":"x")", R"("op":"open","entry":1,"type":0)",
                           R"("op":"scalar","connection":1,"selector":0,"input":[])",
                           R"("op":"async","connection":5,"selector":2)",
                           R"("op":"set_properties","entry":1,"properties":{})"})
        EXPECT_GT(Client::result(c.ask(rq)), 0) << rq;
    const int64_t conn = c.openUsb();
    EXPECT_EQ(Client::result(c.ask("\"op\":\"async\",\"connection\":" + std::to_string(conn)
                                   + ",\"selector\":2,\"call\":1,\"input\":[0,16],\"struct\":\"DE00\"")),
              0xE00002C2) << "a block is 16 bytes";
    EXPECT_EQ(Client::field(c.ask(R"("op":"path","entry":1)"), "path").asString(), "IOService:/");
    EXPECT_EQ(Client::field(c.ask(R"("op":"lookup","path":"IOService:/nowhere")"), "entry").asInt(), 0);

    const std::pair<const char*, const char*> controls[] = {
        {"frob", "error: unknown command 'frob'"},
        {"diskpack 7 in", "error: no dock '7'"}, {"diskpack", "error: usage: diskpack [D] in|out|fault"},
        {"fault 0 bogus", "error: unknown fault 'bogus'"},
        {"rail 1 9 5000", "error: rail takes a rail 0..4 and millivolts -32768..32767"},
    };
    for (const auto& [line, answer] : controls)
        EXPECT_EQ(sim.control(line), answer) << line;
    const std::string unknown = sim.control("check 0 nothing 1");
    EXPECT_EQ(unknown.rfind("error: check: no field 'nothing'; fields:", 0), 0u) << unknown;
    EXPECT_EQ(c.match("class", kTbtDriver).size(), 1u) << "still serving after all that";
    EXPECT_EQ(sim.control("quit"), "ok");
    EXPECT_EQ(sim.wait(), 0);
    EXPECT_FALSE(std::filesystem::exists(sim.socketPath())) << "the socket file is removed";
}
