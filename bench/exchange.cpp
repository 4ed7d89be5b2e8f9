// Command exchanges per second and CPU time per exchange of the board link
// against an emulated board on an unpaced pty, next to a python3-serial client
// doing the same exchange on the same emulated board.
#include "link/ControlBoard.h"
#include "support/SimProcess.h"

#include <juce_events/juce_events.h>

#include <cstdio>
#include <cstdlib>
#include <sys/resource.h>
#include <unistd.h>

namespace
{
class BenchBoard : public ControlBoard
{
public:
    ~BenchBoard() override { closeBoard(false); }
    const char* boardIdString() const override { return "Diskpack board"; }
};

double cpuSeconds()
{
    rusage u {};
    getrusage(RUSAGE_SELF, &u);
    return (double) u.ru_utime.tv_sec + u.ru_utime.tv_usec / 1e6 + (double) u.ru_stime.tv_sec + u.ru_stime.tv_usec / 1e6;
}

struct Figures
{
    double perSecond = 0, cpuMicros = 0;
    bool ok = false;
};

Figures measureLink(int count)
{
    Figures f;
    BenchBoard board;
    if (!board.findAndOpen(-1))
        return f;
    int hours = 0;
    for (int i = 0; i < 20; ++i)
        board.sendCommandGetIntResponse('O', 4, hours);

    const double cpu0 = cpuSeconds();
    const auto t0 = juce::Time::getMillisecondCounterHiRes();
    for (int i = 0; i < count; ++i)
        if (!board.sendCommandGetIntResponse('O', 4, hours))
            return f;
    const double elapsed = (juce::Time::getMillisecondCounterHiRes() - t0) / 1000.0;
    const double cpu = cpuSeconds() - cpu0;
    // CPU time includes the board's event thread, which polls while idle: that
    // is part of what the link costs.
    f.perSecond = elapsed > 0 ? count / elapsed : 0;
    f.cpuMicros = cpu * 1e6 / count;
    f.ok = true;
    return f;
}

Figures measurePython(const std::string& device, int count)
{
    Figures f;
    const std::string script = std::string(AVRTEST_SOURCE_DIR) + "/bench/exchange_ref.py";
    const std::string cmd = "/usr/bin/python3 '" + script + "' '" + device + "' " + std::to_string(count);
    FILE* p = popen(cmd.c_str(), "r");
    if (p == nullptr)
        return f;
    f.ok = fscanf(p, "%lf %lf", &f.perSecond, &f.cpuMicros) == 2;
    f.ok = (pclose(p) == 0) && f.ok;
    return f;
}
}

int main(int argc, char** argv)
{
    juce::ScopedJuceInitialiser_GUI juce;
    const int count = argc > 1 ? std::atoi(argv[1]) : 2000;

    char templ[] = "/tmp/avrtest-bench-XXXXXX";
    if (mkdtemp(templ) == nullptr)
        return 1;
    const std::string dir = templ;
    setenv("AVRTEST_DEV_DIR", dir.c_str(), 1);

    int status = 0;
    {
        SimProcess sim(dir, { "--board", "d", "--id", "0", "--name", "BENCH" });
        if (!sim.isReady())
        {
            fprintf(stderr, "boardsim did not start\n");
            return 1;
        }
        const auto link = measureLink(count);
        const auto python = measurePython(dir + "/tty.usbserial-BENCH", count);

        printf("exchange: %d exchanges of \"O\" answered \"R\" + 4 hex digits, emulated diskpack on an unpaced pty\n", count);
        printf("  %-22s %14s %18s\n", "client", "exchanges/s", "CPU us/exchange");
        auto row = [](const char* name, const Figures& f) {
            if (f.ok)
                printf("  %-22s %14.1f %18.1f\n", name, f.perSecond, f.cpuMicros);
            else
                printf("  %-22s %14s %18s\n", name, "failed", "-");
        };
        row("ControlBoard (C++)", link);
        row("python3-serial", python);
        if (link.ok && python.ok && python.perSecond > 0)
            printf("  ratio (C++/python): %.2fx exchanges/s, %.2fx CPU per exchange\n",
                   link.perSecond / python.perSecond, link.cpuMicros / (python.cpuMicros > 0 ? python.cpuMicros : 1));
        status = link.ok && python.ok ? 0 : 1;
    }
    juce::File(dir).deleteRecursively();
    return status;
}
