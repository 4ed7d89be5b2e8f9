// docksim: the dock drivers emulated behind a Unix socket, for testing and
// trying the dock console without docks. Run with --help for the details.
#include <cstdio>
#include <iostream>
#include <unistd.h>

#include "docksim/control_lines.h"
#include "docksim/emulator.h"
#include "docksim/options.h"
#include "docksim/socket_server.h"
#include "simcore/simcore.h"

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
    const int stopFd = simcore::stopFdOnSignals();
    if (stopFd < 0) {
        std::perror("docksim: pipe");
        return 1;
    }

    docksim::Emulator emulator(options, simcore::printLine);
    docksim::ControlLines control(emulator);
    docksim::SocketServer server(emulator, control, simcore::printLine);
    if (!server.listen(options.socket, error)) {
        std::cerr << "docksim: " << error << std::endl;
        return 1;
    }
    server.run(STDIN_FILENO, stopFd);
    return 0;
}
