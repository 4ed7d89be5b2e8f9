// A fault soak of the serial link: thousands of command exchanges against an
// emulated diskpack that breaks about one in ten of them at random, sends
// numbered events (some in the middle of exchanges), and is unplugged and
// plugged back now and then. boardsim's fault log says what it did to each
// command, so every exchange's outcome can be checked against it.
//
//   bench_soak [EXCHANGES] [--seed N] [--no-babble]
//
// It ends with a board that talks without end and answers nothing. Exits 1
// and says what failed on any wrong outcome, lost, repeated or reordered
// event, slow close after an unplug, failed re-discovery or hang.
#include "link/ControlBoard.h"
#include "support/SimProcess.h"

#include <juce_events/juce_events.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <thread>
#include <unistd.h>

namespace
{
constexpr int faultPercent = 10;
constexpr int eventPercent = 10;         // before a reply, and again after one
constexpr int idleMs = 20;               // long enough for the event thread to look at the port
constexpr int maxUnplugCycles = 20;
constexpr int racedReopens = 3;          // cycles that race reopenPort against the unplug: the 2nd, 4th, 6th
constexpr juce::uint32 closeAfterUnplugMs = 1000;
constexpr juce::uint32 lateReplyWaitMs = 1300; // past boardsim's 700 ms late replies, with room
constexpr int exchangeDeadlineMs = 15000;      // the watchdog's; the link's own bounds are far below
constexpr int maxReportedFailures = 20;

juce::uint32 now() { return juce::Time::getMillisecondCounter(); }

bool waitUntil(const std::function<bool()>& condition, juce::uint32 timeoutMs)
{
    const auto deadline = now() + timeoutMs;
    while (!condition())
    {
        if (now() >= deadline)
            return condition();
        juce::Thread::sleep(2);
    }
    return true;
}

/** Keeps the link's diagnostics, so each exchange's can be checked. */
class CapturingLogger : public juce::Logger
{
public:
    void logMessage(const juce::String& message) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        lines.add(message);
    }
    juce::StringArray take()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        juce::StringArray taken;
        taken.swapWith(lines);
        return taken;
    }

private:
    std::mutex mutex;
    juce::StringArray lines;
};

/** Aborts the run when one step outlives its deadline: a hang is a failure,
    and nothing after it can be trusted. */
class Watchdog
{
public:
    Watchdog() : thread([this] { watch(); }) {}
    ~Watchdog()
    {
        {
            const std::lock_guard<std::mutex> lock(mutex);
            stopping = true;
        }
        wake.notify_all();
        thread.join();
    }
    void arm(const std::string& step, int timeoutMs)
    {
        const std::lock_guard<std::mutex> lock(mutex);
        what = step;
        deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        armed = true;
    }
    void disarm()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        armed = false;
    }

private:
    void watch()
    {
        std::unique_lock<std::mutex> lock(mutex);
        while (!stopping)
        {
            wake.wait_for(lock, std::chrono::milliseconds(100));
            if (armed && std::chrono::steady_clock::now() > deadline)
            {
                printf("FAIL: hang: %s did not end within its deadline\n", what.c_str());
                fflush(stdout);
                std::_Exit(1);
            }
        }
    }

    std::mutex mutex;
    std::condition_variable wake;
    bool stopping = false, armed = false;
    std::string what;
    std::chrono::steady_clock::time_point deadline;
    std::thread thread;
};

/** The diskpack as the link sees it: keeps the numbered events in arrival
    order, and every line that is not an event (a reply that came too late). */
class SoakBoard : public ControlBoard
{
public:
    ~SoakBoard() override { closeBoard(false); }
    const char* boardIdString() const override { return "Diskpack board"; }

    void eventReceived(const juce::String& line) override
    {
        const std::lock_guard<std::mutex> lock(mutex);
        if (line[0] == 'e' && line.length() > 1 && line.substring(1).containsOnly("0123456789"))
            numbered.push_back((unsigned long) line.substring(1).getLargeIntValue());
        else if (line == "babble")
            ++babbles;
        else if (line[0] >= 'a' && line[0] <= 'z')
            otherEvents.add(line);
        else
            strays.add(line);
    }

    std::vector<unsigned long> events() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return numbered;
    }
    juce::StringArray takeStrays()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        juce::StringArray taken;
        taken.swapWith(strays);
        return taken;
    }
    int strayCount() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return strays.size();
    }
    long babbleCount() const
    {
        const std::lock_guard<std::mutex> lock(mutex);
        return babbles;
    }
    juce::StringArray takeUnexpectedEvents()
    {
        const std::lock_guard<std::mutex> lock(mutex);
        juce::StringArray taken;
        taken.swapWith(otherEvents);
        return taken;
    }

private:
    mutable std::mutex mutex;
    std::vector<unsigned long> numbered;
    juce::StringArray strays, otherEvents;
    long babbles = 0;
};

/** boardsim's --fault-log, followed as it grows. */
class FaultLog
{
public:
    struct Entry
    {
        unsigned long seq = 0;
        std::string fault, line;
        std::vector<unsigned long> events;
    };

    explicit FaultLog(const std::string& path) : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    ~FaultLog()
    {
        if (fd >= 0)
            ::close(fd);
    }

    /** The next entry, waiting up to `timeoutMs` for it to be written. */
    bool next(Entry& entry, juce::uint32 timeoutMs)
    {
        const auto deadline = now() + timeoutMs;
        for (;;)
        {
            const auto nl = buffer.find('\n');
            if (nl != std::string::npos)
            {
                std::istringstream in(buffer.substr(0, nl));
                buffer.erase(0, nl + 1);
                std::string board, before, after;
                in >> board >> entry.seq >> entry.fault >> before >> after;
                in.get();
                std::getline(in, entry.line);
                entry.events.clear();
                for (auto* e : { &before, &after })
                    if (*e != "-")
                        entry.events.push_back(std::stoul(*e));
                return true;
            }
            char chunk[4096];
            const ssize_t n = fd >= 0 ? ::read(fd, chunk, sizeof chunk) : -1;
            if (n > 0)
                buffer.append(chunk, (size_t) n);
            else if (now() >= deadline)
                return false;
            else
                juce::Thread::sleep(2);
        }
    }

private:
    int fd;
    std::string buffer;
};

/** One kind of exchange: the line the board receives, its final reply, and the
    product call that makes it, which returns the decoded value as text. */
struct Exchange
{
    const char* line;
    const char* reply;
    std::function<bool(SoakBoard&, juce::String&)> run;
    const char* value;
};

const Exchange exchanges[] = {
    { "A1", "OK", [](SoakBoard& b, juce::String&) { return b.sendCommand('A', true); }, "" },
    { "C", "OK", [](SoakBoard& b, juce::String&) { return b.sendCommand('C', -1, 0); }, "" },
    { "DSOAK", "OK", [](SoakBoard& b, juce::String&) { return b.sendCommand('D', "SOAK"); }, "" },
    { "O", "R04D2",
      [](SoakBoard& b, juce::String& v) {
          int hours = 0;
          const bool ok = b.sendCommandGetIntResponse('O', 4, hours);
          v = juce::String(hours);
          return ok;
      },
      "1234" },
    { "G01", "R0CE4",
      [](SoakBoard& b, juce::String& v) {
          int millivolts = 0;
          const bool ok = b.sendCommandGetIntResponse('G', 4, millivolts, 0x01, 2);
          v = juce::String(millivolts);
          return ok;
      },
      "3300" },
    { "U", "R{6B29FC40-CA47-1067-B31D-00DD010662D0}",
      [](SoakBoard& b, juce::String& v) { return b.sendCommandGetStringResponse('U', v); },
      "{6B29FC40-CA47-1067-B31D-00DD010662D0}" },
    { "E0", "R5000C50000000000",
      [](SoakBoard& b, juce::String& v) {
          unsigned char address[8] = {};
          const bool ok = b.sendCommandGetArrayResponse('E', 0, 1, address, 8);
          v = juce::String::toHexString(address, 8, 0).toUpperCase();
          return ok;
      },
      "5000C50000000000" },
};

/** What each fault must do to an exchange: whether it still succeeds, the
    diagnostic the link writes, and whether the reply turns up after the
    exchange has given up. A junk line is skipped, so the exchange succeeds. */
struct Outcome
{
    bool succeeds;
    const char* diagnostic; // nullptr: the exchange writes none
    bool lateReply;
};

const std::map<std::string, Outcome> outcomes = {
    { "none", { true, nullptr, false } },
    { "junk", { true, "received unexpected reply 'JUNK'", false } },
    { "nack", { false, "received NACK", false } },
    { "drop", { false, "reply timeout", false } },
    { "highbit", { false, "reply fail", true } },
    { "delay", { false, "reply timeout", true } },
};

class Soak
{
public:
    Soak(SimProcess& simulator, const std::string& faultLogPath, unsigned seed)
        : sim(simulator), log(faultLogPath), pick(seed)
    {
    }

    void fail(const juce::String& what)
    {
        if (++failures <= maxReportedFailures)
            printf("FAIL: %s\n", what.toRawUTF8());
        fflush(stdout);
    }
    bool failedTooOften() const { return failures > maxReportedFailures; }
    int failureCount() const { return failures; }

    bool open()
    {
        watchdog.arm("finding the board", 60000);
        bool found = false;
        for (int attempt = 1; attempt <= 10 && !found; ++attempt)
        {
            found = board.findAndOpen(0);
            maxFindAttempts = std::max(maxFindAttempts, attempt);
            if (!found)
                juce::Thread::sleep((int) lateReplyWaitMs); // any late reply of the last try is gone by then
        }
        watchdog.disarm();
        if (!found)
            fail("the board was not found again after 10 searches");
        // Late replies to the search may still arrive; they must not pass for
        // an exchange's later.
        takeDiscoveryEntries();
        return found;
    }

    void exchange(int index)
    {
        const auto& ex = exchanges[std::uniform_int_distribution<size_t>(0, std::size(exchanges) - 1)(pick)];
        logger.take();
        const juce::String what = "exchange " + juce::String(index) + " '" + ex.line + "'";
        watchdog.arm(what.toStdString(), exchangeDeadlineMs);
        const auto start = juce::Time::getMillisecondCounterHiRes();
        juce::String value;
        const bool ok = ex.run(board, value);
        const double took = juce::Time::getMillisecondCounterHiRes() - start;
        watchdog.disarm();
        const auto diagnostics = logger.take();

        FaultLog::Entry entry;
        if (!nextExchangeEntry(entry))
        {
            fail(what + ": the board never logged it");
            return;
        }
        if (entry.line != ex.line)
        {
            fail(what + ": the board received '" + entry.line + "'");
            return;
        }
        for (auto e : entry.events)
            required.insert(e);
        const auto found = outcomes.find(entry.fault);
        if (found == outcomes.end())
        {
            fail(what + ": unexpected fault '" + entry.fault + "'");
            return;
        }
        ++faultCounts[entry.fault];
        if (took > longest)
        {
            longest = took;
            longestFault = entry.fault;
        }
        if (entry.fault == "none")
            longestClean = std::max(longestClean, took);

        const Outcome& outcome = found->second;
        const juce::String context = what + " with fault " + entry.fault;
        if (ok != outcome.succeeds)
            fail(context + (ok ? " succeeded" : " failed") + "; diagnostics: " + diagnostics.joinIntoString(" | "));
        if (ok && value != ex.value)
            fail(context + ": value '" + value + "', expected '" + ex.value + "'");
        const bool saidIt = outcome.diagnostic != nullptr
                                ? diagnostics.joinIntoString("\n").contains(juce::String("'") + ex.line + "' " + outcome.diagnostic)
                                : !diagnostics.joinIntoString("\n").contains("ControlBoard::sendCommand");
        if (!saidIt)
            fail(context + ": diagnostics were: " + diagnostics.joinIntoString(" | "));
        if (outcome.lateReply)
        {
            ++lateReplies;
            // The rest of the reply is on its way to the event thread; the
            // next exchange would read it as its own.
            if (!waitUntil([this] { return board.strayCount() > 0; }, lateReplyWaitMs + 2000))
                fail(context + ": its reply never turned up");
        }
        const auto strays = board.takeStrays();
        if (strays.size() > (outcome.lateReply ? 1 : 0) || (outcome.lateReply && strays.size() == 1 && strays[0] != ex.reply))
            fail(context + ": lines outside any exchange: " + strays.joinIntoString(" | "));
        // Back to back, the next exchange parks the event that followed this
        // reply; now and then the event thread gets to find it in the port
        // instead, behind any it has still to deliver.
        if (!entry.events.empty() && std::bernoulli_distribution(0.5)(pick))
            juce::Thread::sleep(idleMs);
    }

    /** Every event the board sent with an exchange arrived, once, in order. */
    void checkEvents()
    {
        const bool all = waitUntil(
            [this] {
                const auto got = board.events();
                const std::set<unsigned long> have(got.begin(), got.end());
                return std::includes(have.begin(), have.end(), required.begin(), required.end());
            },
            5000);
        const auto got = board.events();
        for (size_t i = std::max<size_t>(checkedEvents, 1); i < got.size(); ++i)
            if (got[i] <= got[i - 1])
                fail("event e" + juce::String((juce::int64) got[i]) + " arrived after e"
                     + juce::String((juce::int64) got[i - 1]));
        for (size_t i = checkedEvents; i < got.size(); ++i)
            if (required.count(got[i]) == 0 && optional.count(got[i]) == 0)
                fail("event e" + juce::String((juce::int64) got[i]) + " arrived but was never sent");
        if (!all)
        {
            const std::set<unsigned long> have(got.begin(), got.end());
            juce::StringArray missing;
            for (auto e : std::set<unsigned long>(required))
                if (have.count(e) == 0)
                {
                    missing.add("e" + juce::String((juce::int64) e));
                    required.erase(e); // reported once is enough
                    optional.insert(e);
                }
            if (!missing.isEmpty())
                fail("events never arrived: " + missing.joinIntoString(" "));
        }
        checkedEvents = got.size();
        if (const auto others = board.takeUnexpectedEvents(); !others.isEmpty())
            fail("unexpected event lines: " + others.joinIntoString(" | "));
    }

    /** Unplugs the board (racing a reopenPort() when `race`), checks that it
        closes within a second, plugs it back and finds it again. */
    void unplugCycle(bool race)
    {
        checkEvents();
        ++cycles;
        juce::uint32 unplugged = 0;
        juce::String answer;
        watchdog.arm(race ? "reopenPort() racing an unplug" : "an unplug", 30000);
        if (race)
        {
            std::thread unplugger([&] {
                juce::Thread::sleep(cycles % 7);
                answer = sim.control("unplug 0");
                unplugged = now();
            });
            board.reopenPort();
            unplugger.join();
            ++races;
        }
        else
        {
            answer = sim.control("unplug 0");
            unplugged = now();
        }
        if (answer != "ok")
            fail("unplug: " + answer);
        const bool closed = waitUntil([this] { return !board.boardIsOpen(); }, closeAfterUnplugMs);
        const auto closeMs = now() - unplugged;
        watchdog.disarm();
        if (!closed)
        {
            fail("cycle " + juce::String(cycles) + ": the board was still open 1 s after the unplug; diagnostics: "
                 + logger.take().joinIntoString(" | "));
            if (!waitUntil([this] { return !board.boardIsOpen(); }, 10000))
                board.closeBoard(false);
        }
        longestClose = std::max(longestClose, closeMs);
        if (const auto plugAnswer = sim.control("plug 0"); plugAnswer != "ok")
            fail("plug: " + plugAnswer);
        open();
    }

    /** The board talks without end and answers nothing: every exchange and a
        reopen must still come to an end, and the link must work again once it
        stops. */
    void babble()
    {
        checkEvents();
        if (sim.control("fault 0 clear") != "ok" || sim.control("fault 0 drop-every=1") != "ok"
            || sim.control("fault 0 babble") != "ok")
            fail("boardsim refused the babble fault");
        auto timed = [this](const char* what, const std::function<bool()>& step) {
            watchdog.arm(what, exchangeDeadlineMs);
            const auto start = juce::Time::getMillisecondCounterHiRes();
            const bool ok = step();
            longestBabbleStep = std::max(longestBabbleStep, juce::Time::getMillisecondCounterHiRes() - start);
            watchdog.disarm();
            return ok;
        };
        for (int i = 0; i < 3; ++i)
            if (timed("an exchange with a babbling board", [this] { return board.sendCommand('C', -1, 0); }))
                fail("an exchange with a board that answers nothing succeeded");
        babbleReopened = timed("reopenPort() on a babbling board", [this] { return board.reopenPort(); });
        if (sim.control("fault 0 clear") != "ok")
            fail("boardsim did not stop babbling");
        // The chatter still in the port drains through the event thread.
        long seen = -1;
        waitUntil(
            [&] {
                const long n = board.babbleCount();
                const bool quiet = n == seen;
                seen = n;
                juce::Thread::sleep(300);
                return quiet;
            },
            20000);
        if (!board.boardIsOpen())
            open();
        babbleLines = board.babbleCount();
        watchdog.arm("an exchange after the babble", exchangeDeadlineMs);
        if (!board.sendCommand('C', -1, 0))
            fail("the link did not recover once the board stopped babbling");
        watchdog.disarm();
    }

    void report(int count, unsigned seed, bool babbled) const
    {
        printf("soak: %d exchanges with an emulated diskpack, seed %u: random faults in %d%% of the commands,\n"
               "  numbered events before %d%% of the replies and after %d%%\n",
               count, seed, faultPercent, eventPercent, eventPercent);
        printf("  faults:");
        for (const auto& [fault, n] : faultCounts)
            printf(" %s %d", fault.c_str(), n);
        printf("\n  late replies drained: %d\n", lateReplies);
        const auto got = board.events();
        printf("  events: %zu numbered events delivered, %zu required, %zu sent during searches (may be lost)\n",
               got.size(), required.size(), optional.size());
        printf("  unplug cycles: %d (%d racing reopenPort), longest close after unplug %u ms,"
               " most searches to find it again %d\n",
               cycles, races, longestClose, maxFindAttempts);
        printf("  longest exchange: %.1f ms (fault %s); longest fault-free exchange %.1f ms\n", longest,
               longestFault.c_str(), longestClean);
        if (babbled)
            printf("  babble: 3 exchanges and a reopen (%s) ended, the longest after %.0f ms; %ld babble lines delivered\n",
                   babbleReopened ? "reopened" : "failed", longestBabbleStep, babbleLines);
        else
            printf("  babble: not run (--no-babble)\n");
        printf("  result: %s\n", failures == 0 ? "pass" : (juce::String(failures) + " failures").toRawUTF8());
    }

    CapturingLogger logger;
    SoakBoard board;

private:
    /** The next entry for an exchange; the searches' requests are skipped,
        their events marked as ones a search may lose. */
    bool nextExchangeEntry(FaultLog::Entry& entry)
    {
        while (log.next(entry, 5000))
        {
            if (entry.line != "?" && entry.line != "@")
                return true;
            optional.insert(entry.events.begin(), entry.events.end());
        }
        return false;
    }

    /** Logs the search's requests; if one had its reply held back, waits it out. */
    void takeDiscoveryEntries()
    {
        FaultLog::Entry entry;
        bool late = false;
        while (log.next(entry, 0))
        {
            optional.insert(entry.events.begin(), entry.events.end());
            late = late || entry.fault != "none";
        }
        if (late)
            juce::Thread::sleep((int) lateReplyWaitMs);
        board.takeStrays();
    }

    SimProcess& sim;
    FaultLog log;
    std::mt19937 pick;
    Watchdog watchdog;
    int failures = 0, lateReplies = 0, cycles = 0, races = 0, maxFindAttempts = 0;
    size_t checkedEvents = 0; // events already checked at an earlier checkpoint
    std::map<std::string, int> faultCounts;
    std::set<unsigned long> required, optional;
    double longest = 0, longestClean = 0;
    std::string longestFault = "-";
    juce::uint32 longestClose = 0;
    long babbleLines = 0;
    double longestBabbleStep = 0;
    bool babbleReopened = false;
};
}

int main(int argc, char** argv)
{
    juce::ScopedJuceInitialiser_GUI juce;
    int count = 10000;
    unsigned seed = 1;
    bool babble = true;
    for (int i = 1; i < argc; ++i)
    {
        const std::string arg = argv[i];
        if (arg == "--seed" && i + 1 < argc)
            seed = (unsigned) std::strtoul(argv[++i], nullptr, 10);
        else if (arg == "--no-babble")
            babble = false;
        else if (std::atoi(arg.c_str()) > 0)
            count = std::atoi(arg.c_str());
        else
        {
            fprintf(stderr, "usage: bench_soak [EXCHANGES] [--seed N] [--no-babble]\n");
            return 2;
        }
    }

    char templ[] = "/tmp/avrtest-soak-XXXXXX";
    if (mkdtemp(templ) == nullptr)
        return 1;
    const std::string dir = templ;
    const std::string faultLog = dir + "/faults.log";
    setenv("AVRTEST_DEV_DIR", dir.c_str(), 1);

    int status = 1;
    {
        SimProcess sim(dir, { "--fault-log", faultLog, "--board", "d", "--id", "0", "--name", "SOAK", "--fault",
                              "random=" + std::to_string(seed) + ":" + std::to_string(faultPercent), "--fault",
                              "events=" + std::to_string(eventPercent) });
        if (!sim.isReady())
        {
            fprintf(stderr, "boardsim did not start\n");
            return 1;
        }
        Soak soak(sim, faultLog, seed);
        juce::Logger::setCurrentLogger(&soak.logger);
        if (soak.open())
        {
            // Cycles are spread evenly; every other one of the first few races a reopen.
            const int cycles = std::clamp(count / 200, 1, maxUnplugCycles);
            int done = 0;
            for (int i = 1; i <= count && !soak.failedTooOften(); ++i)
            {
                soak.exchange(i);
                if (done < cycles && i == (done + 1) * count / (cycles + 1))
                {
                    soak.unplugCycle(done % 2 == 1 && done < 2 * racedReopens);
                    ++done;
                }
            }
            soak.checkEvents();
            if (babble)
                soak.babble();
        }
        soak.board.closeBoard(false);
        juce::Logger::setCurrentLogger(nullptr);
        soak.report(count, seed, babble);
        status = soak.failureCount() == 0 ? 0 : 1;
    }
    juce::File(dir).deleteRecursively();
    return status;
}
