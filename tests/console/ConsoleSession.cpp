#include "console/ConsoleSession.h"

#include <cerrno>
#include <csignal>
#include <poll.h>
#include <pty.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

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

ConsoleSession::ConsoleSession(const std::vector<std::string>& args)
{
    std::vector<std::string> argv { std::string(AVRTEST_BIN_DIR) + "/avrtest" };
    argv.insert(argv.end(), args.begin(), args.end());
    std::vector<char*> cargs;
    for (auto& a : argv)
        cargs.push_back(const_cast<char*>(a.c_str()));
    cargs.push_back(nullptr);

    int errPipe[2];
    if (pipe(errPipe) != 0 || (pid = forkpty(&fds[0], nullptr, nullptr, nullptr)) < 0)
        throw std::runtime_error("pipe or forkpty failed");
    if (pid == 0)
    {
        // Only async-signal-safe calls between fork and exec: the test process has other threads.
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
    fds[1] = errPipe[0];
}

ConsoleSession::~ConsoleSession()
{
    if (!status && pid > 0)
        exitStatus(0);
    for (int fd : fds)
        if (fd >= 0)
            ::close(fd);
}

bool ConsoleSession::pump(int timeoutMs)
{
    pollfd p[2] = { { fds[0], POLLIN, 0 }, { fds[1], POLLIN, 0 } };
    if (poll(p, 2, timeoutMs) <= 0)
        return false;
    bool got = false;
    char buf[4096];
    for (int i = 0; i < 2; ++i)
    {
        if (p[i].fd < 0 || (p[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0)
            continue;
        const ssize_t r = ::read(p[i].fd, buf, sizeof buf);
        if (r > 0)
        {
            text[i].append(buf, (size_t) r);
            got = true;
        }
        else if (r == 0 || (errno != EAGAIN && errno != EINTR))
        {
            ::close(p[i].fd);
            fds[i] = -1;
        }
    }
    return got;
}

bool ConsoleSession::waitFor(const std::string& wanted, int timeoutMs)
{
    auto at = std::string::npos;
    waitUntil(
        [&] {
            pump(20);
            at = text[0].find(wanted, mark);
            return at != std::string::npos || (fds[0] < 0 && fds[1] < 0);
        },
        timeoutMs);
    if (at == std::string::npos)
        return false;
    mark = at + wanted.size();
    return true;
}

bool ConsoleSession::waitForKeyMode(int timeoutMs)
{
    bool keys = false;
    waitUntil(
        [&] {
            termios tio;
            pump(0);
            keys = fds[0] >= 0 && tcgetattr(fds[0], &tio) == 0 && (tio.c_lflag & ICANON) == 0;
            return keys || fds[0] < 0;
        },
        timeoutMs);
    // Whatever the command printed went out before the terminal was switched.
    output();
    return keys;
}

bool ConsoleSession::key(char k)
{
    if (!waitForKeyMode())
        return false;
    type(std::string(1, k));
    return true;
}

void ConsoleSession::type(const std::string& bytes)
{
    if (fds[0] >= 0)
        (void) !::write(fds[0], bytes.data(), bytes.size());
}

std::string ConsoleSession::takeOutput()
{
    auto printed = output().substr(std::min(mark, text[0].size()));
    mark = text[0].size();
    return printed;
}

std::string ConsoleSession::output()
{
    while (pump(0))
        ;
    return text[0];
}

std::string ConsoleSession::errors()
{
    output();
    return text[1];
}

int ConsoleSession::exitStatus(int timeoutMs)
{
    int st = 0;
    auto ended = [&] {
        pump(0);
        return waitpid(pid, &st, WNOHANG) == pid;
    };
    if (!status && waitUntil(ended, timeoutMs))
        status = WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    else if (!status)
    {
        kill(pid, SIGKILL);
        waitpid(pid, nullptr, 0);
        status = -1000;
    }
    output();
    return *status;
}

ScriptedBoard::ScriptedBoard(const std::string& dir, const std::string& linkName, const std::string& identity,
                             int id)
    : table { { "?", { identity } }, { "@", { "R" + std::to_string(id) } }, { "!", { "OK" } } }, peer(dir, linkName)
{
    peer.serve([this](const std::string& line) {
        std::lock_guard<std::mutex> g(lock);
        if (handler)
            if (auto lines = handler(line))
                return *lines;
        const auto it = table.find(line);
        return it != table.end() ? it->second : std::vector<std::string> { "N" };
    });
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

std::vector<std::string> ScriptedBoard::takeReceived()
{
    const auto all = peer.received();
    std::vector<std::string> fresh(all.begin() + (long) std::min(taken, all.size()), all.end());
    taken = all.size();
    return fresh;
}

void runKeyCase(ConsoleSession& console, ScriptedBoard& board, const KeyCase& c)
{
    SCOPED_TRACE(std::string("key '") + c.key + "'");
    std::vector<std::string> expectedWire;
    for (auto& [command, replyLines] : c.wire)
    {
        board.reply(command, replyLines.empty() ? std::vector<std::string> { "OK" } : replyLines);
        expectedWire.push_back(command);
    }
    std::string expectedPrinted;
    board.takeReceived();
    console.takeOutput();
    const size_t start = console.output().size();

    ASSERT_TRUE(console.key(c.key)) << "the console never came back for a key";
    for (auto& [prompt, answer] : c.answers)
    {
        ASSERT_TRUE(console.waitFor(prompt)) << "no prompt \"" << prompt << "\"; printed: "
                                             << console.output().substr(start);
        console.line(answer);
        expectedPrinted += prompt + answer + "\n";
    }
    expectedPrinted += c.printed;
    // Key mode means the command is over only once something after the key's own switch to line mode was seen.
    EXPECT_TRUE(board.waitForReceived(expectedWire.size()));
    EXPECT_TRUE(waitUntil([&] { return console.output().size() >= start + expectedPrinted.size(); },
                          ConsoleSession::deadlineMs));
    EXPECT_TRUE(console.waitForKeyMode());
    EXPECT_EQ(board.takeReceived(), expectedWire);
    EXPECT_EQ(console.output().substr(start), expectedPrinted);
    console.takeOutput();
}
