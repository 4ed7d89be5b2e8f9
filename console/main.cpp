// avrtest: the bench console for the serial boards and the docks. A technician
// names the board type on the command line, the console finds the board,
// prints its identity and then runs one board operation per key.
#include "console/LinkTest.h"
#include "console/SerialConsole.h"
#include "console/dock/DockConsole.h"

#include <juce_events/juce_events.h>

#include <cstdio>

int main(int argc, char** argv)
{
    const juce::ScopedJuceInitialiser_GUI juceRuntime;

    printf("AVR Test Utility\n");
    printf("Bench console for the serial boards: every key acts on the board at once.\n\n");

    const ConsoleArguments args = parseArguments(argc, argv);
    switch (args.action)
    {
        case ConsoleArguments::Action::linkTest:
            return runLinkTest(args.port);

        case ConsoleArguments::Action::dock:
            return runDockConsole(argc, argv);

        case ConsoleArguments::Action::serialBoard:
            return runSerialConsole(*findBoardKind(args.letter), args.id, args.check);

        case ConsoleArguments::Action::unknown:
            break;
    }
    puts("Unknown board type!");
    return -1;
}
