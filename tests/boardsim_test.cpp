// Tests of the board emulator: its helpers, its command line, and the boards
// it publishes, driven over their pseudo-terminals by a small raw termios
// client such as the product would be.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <ftw.h>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <thread>
#include <unistd.h>
#include <vector>

#include "boardsim/faults.h"
#include "boardsim/options.h"
#include "boardsim/personality.h"
#include "boardsim/simulator.h"
#include "boardsim/wire.h"

using namespace boardsim;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

// Deadlines are generous: a loaded two-core machine may stall any step for a
// while, and a deadline that is reached only means a failure.
constexpr auto kWait = 5s;

class TempDir {
public:
    TempDir()
    {
        char path[] = "/tmp/boardsim_test.XXXXXX";
        if (!mkdtemp(path))
            throw std::runtime_error("mkdtemp failed");
        path_ = path;
    }
    ~TempDir()
    {
        nftw(
            path_.c_str(), [](const char* p, const struct stat*, int, FTW*) { return ::remove(p); }, 16,
            FTW_DEPTH | FTW_PHYS);
    }
    const std::string& path() const { return path_; }

private:
    std::string path_;
};

bool pathExists(const std::string& path)
{
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
}

std::string linkTarget(const std::string& path)
{
    char buf[PATH_MAX];
    const ssize_t n = readlink(path.c_str(), buf, sizeof buf - 1);
    return n < 0 ? std::string() : std::string(buf, static_cast<size_t>(n));
}

bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds limit = kWait)
{
    const auto deadline = Clock::now() + limit;
    while (!done()) {
        if (Clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(5ms);
    }
    return true;
}

// The host end of a board's serial port, set up the way the product sets
// up a real one: raw, 8 data bits, even parity, one stop bit.
class Port {
public:
    explicit Port(const std::string& path)
    {
        fd_ = ::open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    }
    ~Port()
    {
        if (fd_ >= 0)
            ::close(fd_);
    }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }

    bool configure(speed_t speed = B19200)
    {
        termios t{};
        if (tcgetattr(fd_, &t) != 0)
            return false;
        cfmakeraw(&t);
        t.c_cflag |= PARENB | CS8 | CLOCAL | CREAD;
        t.c_cflag &= ~(PARODD | CSTOPB);
        cfsetispeed(&t, speed);
        cfsetospeed(&t, speed);
        return tcsetattr(fd_, TCSANOW, &t) == 0;
    }

    speed_t speed() const
    {
        termios t{};
        if (tcgetattr(fd_, &t) != 0)
            return 0;
        return cfgetospeed(&t);
    }

    bool writeLine(const std::string& line) { return writeBytes(line + "\n"); }

    bool writeBytes(const std::string& bytes)
    {
        size_t done = 0;
        const auto deadline = Clock::now() + kWait;
        while (done < bytes.size()) {
            const ssize_t n = ::write(fd_, bytes.data() + done, bytes.size() - done);
            if (n > 0) {
                done += static_cast<size_t>(n);
            } else if (n < 0 && (errno == EAGAIN || errno == EINTR) && Clock::now() < deadline) {
                pollfd p{fd_, POLLOUT, 0};
                ::poll(&p, 1, 50);
            } else {
                return false;
            }
        }
        return true;
    }

    // Exactly `count` bytes, or what arrived before the deadline.
    std::string readBytes(size_t count, std::chrono::milliseconds limit = kWait)
    {
        const auto deadline = Clock::now() + limit;
        while (buffer_.size() < count && fill(deadline)) {
        }
        const size_t n = std::min(count, buffer_.size());
        std::string out = buffer_.substr(0, n);
        buffer_.erase(0, n);
        return out;
    }

    // One line with its "\r\n" removed, as the product reads them.
    std::optional<std::string> readLine(std::chrono::milliseconds limit = kWait)
    {
        const auto deadline = Clock::now() + limit;
        for (;;) {
            const auto nl = buffer_.find('\n');
            if (nl != std::string::npos) {
                std::string line = buffer_.substr(0, nl);
                buffer_.erase(0, nl + 1);
                if (!line.empty() && line.back() == '\r')
                    line.pop_back();
                return line;
            }
            if (!fill(deadline))
                return std::nullopt;
        }
    }

    // Sends a command and returns the next line, events included.
    std::optional<std::string> ask(const std::string& command)
    {
        if (!writeLine(command))
            return std::nullopt;
        return readLine();
    }

    // True once the device is gone: reads report end of file or an error.
    bool waitHangup()
    {
        const auto deadline = Clock::now() + kWait;
        while (Clock::now() < deadline) {
            pollfd p{fd_, POLLIN, 0};
            if (::poll(&p, 1, 100) > 0) {
                char c;
                const ssize_t n = ::read(fd_, &c, 1);
                if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR))
                    return true;
            }
        }
        return false;
    }

private:
    bool fill(Clock::time_point deadline)
    {
        const auto now = Clock::now();
        if (now >= deadline)
            return false;
        const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - now).count();
        pollfd p{fd_, POLLIN, 0};
        if (::poll(&p, 1, static_cast<int>(ms) + 1) <= 0)
            return Clock::now() < deadline;
        char buf[512];
        const ssize_t n = ::read(fd_, buf, sizeof buf);
        if (n > 0) {
            buffer_.append(buf, static_cast<size_t>(n));
            return true;
        }
        if (n < 0 && (errno == EAGAIN || errno == EINTR))
            return true;
        return false;
    }

    int fd_ = -1;
    std::string buffer_;
};

// Collects what the simulator would print on stdout.
class Output {
public:
    void add(const std::string& line)
    {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.push_back(line);
        changed_.notify_all();
    }
    bool waitFor(const std::string& line)
    {
        std::unique_lock<std::mutex> lock(mutex_);
        return changed_.wait_for(lock, kWait, [&] {
            return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
        });
    }
    std::vector<std::string> lines()
    {
        std::lock_guard<std::mutex> lock(mutex_);
        return {lines_.begin(), lines_.end()};
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::string> lines_;
};

// An in-process simulator in its own directory, started from command-line
// style arguments (without --dir, which it supplies).
class Sim {
public:
    explicit Sim(std::vector<std::string> args, PersonalityFactory factory = makePersonality)
    {
        args.insert(args.begin(), {"--dir", dir_.path()});
        std::string error;
        if (!parseOptions(args, options_, error))
            throw std::runtime_error("bad options: " + error);
        sim_ = std::make_unique<Simulator>(
            options_, [this](const std::string& l) { output_.add(l); }, std::move(factory));
        if (!sim_->start(error))
            throw std::runtime_error("start failed: " + error);
    }
    ~Sim() { sim_->stop(); }

    std::string link(size_t board) const
    {
        return dir_.path() + "/tty.usbserial-" + options_.boards.at(board).name;
    }
    std::string control(const std::string& line) { return sim_->control(line); }
    Output& output() { return output_; }
    Simulator& simulator() { return *sim_; }

    // A port on `board`, configured as the product would.
    std::unique_ptr<Port> open(size_t board = 0)
    {
        auto port = std::make_unique<Port>(link(board));
        if (!port->isOpen() || !port->configure())
            ADD_FAILURE() << "cannot open " << link(board) << ": " << std::strerror(errno);
        return port;
    }

private:
    TempDir dir_;
    Options options_;
    Output output_;
    std::unique_ptr<Simulator> sim_;
};

std::vector<std::string> askAll(Port& port, const std::vector<std::string>& commands)
{
    std::vector<std::string> replies;
    for (const auto& c : commands)
        replies.push_back(port.ask(c).value_or("<timeout>"));
    return replies;
}

} // namespace

// ---------------------------------------------------------------------------
// Helpers

TEST(BoardsimWire, LineReaderJoinsPiecesAndKeepsCarriageReturns)
{
    LineReader reader;
    EXPECT_TRUE(reader.feed("?", 1).empty());
    auto lines = reader.feed("\n@\r\n!", 5);
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0].text, "?");
    EXPECT_EQ(lines[1].text, "@\r"); // a host sending "\r\n" is not silently forgiven
    lines = reader.feed("\n", 1);
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].text, "!");
    EXPECT_FALSE(lines[0].cut);
}

TEST(BoardsimWire, LineReaderCutsLongLinesAndRecovers)
{
    LineReader reader;
    const std::string exact(kMaxLineLength, 'a');
    const std::string longer = std::string(kMaxLineLength, 'b') + "tail";
    const std::string input = exact + "\n" + longer + "\nnext\n";
    const auto lines = reader.feed(input.data(), input.size());
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0].text, exact);
    EXPECT_FALSE(lines[0].cut);
    EXPECT_EQ(lines[1].text, std::string(kMaxLineLength, 'b'));
    EXPECT_TRUE(lines[1].cut);
    EXPECT_EQ(lines[2].text, "next");
    EXPECT_FALSE(lines[2].cut);
}

TEST(BoardsimWire, HexAndEscaping)
{
    std::string bytes;
    ASSERT_TRUE(hexDecode("a5 FF0d0A", bytes));
    EXPECT_EQ(bytes, "\xA5\xFF\r\n");
    EXPECT_EQ(hexEncode(bytes), "A5FF0D0A");
    for (const char* bad : {"A", "GG", "A 5", "0x41", "41 4"})
        EXPECT_FALSE(hexDecode(bad, bytes)) << bad;
    EXPECT_EQ(escapeLine("ok \\ \r\xA5\x7f"), "ok \\x5C \\x0D\\xA5\\x7F");
}

// ---------------------------------------------------------------------------
// Faults, personalities and the command line

TEST(BoardsimFaults, SpecsParseAndBadOnesLeaveFaultsAlone)
{
    Faults f;
    std::string error;
    ASSERT_TRUE(applyFaultSpec(f, "nack-every=3", error)) << error;
    ASSERT_TRUE(applyFaultSpec(f, "drop-every=4", error)) << error;
    ASSERT_TRUE(applyFaultSpec(f, "junk-before=HELLO there", error)) << error;
    ASSERT_TRUE(applyFaultSpec(f, "highbit-before", error)) << error;
    ASSERT_TRUE(applyFaultSpec(f, "delay-ms=250", error)) << error;
    ASSERT_TRUE(applyFaultSpec(f, "nack-identify=2", error)) << error;
    ASSERT_TRUE(applyFaultSpec(f, "baud=19200", error)) << error;
    EXPECT_EQ(f.nackEvery, 3u);
    EXPECT_EQ(f.dropEvery, 4u);
    EXPECT_EQ(f.junkBefore.value_or(""), "HELLO there");
    EXPECT_EQ(f.highbitBefore.value_or(0), 0xA5);
    EXPECT_EQ(f.delayMs, 250u);
    EXPECT_EQ(f.nackIdentify, 2u);
    EXPECT_EQ(f.baud, 19200u);
    ASSERT_TRUE(applyFaultSpec(f, "highbit-before=fe", error)) << error;
    EXPECT_EQ(f.highbitBefore.value_or(0), 0xFE);

    for (const char* bad : {"nack-every=0", "nack-every=", "nack-every", "drop-every=x", "baud=0",
                            "delay-ms=-1", "highbit-before=41", "highbit-before=A5A5", "junk-before",
                            "bogus", "clear=1"}) {
        error.clear();
        EXPECT_FALSE(applyFaultSpec(f, bad, error)) << bad;
        EXPECT_FALSE(error.empty()) << bad;
    }
    EXPECT_EQ(f.nackEvery, 3u) << "a rejected setting changed the faults";

    ASSERT_TRUE(applyFaultSpec(f, "clear", error));
    EXPECT_FALSE(f.any());
}

TEST(BoardsimPersonality, FactoryKnowsEveryBoardType)
{
    const std::pair<char, const char*> expected[] = {
        {'c', "Chassis board"},
        {'d', "Diskpack board"},
        {'r', "Remote Control AVR board"},
        {'t', "Desktop Transfer Station board"},
        {'u', "Xfer Drive Dual SAS board"},
        {'x', "Transfer Station board"},
    };
    for (const auto& [letter, identity] : expected) {
        auto p = makePersonality(BoardInfo{letter, 4, "V9.99"});
        ASSERT_TRUE(p) << letter;
        Replier r;
        p->handle("?", r);
        ASSERT_EQ(r.items().size(), 1u);
        EXPECT_EQ(r.items()[0].kind, Replier::Kind::Final);
        EXPECT_EQ(r.items()[0].bytes, std::string(identity) + " V9.99");
    }
    EXPECT_FALSE(makePersonality(BoardInfo{'q', 0, "V1.00"}));
    EXPECT_FALSE(makePersonality(BoardInfo{'D', 0, "V1.00"}));
}

TEST(BoardsimOptions, PerBoardOptionsApplyToTheirBoard)
{
    TempDir dir;
    Options o;
    std::string error;
    ASSERT_TRUE(parseOptions({"--log", "--board", "d", "--id", "3", "--fault", "nack-every=2", "--fault",
                              "delay-ms=5", "--dir", dir.path(), "--board", "r", "--version", "V2.07",
                              "--board", "x", "--id", "7", "--name", "bench-x"},
                             o, error))
        << error;
    EXPECT_TRUE(o.log);
    ASSERT_EQ(o.boards.size(), 3u);
    EXPECT_EQ(o.boards[0].letter, 'd');
    EXPECT_EQ(o.boards[0].id, 3);
    EXPECT_EQ(o.boards[0].version, "V1.00");
    EXPECT_EQ(o.boards[0].faults, (std::vector<std::string>{"nack-every=2", "delay-ms=5"}));
    EXPECT_EQ(o.boards[0].name, "SIM0d3");
    EXPECT_EQ(o.boards[1].id, 0);
    EXPECT_EQ(o.boards[1].version, "V2.07");
    EXPECT_TRUE(o.boards[1].faults.empty());
    EXPECT_EQ(o.boards[1].name, "SIM1r0");
    EXPECT_EQ(o.boards[2].name, "bench-x");
}

TEST(BoardsimOptions, MistakesAreRejected)
{
    TempDir dir;
    const std::string d = dir.path();
    const std::vector<std::vector<std::string>> bad = {
        {"--dir", d},                                              // no board
        {"--board", "d"},                                          // no dir
        {"--dir", d + "/missing", "--board", "d"},                 // dir does not exist
        {"--dir", d, "--board", "q"},                              // unknown letter
        {"--dir", d, "--board", "dd"},                             // not a letter
        {"--dir", d, "--id", "1", "--board", "d"},                 // per-board option before a board
        {"--dir", d, "--board", "d", "--id", "12"},                // id is one digit
        {"--dir", d, "--board", "d", "--id"},                      // missing value
        {"--dir", d, "--board", "d", "--fault", "nack-every=0"},   // bad fault
        {"--dir", d, "--board", "d", "--name", "a/b"},             // name with a slash
        {"--dir", d, "--board", "d", "--name", "n", "--board", "r", "--name", "n"}, // duplicate
        {"--dir", d, "--board", "d", "--frobnicate"},              // unknown option
    };
    for (const auto& args : bad) {
        Options o;
        std::string error;
        std::string joined;
        for (const auto& a : args)
            joined += a + " ";
        EXPECT_FALSE(parseOptions(args, o, error)) << joined;
        EXPECT_FALSE(error.empty()) << joined;
    }

    // Default names have one digit for the position.
    std::vector<std::string> eleven = {"--dir", d};
    for (int i = 0; i < 11; ++i)
        eleven.insert(eleven.end(), {"--board", "c"});
    Options o;
    std::string error;
    EXPECT_FALSE(parseOptions(eleven, o, error));
    eleven.insert(eleven.end(), {"--name", "last"});
    EXPECT_TRUE(parseOptions(eleven, o, error)) << error;
}

// ---------------------------------------------------------------------------
// Boards on the wire

TEST(BoardsimBoard, AnswersTheCoreCommands)
{
    Sim sim({"--board", "d", "--id", "3", "--board", "r", "--id", "5", "--version", "V2.07"});
    auto d = sim.open(0);
    auto r = sim.open(1);

    // Exact bytes first: board lines end with "\r\n".
    ASSERT_TRUE(d->writeLine("@"));
    EXPECT_EQ(d->readBytes(4), "R3\r\n");

    // ("K" is no diskpack command; "!" is left out because the diskpack
    // follows its OK with state events.)
    EXPECT_EQ(askAll(*d, {"?", "@", "K", "", "??", "?\r", "a"}),
              (std::vector<std::string>{"Diskpack board V1.00", "R3", "N", "N", "N", "N", "N"}));
    EXPECT_EQ(askAll(*r, {"?", "@"}), (std::vector<std::string>{"Remote Control AVR board V2.07", "R5"}));
}

TEST(BoardsimBoard, CutsOverlongLinesAndKeepsAnswering)
{
    Sim sim({"--log", "--board", "d", "--id", "3"});
    auto port = sim.open();
    ASSERT_TRUE(port->writeLine(std::string(2000, 'x')));
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "N");
    EXPECT_TRUE(sim.output().waitFor("rx 0 " + std::string(kMaxLineLength, 'x')));
    EXPECT_EQ(port->ask("@").value_or("<timeout>"), "R3");
}

TEST(BoardsimBoard, LogsReceivedLinesEscaped)
{
    Sim sim({"--log", "--board", "c"});
    auto port = sim.open();
    ASSERT_TRUE(port->writeBytes("h\xA5\\i\n"));
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "N");
    EXPECT_TRUE(sim.output().waitFor("rx 0 h\\xA5\\x5Ci"));
}

TEST(BoardsimBoard, ChangesThePortSpeedAfterEveryLine)
{
    Sim sim({"--board", "d"});
    auto port = std::make_unique<Port>(sim.link(0));
    ASSERT_TRUE(port->isOpen());
    EXPECT_EQ(port->speed(), B1200) << "the pty should start at 1200 baud";

    ASSERT_TRUE(port->configure(B19200));
    speed_t last = port->speed();
    ASSERT_EQ(last, B19200);
    for (int i = 0; i < 4; ++i) {
        ASSERT_EQ(port->ask("@").value_or("<timeout>"), "R0");
        const speed_t now = port->speed();
        EXPECT_NE(now, last) << "after line " << i;
        EXPECT_TRUE(now == B1200 || now == B2400) << "after line " << i;
        last = now;
    }
    // The product configuring the same 8E1 port again is a real change.
    ASSERT_TRUE(port->configure(B19200)) << std::strerror(errno);
    EXPECT_EQ(port->speed(), B19200);
}

TEST(BoardsimBoard, PortCanBeClosedAndReopened)
{
    Sim sim({"--board", "x", "--id", "2"});
    for (int i = 0; i < 3; ++i) {
        auto port = sim.open();
        EXPECT_EQ(port->ask("@").value_or("<timeout>"), "R2") << "opening " << i;
    }
}

TEST(BoardsimBoard, ControlEventsAndRawBytes)
{
    Sim sim({"--board", "t", "--board", "u", "--name", "dual"});
    auto t = sim.open(0);
    auto u = sim.open(1);
    EXPECT_EQ(sim.control("event 0 hello  world"), "ok");
    EXPECT_EQ(t->readBytes(14), "hello  world\r\n");
    EXPECT_EQ(sim.control("send 0 A5 0d0a"), "ok");
    EXPECT_EQ(t->readBytes(3), "\xA5\r\n");

    // Boards are addressed by index, name or link name.
    EXPECT_EQ(sim.control("event dual one"), "ok");
    EXPECT_EQ(sim.control("event tty.usbserial-dual two"), "ok");
    EXPECT_EQ(sim.control("event 1 three"), "ok");
    EXPECT_EQ(u->readLine().value_or("<timeout>"), "one");
    EXPECT_EQ(u->readLine().value_or("<timeout>"), "two");
    EXPECT_EQ(u->readLine().value_or("<timeout>"), "three");

    for (const char* bad : {"event 2 x", "event nosuch x", "event 0", "event", "send 0 A", "send 0",
                            "fault 0 bogus", "fault 0", "frob 0 x", "unplug 0 now", "quit now", "", "plug 0"}) {
        EXPECT_EQ(sim.control(bad).rfind("error: ", 0), 0u) << bad;
    }
    EXPECT_FALSE(sim.simulator().quitRequested());
    EXPECT_EQ(sim.control("quit"), "ok");
    EXPECT_TRUE(sim.simulator().quitRequested());
}

// ---------------------------------------------------------------------------
// Faults on the wire

TEST(BoardsimFaultWire, NackEveryCountsAllCommands)
{
    Sim sim({"--board", "d", "--id", "3", "--fault", "nack-every=3"});
    auto port = sim.open();
    EXPECT_EQ(askAll(*port, {"@", "?", "!", "@", "@", "?", "!"}),
              (std::vector<std::string>{"R3", "Diskpack board V1.00", "N", "R3", "R3", "N", "OK"}));
}

TEST(BoardsimFaultWire, DropEverySendsNothing)
{
    Sim sim({"--board", "d", "--fault", "drop-every=2"});
    auto port = sim.open();
    // Sent in one go: had a dropped command been answered, its reply would
    // come between the ones we expect.
    ASSERT_TRUE(port->writeBytes("?\n@\nK\n@\n?\n"));
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "Diskpack board V1.00");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "N");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "Diskpack board V1.00");
}

TEST(BoardsimFaultWire, JunkAndHighBitComeBeforeEachReply)
{
    Sim sim({"--board", "d", "--id", "1", "--fault", "junk-before=HELLO", "--board", "d", "--id", "2",
             "--fault", "highbit-before", "--fault", "junk-before=xnoise"});
    auto junk = sim.open(0);
    auto high = sim.open(1);
    for (const auto& [command, reply] : {std::pair<const char*, const char*>{"@", "R1"}, {"!", "OK"}}) {
        EXPECT_EQ(junk->ask(command).value_or("<timeout>"), "HELLO");
        EXPECT_EQ(junk->readLine().value_or("<timeout>"), reply);
    }

    ASSERT_TRUE(high->writeLine("@"));
    EXPECT_EQ(high->readBytes(15), "\xA5\r\nxnoise\r\nR2\r\n");
}

TEST(BoardsimFaultWire, DelayHoldsRepliesInOrderButNotEvents)
{
    Sim sim({"--log", "--board", "d", "--id", "3", "--fault", "delay-ms=400"});
    auto port = sim.open();
    const auto start = Clock::now();
    ASSERT_TRUE(port->writeBytes("@\n?\n"));
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "R3");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "Diskpack board V1.00");
    EXPECT_GE(Clock::now() - start, 800ms) << "each reply waits its own delay";

    ASSERT_EQ(sim.control("fault 0 delay-ms=1500"), "ok");
    ASSERT_TRUE(port->writeLine("!"));
    ASSERT_TRUE(sim.output().waitFor("rx 0 !"));
    EXPECT_EQ(sim.control("event 0 zap"), "ok");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "zap");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "OK");
}

TEST(BoardsimFaultWire, NackIdentifyRefusesOnlyTheFirstIdentifies)
{
    Sim sim({"--board", "r", "--id", "4", "--fault", "nack-identify=2"});
    auto port = sim.open();
    EXPECT_EQ(askAll(*port, {"?", "@", "?", "?", "?"}),
              (std::vector<std::string>{"N", "R4", "N", "Remote Control AVR board V1.00",
                                        "Remote Control AVR board V1.00"}));
}

TEST(BoardsimFaultWire, BaudPacesWhatTheBoardSends)
{
    Sim sim({"--board", "d", "--fault", "baud=1200"});
    auto port = sim.open();
    const std::string text(98, 'e'); // 100 characters with "\r\n": 11 * 100 / 1200 s
    const auto start = Clock::now();
    ASSERT_EQ(sim.control("event 0 " + text), "ok");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), text);
    EXPECT_GE(Clock::now() - start, 900ms);
}

TEST(BoardsimFaultWire, FaultsChangeAtRunTime)
{
    Sim sim({"--board", "d", "--id", "6"});
    auto port = sim.open();
    ASSERT_EQ(sim.control("fault 0 nack-every=1"), "ok");
    EXPECT_EQ(port->ask("@").value_or("<timeout>"), "N");
    ASSERT_EQ(sim.control("fault 0 junk-before=JUNK"), "ok");
    EXPECT_EQ(askAll(*port, {"@"}), (std::vector<std::string>{"JUNK"}));
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "N");
    ASSERT_EQ(sim.control("fault 0 clear"), "ok");
    EXPECT_EQ(port->ask("@").value_or("<timeout>"), "R6");
}

// ---------------------------------------------------------------------------
// The hooks board personalities build on

namespace {

// A board with one lamp: "L1"/"L0" switch it, "!" reports it, the control
// line "press B" toggles it, "blink B" makes it tick, and "B" enters a
// bootloader that echoes until "Q".
class LampPersonality : public Personality {
public:
    using Personality::Personality;

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        if (verb == "press") {
            on_ = !on_;
            synchronise(out);
            return true;
        }
        if (verb == "blink") {
            blinking_ = !blinking_;
            return true;
        }
        if (verb == "say") {
            out.event(args);
            return true;
        }
        return Personality::control(verb, args, out, error);
    }
    std::chrono::milliseconds tickInterval() const override
    {
        return std::chrono::milliseconds(blinking_ ? 20 : 0);
    }
    void tick(Replier& out) override { out.event("blink"); }

protected:
    bool command(const std::string& line, Replier& out) override
    {
        if (line == "L1" || line == "L0") {
            on_ = line == "L1";
            out.ok();
            return true;
        }
        if (line == "B") {
            out.ok();
            out.become(std::make_unique<LoaderPersonality>(info()));
            return true;
        }
        return false;
    }
    void synchronise(Replier& out) override { out.event(on_ ? "lamp on" : "lamp off"); }

private:
    class LoaderPersonality : public Personality {
    public:
        using Personality::Personality;
        void handle(const std::string& line, Replier& out) override
        {
            if (line == "Q") {
                out.final("bye");
                out.become(std::make_unique<LampPersonality>(info()));
            } else {
                out.final("L:" + line);
            }
        }
    };

    bool on_ = false;
    bool blinking_ = false;
};

std::unique_ptr<Personality> makeLamp(const BoardInfo& info)
{
    return std::make_unique<LampPersonality>(info);
}

} // namespace

TEST(BoardsimPersonalityHooks, CommandsSynchronisationAndControl)
{
    Sim sim({"--board", "c", "--id", "8", "--fault", "junk-before=JUNK"}, makeLamp);
    auto port = sim.open();
    // Junk goes right before the final line, not before the events after it.
    EXPECT_EQ(askAll(*port, {"!"}), (std::vector<std::string>{"JUNK"}));
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "OK");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "lamp off");
    ASSERT_EQ(sim.control("fault 0 clear"), "ok");

    EXPECT_EQ(askAll(*port, {"L1", "@", "X"}), (std::vector<std::string>{"OK", "R8", "N"}));
    EXPECT_EQ(port->ask("!").value_or("<timeout>"), "OK");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "lamp on");

    EXPECT_EQ(sim.control("press 0"), "ok");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "lamp off");
    EXPECT_EQ(sim.control("say 0 two words"), "ok");
    EXPECT_EQ(port->readLine().value_or("<timeout>"), "two words");
    EXPECT_EQ(sim.control("frob 0"), "error: unknown command 'frob'");
}

TEST(BoardsimPersonalityHooks, TicksFollowTheInterval)
{
    Sim sim({"--board", "c"}, makeLamp);
    auto port = sim.open();
    ASSERT_EQ(sim.control("blink 0"), "ok");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(port->readLine().value_or("<timeout>"), "blink") << i;
    ASSERT_EQ(sim.control("blink 0"), "ok");
    // Ticks sent before the switch-off may still be on their way; after the
    // reply to a later command, nothing more may come.
    ASSERT_TRUE(port->writeLine("@"));
    std::optional<std::string> line;
    do {
        line = port->readLine();
    } while (line == "blink");
    EXPECT_EQ(line.value_or("<timeout>"), "R0");
    EXPECT_EQ(port->readLine(300ms), std::nullopt);
}

TEST(BoardsimPersonalityHooks, PersonalityCanHandOverToAnother)
{
    Sim sim({"--board", "c"}, makeLamp);
    auto port = sim.open();
    EXPECT_EQ(askAll(*port, {"B", "?", "@", "Q", "?"}),
              (std::vector<std::string>{"OK", "L:?", "L:@", "bye", "Chassis board V1.00"}));
}

// ---------------------------------------------------------------------------
// Hot plugging

TEST(BoardsimPlug, UnplugMakesTheDeviceVanishAndPlugBringsItBack)
{
    Sim sim({"--board", "d", "--id", "3", "--board", "c", "--id", "1"});
    const std::string link = sim.link(0);
    const std::string before = linkTarget(link);
    ASSERT_EQ(before.rfind("/dev/pts/", 0), 0u) << before;
    auto port = sim.open(0);
    ASSERT_EQ(port->ask("@").value_or("<timeout>"), "R3");

    ASSERT_EQ(sim.control("unplug 0"), "ok");
    EXPECT_FALSE(pathExists(link));
    EXPECT_TRUE(port->waitHangup());
    EXPECT_EQ(sim.control("event 0 x").rfind("error: ", 0), 0u);
    EXPECT_EQ(sim.control("unplug 0").rfind("error: ", 0), 0u);
    EXPECT_TRUE(pathExists(sim.link(1))) << "the other board was unplugged too";

    ASSERT_EQ(sim.control("plug 0"), "ok");
    ASSERT_TRUE(pathExists(link));
    EXPECT_EQ(linkTarget(link).rfind("/dev/pts/", 0), 0u);
    auto again = sim.open(0);
    EXPECT_EQ(again->ask("@").value_or("<timeout>"), "R3");
    EXPECT_EQ(again->ask("?").value_or("<timeout>"), "Diskpack board V1.00");
}

TEST(BoardsimPlug, UnplugDiscardsAHeldBackReply)
{
    Sim sim({"--log", "--board", "d", "--fault", "delay-ms=1000"});
    auto port = sim.open();
    ASSERT_TRUE(port->writeLine("@"));
    ASSERT_TRUE(sim.output().waitFor("rx 0 @"));
    ASSERT_EQ(sim.control("unplug 0"), "ok");
    ASSERT_EQ(sim.control("plug 0"), "ok");
    auto again = sim.open();
    // Only the new command's reply arrives, after its own delay.
    EXPECT_EQ(again->ask("!").value_or("<timeout>"), "OK");
}

// ---------------------------------------------------------------------------
// The program itself

namespace {

// boardsim run as a child process with pipes on its standard streams.
class Child {
public:
    explicit Child(const std::vector<std::string>& args)
    {
        int in[2], out[2], err[2];
        if (pipe2(in, O_CLOEXEC) || pipe2(out, O_CLOEXEC) || pipe2(err, O_CLOEXEC))
            throw std::runtime_error("pipe failed");
        std::vector<std::string> argv = {BOARDSIM_PATH};
        argv.insert(argv.end(), args.begin(), args.end());
        pid_ = fork();
        if (pid_ == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            dup2(err[1], 2);
            std::vector<char*> cargv;
            for (auto& a : argv)
                cargv.push_back(a.data());
            cargv.push_back(nullptr);
            execv(cargv[0], cargv.data());
            _exit(127);
        }
        ::close(in[0]);
        ::close(out[1]);
        ::close(err[1]);
        stdin_ = in[1];
        stdout_ = out[0];
        stderr_ = err[0];
    }
    ~Child()
    {
        closeStdin();
        if (pid_ > 0 && !status_) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        ::close(stdout_);
        ::close(stderr_);
    }

    void say(const std::string& line)
    {
        const std::string data = line + "\n";
        ASSERT_EQ(::write(stdin_, data.data(), data.size()), static_cast<ssize_t>(data.size()));
    }
    void closeStdin()
    {
        if (stdin_ >= 0)
            ::close(stdin_);
        stdin_ = -1;
    }
    void signal(int sig) { ::kill(pid_, sig); }

    std::optional<std::string> readLine() { return readLineFrom(stdout_, outBuf_); }
    std::string readAllStderr()
    {
        std::string all;
        while (auto line = readLineFrom(stderr_, errBuf_))
            all += *line + "\n";
        return all + errBuf_;
    }
    std::string readAllStdout()
    {
        std::string all;
        while (auto line = readLineFrom(stdout_, outBuf_))
            all += *line + "\n";
        return all + outBuf_;
    }

    // The exit status, or -1 if the child did not end in time.
    int wait()
    {
        const bool ended = waitUntil([&] {
            int st = 0;
            if (waitpid(pid_, &st, WNOHANG) == pid_)
                status_ = st;
            return status_.has_value();
        });
        if (!ended)
            return -1;
        return WIFEXITED(*status_) ? WEXITSTATUS(*status_) : 128 + WTERMSIG(*status_);
    }

private:
    static std::optional<std::string> readLineFrom(int fd, std::string& buf)
    {
        const auto deadline = Clock::now() + kWait;
        for (;;) {
            const auto nl = buf.find('\n');
            if (nl != std::string::npos) {
                std::string line = buf.substr(0, nl);
                buf.erase(0, nl + 1);
                return line;
            }
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
            if (left.count() <= 0)
                return std::nullopt;
            pollfd p{fd, POLLIN, 0};
            if (::poll(&p, 1, static_cast<int>(left.count())) <= 0)
                return std::nullopt;
            char chunk[512];
            const ssize_t n = ::read(fd, chunk, sizeof chunk);
            if (n <= 0)
                return std::nullopt;
            buf.append(chunk, static_cast<size_t>(n));
        }
    }

    pid_t pid_ = -1;
    int stdin_ = -1, stdout_ = -1, stderr_ = -1;
    std::string outBuf_, errBuf_;
    std::optional<int> status_;
};

} // namespace

TEST(BoardsimProgram, HelpDocumentsOptionsFaultsAndControlLines)
{
    Child child({"--help"});
    const std::string text = child.readAllStdout();
    EXPECT_EQ(child.wait(), 0);
    for (const char* needle : {"--dir", "--board", "--id", "--version", "--name", "--fault", "--log",
                               "nack-every=N", "drop-every=N", "junk-before=TEXT", "highbit-before",
                               "delay-ms=N", "nack-identify=N", "baud=RATE", "event B TEXT", "send B HEX",
                               "unplug B", "plug B", "fault B FAULT", "quit", "Diskpack board"})
        EXPECT_NE(text.find(needle), std::string::npos) << needle;
}

TEST(BoardsimProgram, BadUsageExitsWithStatusTwo)
{
    TempDir dir;
    const std::vector<std::vector<std::string>> bad = {
        {"--dir", dir.path(), "--board", "q"},
        {"--dir", dir.path(), "--board", "d", "--bogus"},
        {"--dir", dir.path() + "/nope", "--board", "d"},
        {"--board", "d"},
    };
    for (const auto& args : bad) {
        Child child(args);
        EXPECT_EQ(child.wait(), 2) << args.back();
        EXPECT_FALSE(child.readAllStderr().empty()) << args.back();
        EXPECT_TRUE(child.readAllStdout().empty()) << args.back();
    }
}

TEST(BoardsimProgram, PublishesBeforeReadyAndCleansUpOnQuit)
{
    TempDir dir;
    Child child({"--dir", dir.path(), "--log", "--board", "d", "--id", "3", "--board", "r", "--id", "5",
                 "--name", "remote"});
    ASSERT_EQ(child.readLine().value_or("<nothing>"), "ready");
    const std::string d = dir.path() + "/tty.usbserial-SIM0d3";
    const std::string r = dir.path() + "/tty.usbserial-remote";
    ASSERT_TRUE(pathExists(d));
    ASSERT_TRUE(pathExists(r));

    Port port(d);
    ASSERT_TRUE(port.isOpen() && port.configure());
    EXPECT_EQ(port.ask("?").value_or("<timeout>"), "Diskpack board V1.00");
    EXPECT_EQ(child.readLine().value_or("<nothing>"), "rx 0 ?");
    child.say("event 0 hello");
    EXPECT_EQ(child.readLine().value_or("<nothing>"), "ok");
    EXPECT_EQ(port.readLine().value_or("<timeout>"), "hello");
    child.say("event 7 hello");
    EXPECT_EQ(child.readLine().value_or("<nothing>").rfind("error: ", 0), 0u);

    child.say("quit");
    EXPECT_EQ(child.readLine().value_or("<nothing>"), "ok");
    EXPECT_EQ(child.wait(), 0);
    EXPECT_FALSE(pathExists(d));
    EXPECT_FALSE(pathExists(r));
}

TEST(BoardsimProgram, CleansUpOnEndOfInputAndOnSignals)
{
    TempDir dir;
    const std::string link = dir.path() + "/tty.usbserial-SIM0c0";
    {
        Child child({"--dir", dir.path(), "--board", "c"});
        ASSERT_EQ(child.readLine().value_or("<nothing>"), "ready");
        ASSERT_TRUE(pathExists(link));
        child.closeStdin();
        EXPECT_EQ(child.wait(), 0);
        EXPECT_FALSE(pathExists(link));
    }
    for (int sig : {SIGTERM, SIGINT}) {
        Child child({"--dir", dir.path(), "--board", "c"});
        ASSERT_EQ(child.readLine().value_or("<nothing>"), "ready");
        ASSERT_TRUE(pathExists(link));
        child.signal(sig);
        EXPECT_EQ(child.wait(), 0) << strsignal(sig);
        EXPECT_FALSE(pathExists(link)) << strsignal(sig);
    }
}
