// The board emulator: its command line, its boards driven directly and over their ptys as the product would.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <termios.h>

#include "boardsim/faults.h"
#include "boardsim/options.h"
#include "boardsim/personality.h"
#include "boardsim/personality_bootloader.h"
#include "boardsim/simulator.h"
#include "boardsim/wire.h"
#include "support/EmulatorTestKit.h"

using namespace boardsim;
using namespace emutest;
using namespace std::chrono_literals;
namespace fs = std::filesystem;

namespace {

const std::string kRemote = "Remote Control AVR board V1.00";

bool isLink(const std::string& path) { return fs::is_symlink(fs::symlink_status(path)); }
bool isError(const std::string& answer) { return answer.rfind("error: ", 0) == 0; }

bool linksToPty(const std::string& p) { return isLink(p) && fs::read_symlink(p).string().rfind("/dev/pts/", 0) == 0; }

// The host end of a board's serial port, set up as the product sets up a real one: raw, 8E1.
struct Port : Stream {
    explicit Port(const std::string& path) : Stream(::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}

    bool configure()
    {
        termios t{};
        if (tcgetattr(fd, &t) != 0)
            return false;
        cfmakeraw(&t);
        t.c_cflag |= PARENB | CS8 | CLOCAL | CREAD;
        t.c_cflag &= ~(PARODD | CSTOPB);
        cfsetspeed(&t, B19200);
        return tcsetattr(fd, TCSANOW, &t) == 0;
    }
    speed_t speed() const
    {
        termios t{};
        return tcgetattr(fd, &t) == 0 ? cfgetospeed(&t) : 0;
    }
    // Sends a command and returns the next line, events included.
    std::string ask(const std::string& command) { return write(command + "\n") ? line() : kNone; }
};

// Sends `commands` in one go and expects exactly `lines` back: a reply that should not have come shifts the rest.
::testing::AssertionResult replies(Port& port, const std::vector<std::string>& commands,
                                   const std::vector<std::string>& lines)
{
    std::string sent, want;
    for (const auto& c : commands)
        sent += c + "\n";
    for (const auto& l : lines)
        want += boardLine(l);
    if (!port.write(sent))
        return ::testing::AssertionFailure() << "cannot write: " << std::strerror(errno);
    const std::string got = port.bytes(want.size());
    if (got == want)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure() << "got '" << escapeLine(got) << "', want '" << escapeLine(want) << "'";
}

// An in-process simulator in its own directory (it supplies --dir), started from command-line style arguments.
class Sim {
public:
    explicit Sim(std::vector<std::string> args, PersonalityFactory factory = makePersonality)
    {
        args.insert(args.begin(), {"--dir", dir_.path});
        std::string error;
        if (!parseOptions(args, options_, error))
            throw std::runtime_error("bad options: " + error);
        auto print = [this](const std::string& line) {
            std::lock_guard<std::mutex> lock(mutex_);
            printed_.push_back(line);
            changed_.notify_all();
        };
        sim_ = std::make_unique<Simulator>(options_, print, std::move(factory));
        if (!sim_->start(error))
            throw std::runtime_error("start failed: " + error);
    }
    ~Sim() { sim_->stop(); }

    std::string link(size_t board) const { return dir_.path + "/tty.usbserial-" + options_.boards.at(board).name; }
    std::string control(const std::string& line) { return sim_->control(line); }

    bool printed(const std::string& line)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, kWait, [&] { return std::count(printed_.begin(), printed_.end(), line) > 0; });
    }

    std::unique_ptr<Port> open(size_t board = 0)
    {
        auto port = std::make_unique<Port>(link(board));
        if (port->fd < 0 || !port->configure())
            ADD_FAILURE() << "cannot open " << link(board) << ": " << std::strerror(errno);
        return port;
    }

private:
    TempDir dir_;
    Options options_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> printed_;
    std::unique_ptr<Simulator> sim_;
};

// A board that sends an event before its reply to "L", which no real one does yet.
struct EventFirst : Personality {
    using Personality::Personality;
    bool command(const std::string& line, Replier& out) override
    {
        if (line == "L") {
            out.event("click");
            out.ok();
        }
        return line == "L";
    }
};

using Lines = std::vector<std::string>;

// A command, its closing line and its events; ">verb args" is a control line answered "ok" or "error", "~" a tick.
struct Step {
    std::string line, final;
    Lines events = {};
};

std::vector<unsigned char> pageBytes(int seed)
{
    std::vector<unsigned char> page(BootloaderState::kPageSize);
    for (std::size_t i = 0; i < page.size(); ++i)
        page[i] = static_cast<unsigned char>(i * 3 + static_cast<std::size_t>(seed));
    return page;
}

// ":" PPPP DATA CC with the checksum that zeroes the sum, plus `delta`.
std::string writeRequest(int page, const std::vector<unsigned char>& data, int delta = 0)
{
    std::vector<unsigned char> body { static_cast<unsigned char>(page >> 8), static_cast<unsigned char>(page) };
    body.insert(body.end(), data.begin(), data.end());
    unsigned sum = 0;
    for (auto b : body)
        sum += b;
    body.push_back(static_cast<unsigned char>(-sum + static_cast<unsigned>(delta)));
    return ":" + hex(body);
}

// What "$" PPPP reads back: the page's bytes and the same checksum as a write of them.
std::string readAnswer(int page, const std::vector<unsigned char>& data) { return writeRequest(page, data).substr(5); }

// A board of type `letter` with id 3, driven without a pty, handing over to its next personality when told.
struct Emulated {
    std::unique_ptr<Personality> personality;
    Faults faults;

    explicit Emulated(char letter) : personality(makePersonality(BoardInfo(letter, 3, "V1.00"))) {}

    // What the board sends back for `bytes` fed `chunk` at a time: raw to a bootloader, lines to an application.
    std::string feed(const std::string& bytes, std::size_t chunk = 4096) {
        std::string sent;
        for (std::size_t at = 0; at < bytes.size();) {
            const std::size_t n = std::min(chunk, bytes.size() - at);
            Replier r;
            std::size_t used = n;
            if (personality->takesBytes())
                used = personality->receive(bytes.data() + at, n, faults, r).consumed;
            else if (const auto nl = bytes.find('\n', at); nl != std::string::npos) {
                used = nl - at + 1;
                personality->handle(bytes.substr(at, nl - at), r);
            }
            for (auto& item : r.items())
                sent += item.kind == Replier::Kind::Raw ? item.bytes : item.bytes + "\r\n";
            if (auto next = r.takeSuccessor())
                personality = std::move(next);
            at += used;
        }
        return sent;
    }
};

} // namespace

TEST(BoardsimOptions, MistakesAndBadFaultSettingsAreRejected)
{
    TempDir dir;
    const std::string d = dir.path;
    std::vector<std::vector<std::string>> bad = {
        {"--dir", d},                                              // no board
        {"--board", "d"},                                          // no dir
        {"--dir", d + "/missing", "--board", "d"},                 // dir does not exist
        {"--dir", d, "--board", "q"},                              // unknown letter
        {"--dir", d, "--board", "D"},                              // letters are lower case
        {"--dir", d, "--board", "dd"},                             // not a letter
        {"--dir", d, "--id", "1", "--board", "d"},                 // per-board option before a board
        {"--dir", d, "--board", "d", "--id", "12"},                // id is one digit
        {"--dir", d, "--board", "d", "--id"},                      // missing value
        {"--dir", d, "--board", "d", "--fault", "nack-every=0"},   // bad fault
        {"--dir", d, "--board", "d", "--name", "a/b"},             // name with a slash
        {"--dir", d, "--board", "d", "--name", "n", "--board", "r", "--name", "n"}, // duplicate
        {"--dir", d, "--board", "d", "--frobnicate"},              // unknown option
        {"--dir", d, "--bootloader", "--board", "d"},              // per-board option before a board
        {"--dir", d},                                              // eleven boards, filled in below
    };
    // Default names have one digit for the position.
    for (int i = 0; i < 11; ++i)
        bad.back().insert(bad.back().end(), {"--board", "c"});
    Options o;
    std::string error;
    for (const auto& args : bad) {
        error.clear();
        EXPECT_FALSE(parseOptions(args, o, error)) << args.back();
        EXPECT_FALSE(error.empty()) << args.back();
    }
    bad.back().insert(bad.back().end(), {"--name", "last", "--bootloader"});
    ASSERT_TRUE(parseOptions(bad.back(), o, error)) << error;
    EXPECT_TRUE(o.boards.back().bootloader);
    EXPECT_FALSE(o.boards.front().bootloader);
    EXPECT_NE(std::string::npos, usageText().find("--bootloader"));

    // A fault setting refused leaves the faults as they were.
    Faults f;
    ASSERT_TRUE(applyFaultSetting(f, "nack-every=3", error)) << error;
    for (const char* bad : {"nack-every=0", "nack-every=", "nack-every", "drop-every=x", "baud=0", "delay-ms=-1",
                            "highbit-before=41", "highbit-before=A5A5", "junk-before", "bogus", "clear=1",
                            "random=7", "random=x:5", "random=7:101", "events=101", "babble=1", "refuse-writes",
                            "refuse-writes=0", "stall-read=0", "corrupt-read=x"}) {
        error.clear();
        EXPECT_FALSE(applyFaultSetting(f, bad, error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }
    EXPECT_EQ(f.nackEvery, 3u) << "a rejected setting changed the faults";
    EXPECT_FALSE(f.stallReads || f.corruptReads || f.refuseWrites);
    ASSERT_TRUE(applyFaultSetting(f, "stall-read=3", error) && applyFaultSetting(f, "corrupt-read", error));
    EXPECT_EQ(f.stallReads, 3u);
    EXPECT_EQ(f.corruptReads, 1u);
    ASSERT_TRUE(applyFaultSetting(f, "clear", error));
    EXPECT_FALSE(f.any());
}

TEST(BoardsimBoard, EveryTypeAnswersTheCoreCommands)
{
    const std::pair<const char*, std::string> types[] = {
        {"c", "Chassis board V1.00"}, {"d", "Diskpack board V1.00"}, {"r", "Remote Control AVR board V2.07"},
        {"t", "Desktop Transfer Station board V1.00"}, {"u", "Xfer Drive Dual SAS board V1.00"},
        {"x", "Transfer Station board V1.00"},
    };
    std::vector<std::string> args;
    for (size_t i = 0; i < std::size(types); ++i) {
        args.insert(args.end(), {"--board", types[i].first, "--id", std::to_string(i + 1)});
        if (*types[i].first == 'r')
            args.insert(args.end(), {"--version", "V2.07"});
    }
    args.insert(args.end(), {"--log", "--board", "d", "--fault", "nack-every=1"});
    Sim sim(args);
    EXPECT_EQ(Port(sim.link(1)).speed(), B1200) << "a pty starts at 1200 baud";
    // A host sending "\r\n" is not silently forgiven.
    for (size_t i = 0; i < std::size(types); ++i)
        EXPECT_TRUE(replies(*sim.open(i), {"?", "@", "?\r", ""}, {types[i].second, "R" + std::to_string(i + 1), "N", "N"}))
            << types[i].first;
    EXPECT_TRUE(replies(*sim.open(6), {"?", "@"}, {"N", "N"})) << "a fault given to the last board only";
    // Received lines are logged escaped, and overlong ones cut.
    const std::string longest(kMaxLineLength, 'a');
    EXPECT_TRUE(replies(*sim.open(), {"h\xA5\\\x7fi\r", longest, std::string(2000, 'x'), "@"}, {"N", "N", "N", "R1"}));
    EXPECT_TRUE(sim.printed("rx 0 h\\xA5\\x5C\\x7Fi\\x0D"));
    EXPECT_TRUE(sim.printed("rx 0 " + longest));
    EXPECT_TRUE(sim.printed("rx 0 " + std::string(kMaxLineLength, 'x')));
    // A port can be opened again and still answers; the speed changes after each line so reconfiguring is real.
    for (int i = 0; i < 3; ++i) {
        const auto port = sim.open(1);
        speed_t last = B19200;
        for (int line = 0; line < 2; ++line) {
            EXPECT_EQ(port->ask("@"), "R2") << "opening " << i;
            const speed_t now = port->speed();
            EXPECT_TRUE(now != last && (now == B1200 || now == B2400)) << "opening " << i << ", line " << line;
            last = now;
        }
    }
}

TEST(BoardsimFaultWire, FaultsShapeTheReplies)
{
    // The remote board follows "!" with no state events, so every line is a reply.
    const struct {
        std::vector<std::string> faults, commands, lines;
    } cases[] = {
        // Every Nth counts all command lines, refused ones too.
        {{"nack-every=3"}, {"@", "?", "!", "@", "@", "?", "!"}, {"R4", kRemote, "N", "R4", "R4", "N", "OK"}},
        {{"drop-every=2"}, {"?", "@", "X", "@", "?"}, {kRemote, "N", kRemote}},
        {{"nack-identify=2"}, {"?", "@", "?", "?", "?"}, {"N", "R4", "N", kRemote, kRemote}},
        // Drop wins over nack-identify without using it up; nack-identify wins over nack-every and is used up.
        {{"drop-every=2", "nack-identify=1", "nack-every=3"}, {"@", "?", "?", "@", "?", "@", "@"},
         {"R4", "N", kRemote, "R4"}},
        {{"junk-before=HELLO"}, {"@", "!"}, {"HELLO", "R4", "HELLO", "OK"}},
        {{"highbit-before"}, {"@"}, {"\xA5", "R4"}},
        {{"highbit-before=fe", "junk-before=xnoise"}, {"@"}, {"\xFE", "xnoise", "R4"}},
    };
    // Each given on the command line, and then at run time.
    for (const auto& c : cases) {
        for (const bool atRunTime : {false, true}) {
            std::vector<std::string> args = {"--board", "r", "--id", "4"};
            for (size_t i = 0; !atRunTime && i < c.faults.size(); ++i)
                args.insert(args.end(), {"--fault", c.faults[i]});
            Sim sim(args);
            for (size_t i = 0; atRunTime && i < c.faults.size(); ++i)
                ASSERT_EQ(sim.control("fault 0 " + c.faults[i]), "ok");
            EXPECT_TRUE(replies(*sim.open(), c.commands, c.lines)) << c.faults.front() << (atRunTime ? " at run time" : "");
        }
    }
}

TEST(BoardsimFaultWire, DelayAndBaudHoldBackWhatTheBoardSendsAndUnplugDropsIt)
{
    Sim sim({"--log", "--board", "r", "--id", "3", "--fault", "delay-ms=300", "--board", "c", "--id", "1"});
    auto port = sim.open();
    auto start = Clock::now();
    EXPECT_TRUE(replies(*port, {"@", "?"}, {"R3", kRemote}));
    EXPECT_GE(Clock::now() - start, 600ms) << "each reply waits its own delay";

    // Long enough that a stalled test thread still sends the event in time.
    ASSERT_EQ(sim.control("fault 0 delay-ms=2000"), "ok");
    ASSERT_TRUE(port->write("!\n"));
    ASSERT_TRUE(sim.printed("rx 0 !"));
    EXPECT_EQ(sim.control("event 0 zap"), "ok");
    EXPECT_TRUE(replies(*port, {}, {"zap", "OK"}));

    ASSERT_EQ(sim.control("fault 0 baud=1200"), "ok");
    const std::string text(98, 'e'); // 100 characters with "\r\n": 11 * 100 / 1200 s
    start = Clock::now();
    ASSERT_EQ(sim.control("event 0 " + text), "ok");
    EXPECT_EQ(port->line(), text);
    EXPECT_GE(Clock::now() - start, 900ms);

    // Unplugging makes the device vanish, plugging brings it back, and a reply held back meanwhile is never sent.
    const std::string link = sim.link(0);
    ASSERT_TRUE(linksToPty(link));
    ASSERT_EQ(sim.control("fault 0 delay-ms=1000"), "ok");
    ASSERT_TRUE(port->write("??\n"));
    ASSERT_TRUE(sim.printed("rx 0 ??"));
    ASSERT_EQ(sim.control("unplug 0"), "ok");
    EXPECT_FALSE(isLink(link));
    EXPECT_TRUE(port->hungUp());
    EXPECT_TRUE(isError(sim.control("event 0 x")));
    EXPECT_TRUE(isError(sim.control("unplug 0")));
    EXPECT_TRUE(isLink(sim.link(1))) << "the other board was unplugged too";

    ASSERT_EQ(sim.control("plug 0"), "ok");
    EXPECT_TRUE(linksToPty(link));
    EXPECT_TRUE(replies(*sim.open(0), {"@"}, {"R3"}));
}

TEST(BoardsimPersonalityHooks, EventsControlLinesRawBytesAndTicks)
{
    // Junk goes right before the final line, not before the events around it.
    Sim first({"--board", "c", "--fault", "junk-before=JUNK"},
              [](const BoardInfo& info) { return std::make_unique<EventFirst>(info); });
    EXPECT_TRUE(replies(*first.open(), {"L", "@"}, {"click", "JUNK", "OK", "JUNK", "R0"}));

    Sim sim({"--board", "x", "--id", "8", "--fault", "junk-before=JUNK", "--board", "r", "--name", "dual"});
    auto x = sim.open(0);
    EXPECT_TRUE(replies(*x, {"!", "L8"}, {"JUNK", "OK", "d0", "i0", "l0", "JUNK", "OK", "l8"}));
    EXPECT_EQ(sim.control("insert 0"), "ok");
    EXPECT_EQ(x->line(), "i1");
    EXPECT_EQ(sim.control("event 0 hello  world"), "ok");
    EXPECT_EQ(x->bytes(14), "hello  world\r\n");
    EXPECT_EQ(sim.control("send 0 A5 0d0a"), "ok");
    EXPECT_EQ(x->bytes(3), "\xA5\r\n");
    EXPECT_EQ(sim.control("frob 0"), "error: unknown command 'frob'");

    auto r = sim.open(1);
    // Boards are addressed by index, name or link name.
    for (const std::string board : {"1", "dual", "tty.usbserial-dual"}) {
        EXPECT_EQ(sim.control("event " + board + " to " + board), "ok");
        EXPECT_EQ(r->line(), "to " + board);
    }
    EXPECT_TRUE(replies(*r, {"Q1"}, {"OK"}));
    EXPECT_EQ(r->line().size(), 41u);
    EXPECT_EQ(r->line(), "f0200021002200230024002500260027002800290") << "a tick's second line goes out with it";
    // Ticks sent before the switch-off may still be on their way; after a later command's reply nothing may come.
    ASSERT_TRUE(r->write("Q0\n@\n"));
    std::string line;
    do {
        line = r->line();
    } while (line.size() == 41);
    EXPECT_EQ(line, "OK");
    EXPECT_EQ(r->line(), "R0");
    EXPECT_EQ(r->line(300ms), kNone);

    for (const char* bad : {"event 2 x", "event nosuch x", "event 0", "event", "send 0 A", "send 0 GG", "send 0 A 5",
                            "send 0 0x41", "send 0", "fault 0 bogus", "fault 0", "frob 0 x", "unplug 0 now",
                            "quit now", "", "plug 0"})
        EXPECT_TRUE(isError(sim.control(bad))) << bad;
}

TEST(BoardsimProgram, ExitStatusesPublishingBeforeReadyAndRemovingTheLinksHoweverItEnds)
{
    TempDir dir;
    const std::string d = " --dir " + dir.path, out = dir.path + "/out", err = dir.path + "/err";
    const std::pair<std::string, int> runs[] = {
        {" --help", 0}, {d + " --board q", 2}, {d + " --board d --bogus", 2}, {d + "/nope --board d", 2}, {" --board d", 2}};
    for (const auto& [args, status] : runs) {
        const int st = std::system((BOARDSIM_PATH + args + " >" + out + " 2>" + err + " </dev/null").c_str());
        EXPECT_EQ(WIFEXITED(st) ? WEXITSTATUS(st) : -1, status) << args;
        // Help goes to stdout; a mistake is told on stderr only.
        EXPECT_EQ(fs::file_size(out) == 0, status != 0) << args;
        EXPECT_EQ(fs::file_size(err) == 0, status == 0) << args;
    }
    const std::string disk = dir.path + "/tty.usbserial-SIM0d3", r = dir.path + "/tty.usbserial-remote";
    for (const std::string end : {"quit", "end of input", "SIGTERM", "SIGINT"}) {
        SCOPED_TRACE(end);
        Child child({BOARDSIM_PATH, "--dir", dir.path, "--log", "--board", "d", "--id", "3", "--board", "r", "--name", "remote"});
        ASSERT_EQ(child.out.line(), "ready");
        ASSERT_TRUE(isLink(disk) && isLink(r));

        Port port(disk);
        ASSERT_TRUE(port.configure());
        EXPECT_EQ(port.ask("?"), "Diskpack board V1.00");
        EXPECT_EQ(child.out.line(), "rx 0 ?");
        ASSERT_TRUE(child.in.write("event 0 hello\nevent 7 hello\n"));
        EXPECT_EQ(child.out.line(), "ok");
        EXPECT_EQ(port.line(), "hello");
        EXPECT_TRUE(isError(child.out.line()));

        if (end == "quit") {
            ASSERT_TRUE(child.in.write("quit\n"));
            EXPECT_EQ(child.out.line(), "ok");
        } else if (end == "end of input") {
            child.in.close();
        } else {
            ::kill(child.pid, end == "SIGTERM" ? SIGTERM : SIGINT);
        }
        EXPECT_EQ(child.wait(), 0);
        EXPECT_FALSE(isLink(disk) || isLink(r));
    }
}

// A board that accepted a malformed command would let the product's mistakes through unnoticed.
TEST(EmulatedBoards, RefuseMalformedCommandsAndKeepTheirState)
{
    const std::string wwn = "5000C50012345678";
    const struct {
        char letter;
        const char* version;
        Lines refused, accepted;
        std::vector<Step> steps;
    } cases[] = {
        {'d', "V1.00",
         {"L7", "L072", "La5", "A2", "A", "X11", "Y0", "B1", "P18", "PFF", "Q18", "V0", "E2", "G20", "G04",
          "D" + std::string(41, 'x'), "W" + std::string(41, 'x'), "K"},
         {"D" + std::string(40, 'x'), "P17"},
         {{"P05", "OK"}, {"Wfifth page", "OK"}, {"P06", "OK"}, {"R", "R"}, {"P05", "OK"}, {"R", "Rfifth page"},
          {"L30", "OK", {"l1"}}, {"LB0", "OK"}, {"L80", "OK", {"l0"}}, // flash bits alone light nothing
          {">temp -12", "ok"}, {"M", "RF419"}, {">temp 30", "ok"}, {"T1", "OK"}, {">temp -1", "ok", {"tFF"}},
          {"!", "OK", {"l0", "tFF"}}, {">temp 200", "error"}}},
        {'c', "V2.5", {"V20", "V1", "R10", "L20", "A80", "BBF", "A4", "E", "H2", "H", "W1", "T0"}, {"F5B"},
         {{"H0", "R1"}, {"H1", "R0"}, {"B40", "OK", {"b2"}}, {"BC0", "OK"}, {">insert 1", "ok", {"b3"}},
          {">shuttle -2", "ok", {"sFE"}}, {">insert 4", "error"}}},
        // The firmware version decides the command set; V2.10 sorts before V2.5.
        {'c', "V1.00", {"F12", "P1", "S0", "H0"}, {}, {}},
        {'c', "V2.10", {"H0"}, {"F12"}, {}},
        {'x', "V1.00",
         {"W6", "W", "X20", "X02", "X1", "Y2", "D8", "D10", "L", "E4", "S4", "S", "S25000C5001234567",
          "S25000c50012345678", "R20", "I", "U", "P2"},
         {},
         {{"S2" + wwn, "OK"}, {"E2", "R" + wwn}, {"S2", "OK"}, {"E2", "R5000C50012340008"},
          {"!", "OK", {"d0", "i0", "l0"}}, {">insert", "ok", {"i1"}}, {"I", "R3"}, {"L8", "OK", {"l8"}},
          {"L8", "OK"}, {"P1", "OK"}, {">temp -16", "ok", {"pF0"}}, {"X11", "OK"}, {"Y1", "R1"}, {"Y0", "R0"}}},
        {'r', "V1.00", {"G", "G1", "G0g", "G0AF", "C10", "C", "E0", "Q2", "F1"}, {"G0AFF"},
         {{"@", "R0"}, {">busy on", "ok"}, {"@", "R1"}, {">busy off", "ok"}, {"@", "R0"},
          {">encoder -1", "ok", {"eFF"}}, {">key 102", "ok", {"k0102"}}, {"~", ""}, // touch events are off
          {"Q1", "OK"},
          {"~", "", {"q0201021202230234024502560267027002810292", "f0200021002200230024002500260027002800290"}},
          {"Q0", "OK"}, {"~", ""}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(1, c.letter) + " " + c.version);
        const auto personality = makePersonality(BoardInfo(c.letter, 0, c.version));
        const auto check = [&](const Step& s) {
            SCOPED_TRACE(s.line);
            Replier r;
            std::string error;
            if (s.line == "~")
                personality->tick(r);
            else if (s.line[0] != '>')
                personality->handle(s.line, r);
            else if (const auto sp = s.line.find(' '); !personality->control(
                         s.line.substr(1, sp - 1), sp == std::string::npos ? "" : s.line.substr(sp + 1), r, error))
                EXPECT_EQ(s.final, "error");
            else
                EXPECT_EQ(s.final, "ok");
            std::string final; // two closing lines show as one joined line
            Lines events;
            for (const auto& item : r.items())
                if (item.kind == Replier::Kind::Final)
                    final += item.bytes;
                else
                    events.push_back(item.bytes);
            EXPECT_EQ(events, s.events);
            EXPECT_EQ(final, s.line[0] == '>' ? "" : s.final); // a control line closes nothing on the wire
        };
        for (const auto& line : c.refused)
            check({line, "N"});
        for (const auto& line : c.accepted)
            check({line, "OK"});
        for (const auto& s : c.steps)
            check(s);
    }
}

// The bootloader's faults are used up by the avrflash runs against it.
TEST(Bootloader, EveryBoardHandsOverOnUpAndComesBackOnHash)
{
    for (char letter : knownBoardLetters()) {
        Emulated board(letter);
        ASSERT_FALSE(board.personality->takesBytes()) << letter;
        EXPECT_EQ("OK\r\n", board.feed("%UP\n")) << letter;
        ASSERT_TRUE(board.personality->takesBytes()) << letter;
        EXPECT_EQ("(bootloader) " + identityForLetter(letter) + " V1.00\r\n", board.feed("?\n")) << letter;
        EXPECT_EQ("R3\r\nOK\r\nN\r\n", board.feed("@\n%UP\n!\n")) << letter;
        EXPECT_EQ("", board.feed("#"));
        EXPECT_FALSE(board.personality->takesBytes()) << letter;
        EXPECT_EQ(identityForLetter(letter) + " V1.00\r\n", board.feed("?\n")) << letter;
    }
}

TEST(Bootloader, WritesAreCheckedAndTheFlashOutlivesARestartInWhateverPiecesTheRequestsCome)
{
    const auto page = pageBytes(1);
    const std::vector<unsigned char> erased(256, 0xFF);
    std::string lower = writeRequest(0x0005, pageBytes(0x0A));
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    for (std::size_t chunk : {1, 97, 4096}) {
        SCOPED_TRACE(chunk);
        Emulated board('d');
        board.feed("%UP\n");
        EXPECT_EQ("Y", board.feed(writeRequest(0x01DF, page), chunk));    // the last application page
        EXPECT_EQ("N", board.feed(writeRequest(0x01E0, page), chunk));    // the bootloader's own flash
        EXPECT_EQ("N", board.feed(writeRequest(0x0005, page, 1), chunk)); // wrong checksum
        EXPECT_EQ("N", board.feed(lower, chunk));                         // hex is upper case
        EXPECT_EQ(readAnswer(0x0005, erased), board.feed("$0005", chunk));
        // Restart into the application and back, in one piece: the page is still there.
        EXPECT_EQ("OK\r\n", board.feed("#%UP\n", chunk));
        EXPECT_EQ(readAnswer(0x01DF, page), board.feed("$01DF", chunk));
        // Beyond the application section the bootloader reads as erased.
        EXPECT_EQ(readAnswer(0x01E0, erased), board.feed("$01E0", chunk));
    }
}

TEST(Bootloader, APacedLineHoldsTheAnswerUntilTheRequestHasCrossed)
{
    Sim sim({"--board", "d", "--bootloader", "--fault", "baud=19200"});
    const auto port = sim.open();
    const auto t0 = Clock::now();
    ASSERT_TRUE(port->write(writeRequest(1, pageBytes(2))));
    EXPECT_EQ("Y", port->bytes(1));
    // 519 characters of 11 bits at 19200 baud take 297 ms on a real line, however fast the host wrote them.
    EXPECT_GE(Clock::now() - t0, 297ms);
}
