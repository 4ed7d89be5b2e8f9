#include "console/ConsoleSession.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#ifndef AVRTEST_BIN_DIR
#error "AVRTEST_BIN_DIR must name the directory of the built programs"
#endif

std::vector<std::string> avrtestCommand(const std::vector<std::string>& args)
{
    std::vector<std::string> argv { std::string(AVRTEST_BIN_DIR) + "/avrtest" };
    argv.insert(argv.end(), args.begin(), args.end());
    return argv;
}

std::unique_ptr<ConsoleSession> startFound(const std::vector<std::string>& args, const std::string& identity)
{
    std::string printed;
    for (int i = 0; i < findAttempts; ++i)
    {
        auto console = std::make_unique<ConsoleSession>(args);
        if (console->waitFor(identity + "\nType ? for help\n\n"))
            return console;
        printed = console->output() + console->errors();
    }
    ADD_FAILURE() << "never found; last run printed:\n" << printed;
    return nullptr;
}

std::string hex2(int v)
{
    char buf[3];
    snprintf(buf, sizeof buf, "%02X", v & 0xFF);
    return buf;
}

namespace
{
juce::uint32 now()
{
    return juce::Time::getMillisecondCounter();
}
}

ConsoleSession::ConsoleSession(const std::vector<std::string>& args)
{
    const auto argv = avrtestCommand(args);
    std::vector<char*> cargs;
    for (auto& a : argv)
        cargs.push_back(const_cast<char*>(a.c_str()));
    cargs.push_back(nullptr);

    int errPipe[2];
    if (pipe(errPipe) != 0)
        throw std::runtime_error("pipe failed");

    pid = forkpty(&master, nullptr, nullptr, nullptr);
    if (pid < 0)
        throw std::runtime_error("forkpty failed");
    if (pid == 0)
    {
        // Only async-signal-safe calls between fork and exec: the test
        // process has other threads.
        termios tio;
        if (tcgetattr(STDIN_FILENO, &tio) == 0)
        {
            tio.c_oflag &= ~(tcflag_t) OPOST;
            tcsetattr(STDIN_FILENO, TCSANOW, &tio);
        }
        dup2(errPipe[1], STDERR_FILENO);
        ::close(errPipe[0]);
        ::close(errPipe[1]);
        execv(cargs[0], cargs.data());
        _exit(127);
    }
    ::close(errPipe[1]);
    errFd = errPipe[0];
}

ConsoleSession::~ConsoleSession()
{
    if (!status && pid > 0)
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
    }
    if (master >= 0)
        ::close(master);
    if (errFd >= 0)
        ::close(errFd);
}

bool ConsoleSession::pump(int timeoutMs)
{
    pollfd fds[2] = { { master, POLLIN, 0 }, { errFd, POLLIN, 0 } };
    const int n = poll(fds, 2, timeoutMs);
    if (n <= 0)
        return false;
    bool got = false;
    char buf[4096];
    for (int i = 0; i < 2; ++i)
    {
        if (fds[i].fd < 0 || (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0)
            continue;
        const ssize_t r = ::read(fds[i].fd, buf, sizeof buf);
        if (r > 0)
        {
            (i == 0 ? out : err).append(buf, (size_t) r);
            got = true;
        }
        else if (r == 0 || (errno != EAGAIN && errno != EINTR))
        {
            // The console has gone and its side of the pty or pipe is closed.
            ::close(fds[i].fd);
            (i == 0 ? master : errFd) = -1;
        }
    }
    return got;
}

bool ConsoleSession::waitFor(const std::string& text, int timeoutMs)
{
    const auto deadline = now() + (juce::uint32) timeoutMs;
    for (;;)
    {
        const auto at = out.find(text, mark);
        if (at != std::string::npos)
        {
            mark = at + text.size();
            return true;
        }
        if (now() >= deadline || (master < 0 && errFd < 0))
            return false;
        if (master < 0)
            pump(10);
        else
            pump(50);
    }
}

bool ConsoleSession::waitForKeyMode(int timeoutMs)
{
    const auto deadline = now() + (juce::uint32) timeoutMs;
    while (master >= 0)
    {
        termios tio;
        if (tcgetattr(master, &tio) == 0 && (tio.c_lflag & ICANON) == 0)
        {
            // Whatever the command printed went out before the terminal was
            // switched; collect it.
            while (pump(0))
                ;
            return true;
        }
        if (now() >= deadline)
            return false;
        pump(5);
    }
    return false;
}

bool ConsoleSession::key(char k)
{
    if (!waitForKeyMode())
        return false;
    type(std::string(1, k));
    return true;
}

void ConsoleSession::line(const std::string& text)
{
    type(text + "\n");
}

void ConsoleSession::type(const std::string& bytes)
{
    if (master >= 0)
        (void) !::write(master, bytes.data(), bytes.size());
}

std::string ConsoleSession::takeOutput()
{
    while (pump(0))
        ;
    auto text = out.substr(std::min(mark, out.size()));
    mark = out.size();
    return text;
}

std::string ConsoleSession::output()
{
    while (pump(0))
        ;
    return out;
}

std::string ConsoleSession::errors()
{
    while (pump(0))
        ;
    return err;
}

int ConsoleSession::exitStatus(int timeoutMs)
{
    const auto deadline = now() + (juce::uint32) timeoutMs;
    while (!status)
    {
        int st = 0;
        const int r = waitpid(pid, &st, WNOHANG);
        if (r == pid)
        {
            status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
            break;
        }
        if (now() >= deadline)
        {
            kill(pid, SIGKILL);
            waitpid(pid, nullptr, 0);
            status = -1000;
            break;
        }
        if (!pump(10))
            juce::Thread::sleep(5);
    }
    while (pump(0))
        ;
    return *status;
}

//==============================================================================
ScriptedBoard::ScriptedBoard(const std::string& dir, const std::string& linkName, const std::string& identity,
                             int id)
    : peer(dir, linkName)
{
    table["?"] = { identity };
    table["@"] = { "R" + std::to_string(id) };
    table["!"] = { "OK" };
    peer.serve([this](const std::string& line) { return respond(line); });
}

void ScriptedBoard::reply(const std::string& command, std::vector<std::string> lines)
{
    std::lock_guard<std::mutex> g(lock);
    table[command] = std::move(lines);
}

void ScriptedBoard::setHandler(Handler h)
{
    std::lock_guard<std::mutex> g(lock);
    handler = std::move(h);
}

std::vector<std::string> ScriptedBoard::respond(const std::string& line)
{
    std::lock_guard<std::mutex> g(lock);
    if (handler)
        if (auto lines = handler(line))
            return *lines;
    const auto it = table.find(line);
    return it != table.end() ? it->second : std::vector<std::string> { "N" };
}

std::vector<std::string> ScriptedBoard::takeReceived()
{
    const auto all = peer.received();
    std::vector<std::string> fresh(all.begin() + (long) std::min(taken, all.size()), all.end());
    taken = all.size();
    return fresh;
}

bool ScriptedBoard::waitForReceived(size_t n, int timeoutMs)
{
    return peer.waitForReceived(taken + n, timeoutMs);
}

//==============================================================================
bool runKeyCase(ConsoleSession& console, ScriptedBoard& board, const KeyCase& c)
{
    SCOPED_TRACE(std::string("key '") + c.key + "'");
    std::vector<std::string> expectedWire;
    for (auto& [command, replyLines] : c.wire)
    {
        board.reply(command, replyLines.empty() ? std::vector<std::string> { "OK" } : replyLines);
        expectedWire.push_back(command);
    }
    std::string expectedPrinted;
    for (auto& [prompt, answer] : c.answers)
        expectedPrinted += prompt + answer + "\n";
    expectedPrinted += c.printed;
    board.takeReceived();
    console.takeOutput();
    const size_t start = console.output().size();

    if (!console.key(c.key))
    {
        ADD_FAILURE() << "the console never came back for a key";
        return false;
    }
    for (auto& [prompt, answer] : c.answers)
    {
        if (!console.waitFor(prompt))
        {
            ADD_FAILURE() << "no prompt \"" << prompt << "\"; printed: " << console.output().substr(start);
            return false;
        }
        console.line(answer);
    }

    // Only once something that follows the key's own switch to line mode has
    // been seen can a return to key mode mean the command is over.
    const bool wireSeen = board.waitForReceived(expectedWire.size());
    const bool printedSeen = waitUntil(
        [&] { return console.output().size() >= start + expectedPrinted.size(); }, ConsoleSession::deadlineMs);
    const bool back = console.waitForKeyMode();

    const auto received = board.takeReceived();
    const auto printed = console.output().substr(start);
    console.takeOutput();
    EXPECT_TRUE(wireSeen && printedSeen && back);
    EXPECT_EQ(received, expectedWire);
    EXPECT_EQ(printed, expectedPrinted);
    return received == expectedWire && printed == expectedPrinted;
}
