#include "console/SerialConsole.h"

#include "console/ConsoleInput.h"
#include "console/ConsoleListeners.h"
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
/** A board kind whose listener hears every event the board reports. */
template <class Board, class Listener, bool (*menu)(Board&, int)>
constexpr BoardKind serialKind(char letter, const char* name, int idsSearchedInCheckMode, const char* help)
{
    return { letter,
             name,
             idsSearchedInCheckMode,
             Listener::allEvents,
             help,
             [] { return static_cast<HardwareBoard*>(new Board()); },
             [](uint32_t mask) { return static_cast<HardwareBoardEventListener*>(new Listener(mask)); },
             [](HardwareBoard& board, int key) { return menu(static_cast<Board&>(board), key); } };
}

const BoardKind boardKinds[] = {
    serialKind<ChassisBoard, AVRChassisEventListener, chassisMenu>(
        'c', "chassis", 1,
        "\nV volume, R brightness, I inverter,\nE leds, L lock, P power, F fan speed,\nT reset shuttle, C colour, A "
        "ambient mode,\nS enable screen saver, H check bay connected,\nx exit\n"),
    serialKind<DiskpackBoard, AVRDiskpackEventListener, diskpackMenu>(
        'd', "diskpack", 4,
        "\nL led, A disk activity, X set wp, Y get wp,\nD set display text, S scsi id, V get voltage,\nT enable temp, "
        "R read text, W write text,\nQ num text pages, O get op hours, M get temps,\nU get guid, C prepare "
        "closedown,\nI get scsi type, B set display brightness,\nE get SAS addr, Z reset EEPROM,\nG backplane voltage "
        "rail, x exit\n"),
    serialKind<RemoteBoard, AVRRemoteEventListener, remoteMenu>(
        'r', "remote", 1,
        "\nC set contrast, E get contrast, R ring colour\nF set ring brightness, I get ring brightness\nA ambient Q "
        "qtouch events,\nM boot message x exit\n"),
    serialKind<DesktopBoard, AVRDesktopEventListener, desktopMenu>(
        't', "desktop transfer station", 1,
        "\nZ reset EEPROM, I get diskpack ID, O get op hours,\nV get voltage, M get temps, P diskpack temp, U get "
        "guid,\nL set leds, E get SAS addr, A get disk addr, R reset SAS\nD diskpack power, X set write protect, Y "
        "get write protect,\nH set id leds, W program SAS EEPROM, F reset PHY\nC clear phy errors, B get phy "
        "errors, N set phy min/max speed,\nx exit\n"),
    serialKind<XferDualBoard, AVRXferDualEventListener, xferDualMenu>(
        'u', "xfer drive dual", 1,
        "\nZ reset EEPROM, G get voltage rail, O get op hours,\nM get temps, T sys temp, F expander fan speed, H set "
        "id leds,\nI get diskpack ID, U get guid, P diskpack temp, J disk fan speed\nL set diskpack leds, D "
        "diskpack power,\nX set write protect, Y get write protect,\nE get SAS addr, A get disk addr, R reset "
        "SAS,\nC clear phy errors, B get phy errors, N set phy min/max speed,\nV reset PHY, W diskpack EEPROM "
        "write/read test,\nx exit\n"),
    serialKind<TransferBoard, AVRTransferEventListener, transferMenu>(
        'x', "transfer station", 2,
        "\nZ reset EEPROM, I get diskpack ID, O get op hours,\nV get voltage, B get capacity, C get current,\nF set "
        "fan speed, W set fan pwm, M get temps\nP diskpack temp, U get guid, L set leds,\nD diskpack power, X set "
        "write protect, Y get write protect,\nH internal disk power, T tape drive power,\nN get optional devices "
        "fitted, R set optional devices fitted,\nE get SAS addr, S set manual SAS addr,\nx exit\n"),
};

void keystrokeLoop(const BoardKind& kind, HardwareBoard& board)
{
    while (stopFlag == 0)
    {
        if (!kbhit())
        {
            juce::Thread::sleep(20);
            continue;
        }
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
            puts(kind.help);
        else if (key == 'x')
            stopFlag = 1;
        else if (key == '\n' || key == '\r')
            ;
        else if (!kind.handleKey(board, key))
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

    HardwareBoardEventListener* listener = kind.makeListener != nullptr ? kind.makeListener(kind.listenerMask) : nullptr;
    if (listener == nullptr)
    {
        puts("Listener is NULL.");
    }
    else
    {
        board.registerListener(listener);
        if (!board.syncState())
        {
            puts("syncState command failed");
        }
        else
        {
            setControlCHandler(onControlC);
            keystrokeLoop(kind, board);
        }
    }

    board.deregisterListener(listener);
    board.closeBoard(false);
    delete listener;
    owned.clear();
    fflush(stdout);
    return 0;
}
