#include "console/dock/DockTester.h"

#include "link/ConsoleTerminal.h"

std::atomic<unsigned char> dockStopFlag { 0 };

DockTester::DockTester(std::unique_ptr<HardwareBoard> b, std::unique_ptr<HardwareBoardEventListener> l, int id)
    : board(std::move(b)), boardId(id), listener(std::move(l))
{
}

DockTester::~DockTester()
{
    if (registered)
        board->deregisterListener(listener.get());
    board->closeBoard(false);
}

bool DockTester::openDock()
{
    if (!board->findAndOpen(boardId))
    {
        printf("Failed to find %s board id %d!\n", board->boardIdString(), boardId);
        return false;
    }
    printf("%s %s\n", board->boardIdString(), board->getVersionString().toRawUTF8());
    return true;
}

bool DockTester::startUp()
{
    if (listener == nullptr)
    {
        puts("Listener is NULL.");
        return false;
    }
    board->registerListener(listener.get());
    registered = true;
    if (!board->syncState())
    {
        puts("syncState command failed");
        return false;
    }
    return true;
}

void DockTester::runMenu()
{
    done = false;
    printf("Enter command (? for help)\n");
    fflush(stdout);
    while (!done && dockStopFlag == 0)
    {
        // A key or Ctrl-C ends the wait at once (the stop flag changes nowhere
        // else), so the loop need not wake to look at the flag.
        if (!waitForKey(keyWaitBackstopMs))
            continue;
        const int key = getch();
        // Prompts and their answers run in the terminal's line mode.
        resetTTY();
        if (key < 0)
        {
            juce::Logger::writeToLog("avrtest: end of console input");
            done = true;
        }
        else if (key == '\n' || key == '\r')
            ;
        else if (key == '!')
            runAutotest();
        else if (key == '?')
            printHelp();
        else if (key == 'x')
            done = true;
        else if (!handleKey(key))
            printHelp();
        fflush(stdout);
    }
}
