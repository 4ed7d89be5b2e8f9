// Command exchanges per second and CPU time per exchange of the board link
// against an emulated board on an unpaced pty, next to a python3-serial client
// doing the same exchange on the same emulated board, and next to the least
// any client can take there: a blocking loop of plain reads and writes.
//
// Usage: bench_exchange [COUNT [ROUNDS]]   (default 2000 exchanges, 3 rounds)
#include "BenchKit.h"
#include "link/ControlBoard.h"
#include "support/SimProcess.h"

#include <juce_events/juce_events.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/resource.h>
#include <termios.h>
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

/** No select, no lock, no thread: one write and a blocking read per
    character. What it reaches is what the emulator and the pty allow. */
Figures measureBlockingLoop(const std::string& device, int count)
{
    Figures f;
    const int fd = ::open(device.c_str(), O_RDWR | O_NOCTTY);
    if (fd < 0)
        return f;
    termios tio {};
    const bool configured = tcgetattr(fd, &tio) == 0;
    cfmakeraw(&tio);
    // A read waits for one character, or gives up after a second (the
    // terminal's own timer) rather than hang `make bench` on a stuck emulator.
    tio.c_cc[VMIN] = 0;
    tio.c_cc[VTIME] = 10;
    if (!configured || tcsetattr(fd, TCSANOW, &tio) != 0 || tcflush(fd, TCIFLUSH) != 0)
    {
        ::close(fd);
        return f;
    }
    auto exchange = [fd] {
        if (::write(fd, "O\n", 2) != 2)
            return false;
        char c = 0, first = 0;
        while (::read(fd, &c, 1) == 1)
        {
            if (c == '\n')
                return first == 'R';
            if (first == 0)
                first = c;
        }
        return false;
    };
    for (int i = 0; i < 20; ++i)
        exchange();

    const double cpu0 = cpuSeconds();
    const auto t0 = juce::Time::getMillisecondCounterHiRes();
    bool ok = true;
    for (int i = 0; i < count && ok; ++i)
        ok = exchange();
    const double elapsed = (juce::Time::getMillisecondCounterHiRes() - t0) / 1000.0;
    const double cpu = cpuSeconds() - cpu0;
    ::close(fd);
    f.perSecond = elapsed > 0 ? count / elapsed : 0;
    f.cpuMicros = cpu * 1e6 / count;
    f.ok = ok;
    return f;
}

/** Keeps the fastest round; one failed round fails the figure. */
void keepBest(Figures& best, const Figures& round, int roundNumber)
{
    if (roundNumber == 0 || (best.ok && (!round.ok || round.perSecond > best.perSecond)))
        best = round;
}

void tableRow(const char* figure, const Figures& link, const Figures& peer, const char* peerName, const char* goal,
              double goalRatio)
{
    if (!link.ok || !peer.ok || peer.perSecond <= 0)
        return;
    const double ratio = link.perSecond / peer.perSecond;
    std::string goalText = "-";
    if (goalRatio > 0)
        goalText = verdict(goal, shown(ratio, 2) >= goalRatio);
    addTableRow({ figure, fixed(link.perSecond, 0), fixed(peer.perSecond, 0) + " (" + peerName + ")",
                  fixed(ratio, 2), goalText });
}
}

int main(int argc, char** argv)
{
    juce::ScopedJuceInitialiser_GUI juce;
    const int count = argc > 1 ? std::atoi(argv[1]) : 2000;
    const int rounds = argc > 2 ? std::max(1, std::atoi(argv[2])) : 3;

    const BenchDir dir("bench");
    if (!dir.ok())
        return 1;

    int status = 0;
    {
        SimProcess sim(dir.path(), { "--board", "d", "--id", "0", "--name", "BENCH" });
        if (!sim.isReady())
        {
            fprintf(stderr, "boardsim did not start\n");
            return 1;
        }
        // The machine is shared, so one run of a client can meet a busy
        // moment the others missed: the clients take turns, and each keeps
        // its best round.
        const std::string device = dir.path() + "/tty.usbserial-BENCH";
        Figures link, python, loop;
        for (int round = 0; round < rounds; ++round)
        {
            keepBest(link, measureLink(count), round);
            keepBest(python, measurePython(device, count), round);
            keepBest(loop, measureBlockingLoop(device, count), round);
        }

        printf("exchange: %d exchanges of \"O\" answered \"R\" + 4 hex digits, emulated diskpack on an unpaced pty "
               "(best of %d rounds)\n",
               count, rounds);
        printf("  %-24s %14s %18s\n", "client", "exchanges/s", "CPU us/exchange");
        auto row = [](const char* name, const Figures& f) {
            if (f.ok)
                printf("  %-24s %14.1f %18.1f\n", name, f.perSecond, f.cpuMicros);
            else
                printf("  %-24s %14s %18s\n", name, "failed", "-");
        };
        row("ControlBoard (C++)", link);
        row("python3-serial", python);
        row("blocking C loop (limit)", loop);
        if (link.ok && python.ok && python.perSecond > 0)
            printf("  ratio (C++/python): %.2fx exchanges/s, %.2fx CPU per exchange\n",
                   link.perSecond / python.perSecond, link.cpuMicros / (python.cpuMicros > 0 ? python.cpuMicros : 1));
        if (link.ok && loop.ok && loop.perSecond > 0)
            printf("  ratio (C++/blocking loop): %.2f of the exchanges/s the emulator allows\n",
                   link.perSecond / loop.perSecond);
        tableRow("exchanges/s against python3-serial", link, python, "python3-serial", "", 0);
        tableRow("exchanges/s against the limit", link, loop, "blocking C loop", ">= 0.9", 0.9);
        status = link.ok && python.ok && loop.ok ? 0 : 1;
    }
    return status;
}
