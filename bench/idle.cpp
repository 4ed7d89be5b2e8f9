// CPU time the console uses while it waits for a key, with one emulated board
// open and nothing happening: what a console left running on the bench costs.
//
// Usage: bench_idle [SECONDS]   (default 20; 10 when quick)
#include "BenchKit.h"
#include "support/SimProcess.h"

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

int main(int argc, char** argv)
{
    const int seconds = argc > 1 ? std::atoi(argv[1]) : (quickRun() ? 10 : 20);
    BenchDir dir("idle-bench");
    SimProcess sim(dir.path(), { "--board", "d", "--id", "0", "--name", "BENCH" });
    if (!dir.ok() || !sim.isReady())
    {
        std::fprintf(stderr, "bench_idle: the emulated board did not come up\n");
        return 1;
    }
    const auto console = openConsole({ "d" }, dir.path() + "/console.log");
    if (console == nullptr)
    {
        std::fprintf(stderr, "bench_idle: the console never opened the emulated board\n");
        return 1;
    }
    // The board reports its state once the console is in; let that pass.
    std::this_thread::sleep_for(std::chrono::seconds(1));

    const double cpu0 = processCpuSeconds(console->pid());
    const auto t0 = BenchClock::now();
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const double cpu1 = processCpuSeconds(console->pid());
    const double elapsed = std::chrono::duration<double>(BenchClock::now() - t0).count();
    if (cpu0 < 0 || cpu1 < 0)
    {
        std::fprintf(stderr, "bench_idle: cannot read the console's CPU time\n");
        return 1;
    }

    const double percent = 100.0 * (cpu1 - cpu0) / elapsed;
    std::printf("bench_idle: avrtest d with one open board and no keys for %.1f s\n", elapsed);
    std::printf("  CPU %.2f s: %.2f%% of a core (the kernel counts in steps of %.2f%% over this time)\n",
                cpu1 - cpu0, percent, 100.0 / (double) sysconf(_SC_CLK_TCK) / elapsed);
    addTableRow({ "idle CPU, one board open (% of a core)", fixed(percent, 2), "-", "-",
                  verdict("< 0.5 %", shown(percent, 2) < 0.5) });
    return 0;
}
