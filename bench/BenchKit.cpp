#include "BenchKit.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <poll.h>
#include <pty.h>
#include <sstream>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#ifndef AVRTEST_PATH
#error "AVRTEST_PATH must name the console binary"
#endif

BenchDir::BenchDir(const std::string& name)
{
    std::string templ = "/tmp/avrtest-" + name + "-XXXXXX";
    if (mkdtemp(templ.data()) == nullptr)
        return;
    dir = templ;
    setenv("AVRTEST_DEV_DIR", dir.c_str(), 1);
}

BenchDir::~BenchDir()
{
    std::error_code ignored;
    if (ok())
        std::filesystem::remove_all(dir, ignored);
}

//==============================================================================
LineStamps::LineStamps(int fdToRead) : fd(fdToRead)
{
    if (pipe(wake) != 0)
        wake[0] = wake[1] = -1;
    reader = std::thread([this] { run(); });
}

LineStamps::~LineStamps()
{
    if (wake[1] >= 0)
        (void) !::write(wake[1], "x", 1);
    reader.join();
    ::close(wake[0]);
    ::close(wake[1]);
}

void LineStamps::run()
{
    char buf[4096];
    for (;;)
    {
        pollfd fds[2] = { { fd, POLLIN, 0 }, { wake[0], POLLIN, 0 } };
        if (poll(fds, 2, -1) < 0 && errno != EINTR)
            break;
        if (fds[1].revents != 0)
            break;
        if (fds[0].revents == 0)
            continue;
        const ssize_t n = ::read(fd, buf, sizeof buf);
        const auto now = BenchClock::now();
        if (n < 0 && (errno == EINTR || errno == EAGAIN))
            continue;
        if (n <= 0)
            break; // the far end has gone (a pty master reads EIO then)
        std::lock_guard<std::mutex> g(lock);
        all.append(buf, (size_t) n);
        for (ssize_t i = 0; i < n; ++i)
        {
            if (buf[i] == '\n')
            {
                lines.emplace_back(partial, now);
                partial.clear();
            }
            else if (buf[i] != '\r')
                partial += buf[i];
        }
        arrived.notify_all();
    }
    std::lock_guard<std::mutex> g(lock);
    ended = true;
    arrived.notify_all();
}

std::optional<BenchClock::time_point> LineStamps::waitFor(const std::string& text, int timeoutMs)
{
    std::unique_lock<std::mutex> g(lock);
    const auto deadline = BenchClock::now() + std::chrono::milliseconds(timeoutMs);
    size_t looked = next;
    for (;;)
    {
        for (; looked < lines.size(); ++looked)
            if (lines[looked].first == text)
            {
                next = looked + 1;
                return lines[looked].second;
            }
        if (ended || arrived.wait_until(g, deadline) == std::cv_status::timeout)
            return std::nullopt;
    }
}

std::string LineStamps::text() const
{
    std::lock_guard<std::mutex> g(lock);
    return all;
}

//==============================================================================
ConsoleRun::ConsoleRun(const std::vector<std::string>& args, const std::string& logPath)
{
    std::vector<std::string> argv { AVRTEST_PATH };
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> cargs;
    for (auto& a : argv)
        cargs.push_back(const_cast<char*>(a.c_str()));
    cargs.push_back(nullptr);

    const int log = ::open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    child = forkpty(&master, nullptr, nullptr, nullptr);
    if (child == 0)
    {
        // No output processing: the bench reads exactly what was printed.
        termios tio;
        if (tcgetattr(STDIN_FILENO, &tio) == 0)
        {
            tio.c_oflag &= ~(tcflag_t) OPOST;
            tcsetattr(STDIN_FILENO, TCSANOW, &tio);
        }
        if (log >= 0)
            dup2(log, STDERR_FILENO);
        execv(cargs[0], cargs.data());
        _exit(127);
    }
    if (log >= 0)
        ::close(log);
    if (child > 0)
        stamps = std::make_unique<LineStamps>(master);
}

ConsoleRun::~ConsoleRun()
{
    if (child > 0)
    {
        (void) !::write(master, "x", 1);
        int status = 0;
        bool gone = false;
        for (int i = 0; i < 500 && !gone; ++i)
        {
            gone = waitpid(child, &status, WNOHANG) == child;
            if (!gone)
                usleep(10000);
        }
        if (!gone)
        {
            kill(child, SIGKILL);
            waitpid(child, &status, 0);
        }
    }
    stamps.reset();
    if (master >= 0)
        ::close(master);
}

bool ConsoleRun::waitOpened(int timeoutMs)
{
    return stamps != nullptr && stamps->waitFor("Type ? for help", timeoutMs).has_value();
}

std::unique_ptr<ConsoleRun> openConsole(const std::vector<std::string>& args, const std::string& logPath)
{
    for (int attempt = 0; attempt < 3; ++attempt)
    {
        auto console = std::make_unique<ConsoleRun>(args, logPath);
        if (console->pid() <= 0)
            return nullptr;
        if (console->waitOpened())
            return console;
        std::fprintf(stderr, "the console did not open the board; it printed:\n%s\n",
                     console->output().text().c_str());
    }
    return nullptr;
}

//==============================================================================
double percentile(std::vector<double> values, double p)
{
    if (values.empty())
        return 0;
    std::sort(values.begin(), values.end());
    const double rank = std::ceil(p / 100.0 * (double) values.size());
    const size_t index = rank < 1 ? 0 : std::min(values.size(), (size_t) rank) - 1;
    return values[index];
}

long long statCpuTicks(const std::string& statLine)
{
    const auto close = statLine.rfind(')');
    if (close == std::string::npos)
        return -1;
    // After the name: state (field 3) and on to utime (14) and stime (15).
    std::istringstream fields(statLine.substr(close + 1));
    std::string field;
    long long utime = -1, stime = -1;
    for (int number = 3; number <= 15 && fields >> field; ++number)
    {
        if (number == 14)
            utime = std::strtoll(field.c_str(), nullptr, 10);
        if (number == 15)
            stime = std::strtoll(field.c_str(), nullptr, 10);
    }
    return utime < 0 || stime < 0 ? -1 : utime + stime;
}

double processCpuSeconds(int pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    if (!std::getline(in, line))
        return -1;
    const long long ticks = statCpuTicks(line);
    return ticks < 0 ? -1 : (double) ticks / (double) sysconf(_SC_CLK_TCK);
}

bool quickRun()
{
    const char* quick = std::getenv("AVRTEST_BENCH_QUICK");
    return quick != nullptr && *quick != '\0' && std::string(quick) != "0";
}

//==============================================================================
std::string tableLine(const TableRow& row)
{
    std::string line = "TABLE";
    for (auto field : { row.figure, row.project, row.peer, row.ratio, row.goal })
    {
        std::replace(field.begin(), field.end(), '|', '/');
        line += "|" + field;
    }
    return line;
}

void addTableRow(const TableRow& row)
{
    const char* path = std::getenv("AVRTEST_BENCH_TABLE");
    if (path == nullptr || *path == '\0')
        return;
    std::ofstream out(path, std::ios::app);
    out << tableLine(row) << "\n";
}

std::string fixed(double value, int decimals)
{
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.*f", decimals, value);
    return buf;
}

double shown(double value, int decimals)
{
    return std::strtod(fixed(value, decimals).c_str(), nullptr);
}

std::string verdict(const std::string& goal, bool met)
{
    return goal + (met ? ": met" : ": not met");
}
