#include "console/SerialConsole.h"

#include "console/ConsoleInput.h"
#include "console/Menus.h"
#include "link/ConsoleTerminal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

ConsoleArguments parseArguments(int argc, const char* const* argv)
{
    ConsoleArguments args;
    const char* type = argc > 1 ? argv[1] : "c";
    const char letter = type[0];
    args.letter = letter;

    if (argc > 2)
        args.id = (int) strtol(argv[2], nullptr, 10);
    args.check = argc > 3 && argv[3][0] == 'c';

    if (letter < 'b' || letter > 'x')
        return args;

    if (letter == 'b')
    {
        if (type[1] >= '0' && type[1] <= '9')
        {
            args.action = ConsoleArguments::Action::linkTest;
            args.port = type[1] - '0';
        }
        return args;
    }
    if (letter == 'm' || letter == 'n' || letter == 's')
    {
        args.action = ConsoleArguments::Action::dock;
        return args;
    }
    if (findBoardKind(letter) != nullptr)
        args.action = ConsoleArguments::Action::serialBoard;
    return args;
}

//==============================================================================
namespace
{
// The console's list of serial boards: the menu files hold the keys, the help
// and the listener of each.
template <class Board>
HardwareBoard* makeBoard()
{
    return new Board();
}

const BoardKind boardKinds[] = {
    { 'c', "chassis", 1, makeBoard<ChassisBoard>, chassisMenu },
    { 'd', "diskpack", 4, makeBoard<DiskpackBoard>, diskpackMenu },
    { 'r', "remote", 1, makeBoard<RemoteBoard>, remoteMenu },
    { 't', "desktop transfer station", 1, makeBoard<DesktopBoard>, desktopMenu },
    { 'u', "xfer drive dual", 1, makeBoard<XferDualBoard>, xferDualMenu },
    { 'x', "transfer station", 2, makeBoard<TransferBoard>, transferMenu },
};

void keystrokeLoop(const BoardKind& kind, BoardSession& session)
{
    while (stopFlag == 0)
    {
        // A key or Ctrl-C ends the wait at once (the flag changes nowhere
        // else), so the loop need not wake to look at the flag.
        if (!waitForKey(keyWaitBackstopMs))
            continue;
        const int key = getch();
        // Prompts and their answers run in the terminal's line mode.
        resetTTY();
        if (key < 0)
        {
            juce::Logger::writeToLog("avrtest: end of console input");
            stopFlag = 1;
            break;
        }

        if (key == '?')
            puts(kind.menu.help);
        else if (key == 'x')
            stopFlag = 1;
        else if (key == '\n' || key == '\r')
            ;
        else if (!session.handleKey(key))
            printf("Unknown command '%c'\n", key);
        fflush(stdout);
    }
}
}

const BoardKind* findBoardKind(char letter)
{
    for (auto& kind : boardKinds)
        if (kind.letter == letter)
            return &kind;
    return nullptr;
}

const char* boardKindName(const BoardKind* kind)
{
    return kind != nullptr ? kind->name : "(unknown)";
}

bool searchBoards(juce::OwnedArray<HardwareBoard>& owned, const std::function<HardwareBoard*()>& makeBoard, int id,
                  bool check, int maxIds)
{
    bool found = false;
    auto tryId = [&](int boardId) {
        std::unique_ptr<HardwareBoard> board(makeBoard());
        found = board->findAndOpen(boardId);
        // Found boards stay open so the next search skips their ports.
        if (found)
            owned.add(board.release());
        return found;
    };

    if (!check)
    {
        tryId(id);
    }
    else if (id >= 0)
    {
        // Zero boards wanted still means one look.
        const int wanted = std::max(id, 1);
        int counted = 0;
        int nextId = 0;
        while (counted < wanted)
        {
            if (tryId(nextId))
                ++counted;
            else if (++nextId >= maxIds)
                break;
        }
    }

    while (owned.size() > 1)
        owned.remove(0);
    return found;
}

int runSerialConsole(const BoardKind& kind, int id, bool check)
{
    juce::OwnedArray<HardwareBoard> owned;
    if (!searchBoards(owned, kind.makeBoard, id, check, kind.idsSearchedInCheckMode))
    {
        printf("Failed to find %s board id %d!\n", boardKindName(&kind), id);
        return -1;
    }

    HardwareBoard& board = *owned.getLast();
    printf("%s %s\n", board.boardIdString(), board.getVersionString().toRawUTF8());
    if (check)
        return 0;

    puts("Type ? for help\n");
    fflush(stdout);

    const auto session = kind.menu.startSession(board);
    board.registerListener(&session->getListener());
    if (!board.syncState())
    {
        puts("syncState command failed");
    }
    else
    {
        setControlCHandler(onControlC);
        keystrokeLoop(kind, *session);
    }

    board.deregisterListener(&session->getListener());
    board.closeBoard(false);
    owned.clear();
    fflush(stdout);
    return 0;
}
