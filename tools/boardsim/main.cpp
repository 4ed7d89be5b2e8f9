// boardsim: serial boards emulated on pseudo-terminals, for testing and
// trying the console without hardware. Run with --help for the details.
#include <cstdio>
#include <iostream>
#include <unistd.h>

#include "boardsim/options.h"
#include "boardsim/simulator.h"
#include "simcore/simcore.h"

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

    const int stopFd = simcore::stopFdOnSignals();
    if (stopFd < 0) {
        std::perror("boardsim: pipe");
        return 1;
    }

    boardsim::Simulator simulator(std::move(options), simcore::printLine);
    if (!simulator.start(error)) {
        std::cerr << "boardsim: " << error << std::endl;
        return 1;
    }
    boardsim::runControlLoop(simulator, STDIN_FILENO, stopFd);
    simulator.stop();
    return 0;
}
