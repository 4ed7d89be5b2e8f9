// boardsim: serial boards emulated on pseudo-terminals, for testing and
// trying the console without hardware. Run with --help for the details.
#include <csignal>
#include <cstdio>
#include <fcntl.h>
#include <iostream>
#include <unistd.h>

#include "boardsim/options.h"
#include "boardsim/simulator.h"

namespace {

int g_stopPipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 's';
    // Nothing to do if the pipe is full: a stop is already pending.
    [[maybe_unused]] ssize_t n = ::write(g_stopPipe[1], &c, 1);
}

} // namespace

int main(int argc, char** argv)
{
    boardsim::Options options;
    std::string error;
    if (!boardsim::parseOptions(std::vector<std::string>(argv + 1, argv + argc), options, error)) {
        std::cerr << "boardsim: " << error << "\n(boardsim --help shows the usage)" << std::endl;
        return 2;
    }
    if (options.help) {
        std::cout << boardsim::usageText() << std::flush;
        return 0;
    }

    if (::pipe2(g_stopPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        std::perror("boardsim: pipe");
        return 1;
    }
    struct sigaction sa {};
    sa.sa_handler = onSignal;
    sigemptyset(&sa.sa_mask);
    sigaction(SIGINT, &sa, nullptr);
    sigaction(SIGTERM, &sa, nullptr);
    sigaction(SIGHUP, &sa, nullptr);
    // A driver that goes away must not kill us before the links are removed.
    std::signal(SIGPIPE, SIG_IGN);

    boardsim::Simulator simulator(std::move(options), [](const std::string& line) {
        std::fputs(line.c_str(), stdout);
        std::fputc('\n', stdout);
        std::fflush(stdout);
    });
    if (!simulator.start(error)) {
        std::cerr << "boardsim: " << error << std::endl;
        return 1;
    }
    boardsim::runControlLoop(simulator, STDIN_FILENO, g_stopPipe[0]);
    simulator.stop();
    return 0;
}
