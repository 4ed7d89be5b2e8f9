#include "support/SimProcess.h"

#include <juce_core/juce_core.h>

#include <csignal>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#ifndef BOARDSIM_PATH
#error "BOARDSIM_PATH must name the emulator binary"
#endif

SimProcess::SimProcess(const std::string& dir, const std::vector<std::string>& args)
    : SimProcess([&] {
          std::vector<std::string> argv { BOARDSIM_PATH, "--dir", dir };
          argv.insert(argv.end(), args.begin(), args.end());
          return argv;
      }())
{
}

SimProcess::SimProcess(const std::vector<std::string>& argv)
{
    int in[2], out[2];
    if (argv.empty() || pipe(in) != 0 || pipe(out) != 0)
        return;

    pid = fork();
    if (pid == 0)
    {
        dup2(in[0], 0);
        dup2(out[1], 1);
        ::close(in[0]); ::close(in[1]); ::close(out[0]); ::close(out[1]);
        std::vector<char*> cargs;
        for (auto& a : argv)
            cargs.push_back(const_cast<char*>(a.c_str()));
        cargs.push_back(nullptr);
        execv(cargs[0], cargs.data());
        _exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    toChild = in[1];
    fromChild = out[0];
    signal(SIGPIPE, SIG_IGN);

    std::string line;
    while (!ready && readLine(line, 15000))
    {
        ready = line == "ready";
        if (!ready)
            other.push_back(line);
    }
}

SimProcess::~SimProcess()
{
    stop();
}

void SimProcess::stop()
{
    if (pid <= 0)
        return;
    const std::string quit = "quit\n";
    (void) !::write(toChild, quit.data(), quit.size());
    ::close(toChild);
    int status = 0;
    bool exited = false;
    for (int i = 0; i < 500 && !(exited = waitpid(pid, &status, WNOHANG) == pid); ++i)
        usleep(10000);
    if (!exited)
    {
        kill(pid, SIGKILL);
        waitpid(pid, &status, 0);
    }
    pid = -1;
    ::close(fromChild);
}

bool SimProcess::readLine(std::string& line, int timeoutMs)
{
    const auto deadline = juce::Time::getMillisecondCounter() + (juce::uint32) timeoutMs;
    for (;;)
    {
        const auto nl = buffer.find('\n');
        if (nl != std::string::npos)
        {
            line = buffer.substr(0, nl);
            buffer.erase(0, nl + 1);
            return true;
        }
        const auto now = juce::Time::getMillisecondCounter();
        if (now >= deadline)
            return false;
        pollfd p { fromChild, POLLIN, 0 };
        if (poll(&p, 1, (int) (deadline - now)) <= 0)
            continue;
        char buf[512];
        const ssize_t n = ::read(fromChild, buf, sizeof buf);
        if (n == 0)
            return false;
        if (n > 0)
            buffer.append(buf, (size_t) n);
    }
}

std::string SimProcess::control(const std::string& line, int timeoutMs)
{
    const std::string text = line + "\n";
    if (::write(toChild, text.data(), text.size()) != (ssize_t) text.size())
        return "error: emulator gone";
    std::string answer;
    while (readLine(answer, timeoutMs))
    {
        if (answer == "ok" || answer.rfind("error", 0) == 0)
            return answer;
        other.push_back(answer);
    }
    return "error: no answer";
}

std::vector<std::string> SimProcess::output()
{
    std::string line;
    while (readLine(line, 0))
        other.push_back(line);
    return other;
}
