// docksim: the dock drivers emulated behind a Unix socket, for testing and
// trying the dock console without docks. Run with --help for the details.
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

#include "docksim/control_lines.h"
#include "docksim/emulator.h"
#include "docksim/options.h"
#include "docksim/socket_server.h"

namespace {

int g_stopPipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 's';
    // Nothing to do if the pipe is full: a stop is already pending.
    [[maybe_unused]] ssize_t n = ::write(g_stopPipe[1], &c, 1);
}

void printLine(const std::string& line)
{
    std::fputs(line.c_str(), stdout);
    std::fputc('\n', stdout);
    std::fflush(stdout);
}

} // namespace

int main(int argc, char** argv)
{
    docksim::Options options;
    std::string error;
    if (!docksim::parseOptions(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
        std::cerr << "docksim: " << error << "\n(docksim --help shows the usage)" << std::endl;
        return 2;
    }
    if (options.help) {
        std::cout << docksim::usageText() << std::flush;
        return 0;
    }
    if (::pipe2(g_stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("docksim: pipe");
        return 1;
    }
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    std::signal(SIGPIPE, SIG_IGN);

    docksim::Emulator emulator(options, printLine);
    docksim::ControlLines control(emulator);
    docksim::SocketServer server(emulator, control, printLine);
    if (!server.listen(options.socket, error)) {
        std::cerr << "docksim: " << error << std::endl;
        return 1;
    }
    server.run(STDIN_FILENO, g_stopPipe[0]);
    return 0;
}
