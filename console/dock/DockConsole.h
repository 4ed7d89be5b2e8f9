#pragma once

#include "console/dock/DockTester.h"
#include "docks/platform/DockPlatform.h"

/** One dock type the console drives. */
struct DockType
{
    char letter;
    const char* listName; // as the `?` list shows it
    std::unique_ptr<DockTester> (*makeTester)(std::shared_ptr<DockPlatform> platform, int boardId);
};

/** The dock type for `letter`, or nullptr. */
const DockType* findDockType(char letter);

/** A board id as the console takes it: a whole non-negative integer. False
    for anything else, `id` then left alone. */
bool parseBoardId(const char* text, int& id);

/** The dock console, entered with the program's unchanged arguments: argv[1]
    the dock type letter, argv[2] the board id, argv[3] the check-mode flag.
    It asks for what the arguments do not give. Returns the exit status. */
int runDockConsole(int argc, const char* const* argv);
