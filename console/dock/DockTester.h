#pragma once

#include "link/HardwareBoard.h"

#include <atomic>
#include <cstdio>
#include <memory>

/** Set by the dock console's Ctrl-C handler. The menu loop and every step of
    an autotest look at it. Written from a signal handler: a lock-free byte. */
extern std::atomic<unsigned char> dockStopFlag;

/** One key of a dock's menu, with its line of help beside it. */
template <class Tester>
struct DockKey
{
    char key;
    /** nullptr keeps a working key out of the help. */
    const char* help;
    void (*run)(Tester& tester);
};

/** Runs `key` from `table`; false when the table does not have it. */
template <class Tester, class Table>
bool runDockKey(const Table& table, Tester& tester, int key)
{
    for (const auto& entry : table)
        if (entry.key == key)
        {
            entry.run(tester);
            return true;
        }
    return false;
}

/** The help lines of the keys in `table` that have one. */
template <class Table>
void printDockKeys(const Table& table)
{
    printf("\n");
    for (const auto& entry : table)
        if (entry.help != nullptr)
            printf("%c %s\n", entry.key, entry.help);
}

/** Drives one dock from the keyboard: opens it, registers the console
    listener, runs the menu loop and the dock's autotest. One subclass per
    dock type supplies the keys and the autotest. */
class DockTester
{
public:
    DockTester(std::unique_ptr<HardwareBoard> board, std::unique_ptr<HardwareBoardEventListener> listener, int boardId);
    virtual ~DockTester();

    // --- slots, in this order ---
    /** Finds the dock and prints its identity line, or the failure line. */
    virtual bool openDock();
    /** Registers the console listener and has the dock report its state. */
    virtual bool startUp();
    virtual void runAutotest() = 0;
    /** The dock's keys, then the autotest and exit keys. */
    virtual void printHelp() = 0;
    /** Runs one key; false for a key the dock does not know. */
    virtual bool handleKey(int key) = 0;

    /** Reads keys until `x`, Ctrl-C or the end of input. */
    void runMenu();

    int getBoardId() const { return boardId; }

protected:
    /** The autotest and exit keys that close every dock's help. */
    static void printCommonHelp() { printf("! autotest\nx exit\n"); }

    std::unique_ptr<HardwareBoard> board;
    const int boardId;
    bool done = false;

private:
    std::unique_ptr<HardwareBoardEventListener> listener;
    bool registered = false;
};
