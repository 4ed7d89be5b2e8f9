#include "console/dock/DockConsole.h"

#include "console/ConsoleInput.h"
#include "console/dock/TbtCd2DockTester.h"
#include "console/dock/TbtSingleDockTester.h"
#include "console/dock/XferDockTester.h"
#include "link/ConsoleTerminal.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>

namespace
{
template <class Tester>
std::unique_ptr<DockTester> makeTester(std::shared_ptr<DockPlatform> platform, int boardId)
{
    return std::make_unique<Tester>(std::move(platform), boardId);
}

const DockType dockTypes[] = {
    { 's', "USB 3.0 Transfer Dock", makeTester<XferDockTester> },
    { 'm', "Thunderbolt Single Dock", makeTester<TbtSingleDockTester> },
    { 'n', "Thunderbolt CD2 Dock", makeTester<TbtCd2DockTester> },
};

void onDockControlC()
{
    dockStopFlag = 1;
}

void printDockTypes()
{
    for (const auto& type : dockTypes)
        printf("%c    %s\n", type.letter, type.listName);
}

bool isPlainAscii(char c)
{
    return (unsigned char) c < 0x80;
}

/** Asks until a known dock type is typed; nullptr at the end of input. */
const DockType* askDockType()
{
    for (;;)
    {
        printf("Enter hardware type (? for list)\n");
        std::string line;
        if (!ConsoleInput::readLine(line))
            return nullptr;
        const char letter = line.empty() ? 0 : line[0];
        if (const auto* type = findDockType(letter))
            return type;
        if (letter != '?')
            puts("Unknown hardware type");
        printDockTypes();
    }
}

/** Asks until a non-negative integer is typed; false at the end of input. */
bool askBoardId(int& id)
{
    for (;;)
    {
        printf("Enter board ID\n");
        std::string line;
        if (!ConsoleInput::readLine(line))
            return false;
        int typed = -1;
        if (!parseBoardId(line.c_str(), typed))
            puts("Invalid input: enter an integer.");
        else if (typed >= 0)
        {
            id = typed;
            return true;
        }
    }
}
}

const DockType* findDockType(char letter)
{
    for (const auto& type : dockTypes)
        if (type.letter == letter)
            return &type;
    return nullptr;
}

bool parseBoardId(const char* text, int& id)
{
    while (*text == ' ' || *text == '\t')
        ++text;
    char* end = nullptr;
    errno = 0;
    const long value = strtol(text, &end, 10);
    if (end == text || errno != 0 || value < INT_MIN || value > INT_MAX)
        return false;
    while (*end == ' ' || *end == '\t' || *end == '\r')
        ++end;
    if (*end != 0)
        return false;
    id = (int) value;
    return true;
}

int runDockConsole(int argc, const char* const* argv)
{
    printf("Hardware Test Utility\n");
    printf("Bench console for the docks: every key acts on the dock at once.\n\n");

    const DockType* type = nullptr;
    if (argc > 1 && isPlainAscii(argv[1][0]))
    {
        type = findDockType(argv[1][0]);
        if (type == nullptr)
        {
            puts("Unknown hardware type");
            printDockTypes();
        }
    }
    if (type == nullptr && (type = askDockType()) == nullptr)
        return -1;

    int id = 0;
    if (argc > 2 && (!parseBoardId(argv[2], id) || id < 0) && !askBoardId(id))
        return -1;
    const bool check = argc > 3 && argv[3][0] == 'c';

    auto tester = type->makeTester(DockPlatform::create(), id);
    const bool opened = tester->openDock();
    fflush(stdout);
    if (check || !opened)
        return opened ? 0 : -1;

    if (!tester->startUp())
    {
        fflush(stdout);
        return -1;
    }
    setControlCHandler(onDockControlC);
    tester->runMenu();
    tester.reset();
    fflush(stdout);
    return 0;
}
