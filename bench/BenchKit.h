#pragma once
// What the benchmark programs share: a private device directory for the
// emulator's boards, the console run on a pseudo-terminal with each printed
// line time-stamped as it arrives, percentiles, CPU time of another process,
// and the rows of the table that `make bench` ends with.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

using BenchClock = std::chrono::steady_clock;

/** A temporary directory where boardsim publishes its boards; the link and
    the console search it instead of /dev while the object lives. */
class BenchDir
{
public:
    explicit BenchDir(const std::string& name);
    ~BenchDir();
    bool ok() const { return !dir.empty(); }
    const std::string& path() const { return dir; }

private:
    std::string dir;
};

/** Reads a descriptor on a thread of its own and keeps every line, with the
    moment its line end arrived: the reader never waits on anything else, so
    a stamp is not late because the bench was busy sending. */
class LineStamps
{
public:
    /** Does not take ownership of `fd`. */
    explicit LineStamps(int fd);
    ~LineStamps();

    /** Waits for a line equal to `text` ("\r" dropped) after the last one
        matched, and returns when it arrived. */
    std::optional<BenchClock::time_point> waitFor(const std::string& text, int timeoutMs);
    /** Everything read so far, for a report when something went wrong. */
    std::string text() const;

private:
    void run();

    int fd;
    int wake[2] = { -1, -1 };
    mutable std::mutex lock;
    std::condition_variable arrived;
    std::string all, partial;
    std::vector<std::pair<std::string, BenchClock::time_point>> lines;
    size_t next = 0;
    bool ended = false;
    std::thread reader;
};

/** avrtest as at the bench: a pseudo-terminal is its terminal, and its
    diagnostics go to a file. Ended with `x`, or killed if it does not go. */
class ConsoleRun
{
public:
    ConsoleRun(const std::vector<std::string>& args, const std::string& logPath);
    ~ConsoleRun();

    /** Waits until the console has opened its board: the identity line and the
        help hint are out. False if it gave up or the deadline passed. */
    bool waitOpened(int timeoutMs = 20000);
    LineStamps& output() { return *stamps; }
    int pid() const { return child; }

private:
    int child = -1;
    int master = -1;
    std::unique_ptr<LineStamps> stamps;
};

/** Discovery gives a board 100 ms to answer, which a loaded machine can miss:
    a console that did not find the board is started again, three times in
    all. nullptr if every run missed it. */
std::unique_ptr<ConsoleRun> openConsole(const std::vector<std::string>& args, const std::string& logPath);

/** The nearest-rank percentile `p` (0 to 100) of `values`; 0 when empty. */
double percentile(std::vector<double> values, double p);

/** User plus system clock ticks of all threads from one /proc/PID/stat line;
    -1 if the line cannot be read. The command name may hold spaces and
    parentheses, so fields are counted from its last ")". */
long long statCpuTicks(const std::string& statLine);
/** CPU seconds used so far by process `pid`; negative if it is gone. */
double processCpuSeconds(int pid);

/** Whether a shorter run was asked for (`make bench QUICK=1`). */
bool quickRun();

/** One row of the table at the end of `make bench`. */
struct TableRow
{
    std::string figure, project, peer, ratio, goal;
};
/** The row as a line of the table file: "TABLE|" and the fields separated by
    "|" (a "|" inside a field becomes "/"). */
std::string tableLine(const TableRow& row);
/** Appends the row to the file named by AVRTEST_BENCH_TABLE, when set. */
void addTableRow(const TableRow& row);
/** A number with `decimals` decimals, as the table shows it. */
std::string fixed(double value, int decimals);
/** The number as `fixed` shows it: a goal is judged on that, so that a row
    never reads "0.50" beside "< 0.5 %: met". */
double shown(double value, int decimals);
/** The goal column: "GOAL: met" or "GOAL: not met". */
std::string verdict(const std::string& goal, bool met);
