// How long a board's event takes to show in the console: from the control
// line that makes the emulated diskpack send a button event to the moment the
// console (on a pseudo-terminal, as at the bench) has printed its line. Next
// to it, a bare reader of the same pty gives what the emulator and the pty
// alone cost.
//
// Usage: bench_events [EVENTS]   (default 300; 100 when quick)
#include "BenchKit.h"
#include "support/SimProcess.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <random>

namespace
{
const char* const linkName = "tty.usbserial-BENCH";

struct Latencies
{
    std::vector<double> ms;
    int lost = 0;
};

/** Sends `count` button events one after another, each once the line that
    shows the previous one has arrived in `seen`. */
Latencies measure(SimProcess& sim, LineStamps& seen, int count,
                  const std::function<std::string(const std::string& code)>& shownAs)
{
    Latencies result;
    // Gaps of varying length: with a fixed one every event could meet the
    // console's polling at the same phase and show only one point of it.
    std::mt19937 random(20261123);
    std::uniform_int_distribution<int> gapMs(5, 25);
    for (int i = 0; i < count; ++i)
    {
        char code[3];
        std::snprintf(code, sizeof code, "%02X", i & 0xFF);
        const auto sent = BenchClock::now();
        if (sim.control(std::string("event 0 b") + code) != "ok")
        {
            ++result.lost;
            continue;
        }
        if (const auto shown = seen.waitFor(shownAs(code), 2000))
            result.ms.push_back(std::chrono::duration<double, std::milli>(*shown - sent).count());
        else
            ++result.lost;
        std::this_thread::sleep_for(std::chrono::milliseconds(gapMs(random)));
    }
    return result;
}

void row(const char* name, const Latencies& l)
{
    std::printf("  %-24s %9.2f %9.2f %9.2f %6d\n", name, percentile(l.ms, 50), percentile(l.ms, 99),
                percentile(l.ms, 100), l.lost);
}
}

int main(int argc, char** argv)
{
    const int count = argc > 1 ? std::atoi(argv[1]) : (quickRun() ? 100 : 300);
    BenchDir dir("events-bench");
    SimProcess sim(dir.path(), { "--board", "d", "--id", "0", "--name", "BENCH" });
    if (!dir.ok() || !sim.isReady())
    {
        std::fprintf(stderr, "bench_events: the emulated board did not come up\n");
        return 1;
    }

    // boardsim keeps its ptys raw, so the bare reader sees the board's lines
    // as sent. It lets go of the pty before the console looks for the board.
    Latencies bare;
    {
        const int fd = ::open((dir.path() + "/" + linkName).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK);
        if (fd < 0)
        {
            std::fprintf(stderr, "bench_events: cannot open the emulated board's pty\n");
            return 1;
        }
        {
            LineStamps seen(fd);
            bare = measure(sim, seen, count, [](const std::string& code) { return "b" + code; });
        }
        ::close(fd);
    }

    Latencies console;
    {
        const auto run = openConsole({ "d" }, dir.path() + "/console.log");
        if (run == nullptr)
        {
            std::fprintf(stderr, "bench_events: the console never opened the emulated board\n");
            return 1;
        }
        console = measure(sim, run->output(), count,
                          [](const std::string& code) { return "Button event: " + code; });
    }

    std::printf("bench_events: %d button events of an emulated diskpack, from the emulator's control line to "
                "the line read\n",
                count);
    std::printf("  %-24s %9s %9s %9s %6s\n", "reader", "p50 ms", "p99 ms", "max ms", "lost");
    row("avrtest d (printed line)", console);
    row("bare pty reader", bare);

    const double p99 = percentile(console.ms, 99), bareP99 = percentile(bare.ms, 99);
    addTableRow({ "event latency p99 (ms)", fixed(p99, 2), fixed(bareP99, 2) + " (bare pty reader)",
                  bareP99 > 0 ? fixed(p99 / bareP99, 1) : "-", verdict("< 1 ms", shown(p99, 2) < 1) });
    return console.lost == 0 && bare.lost == 0 && !console.ms.empty() ? 0 : 1;
}
