#pragma once

#include "console/MenuKeys.h"
#include "link/HardwareBoard.h"

#include <cstdint>
#include <functional>

/** What the command line asks for. */
struct ConsoleArguments
{
    enum class Action
    {
        serialBoard, // find one serial board and drive it from the keyboard
        linkTest,    // the serial link test on a numbered port
        dock,        // m, n, s: the dock console
        unknown      // "Unknown board type!"
    };

    Action action = Action::unknown;
    char letter = 0;  // the board type letter
    int port = -1;    // link test only
    int id = 0;       // board id, or in check mode the number of boards wanted
    bool check = false;
};

/** argv[1] is the board type (only its first character counts, and the
    second for `b`), argv[2] the board id parsed with strtol, argv[3] the
    check-mode flag when it starts with `c`. No argv[1] means the chassis. */
ConsoleArguments parseArguments(int argc, const char* const* argv);

/** The fixed properties of one serial board kind. */
struct BoardKind
{
    char letter;
    const char* name;         // as the failure message names it
    int idsSearchedInCheckMode;
    HardwareBoard* (*makeBoard)();
    const BoardMenu& menu;
};

/** The kind for a board letter, or nullptr. */
const BoardKind* findBoardKind(char letter);

/** The name used in the failure message, "(unknown)" without a kind. */
const char* boardKindName(const BoardKind* kind);

/** The board search. Without check mode one board is tried with `id`. In
    check mode `id` is the number of boards wanted: ids from 0 are tried in
    turn, each one again after a success (another board may carry the same
    id), until that many were found or `maxIds` ids failed; at least one
    attempt is made. Found boards stay open in `owned` until all but the last
    one added are dropped at the end. Returns whether the last attempt found
    a board. */
bool searchBoards(juce::OwnedArray<HardwareBoard>& owned, const std::function<HardwareBoard*()>& makeBoard, int id,
                  bool check, int maxIds);

/** Finds and drives one serial board; returns the exit status. */
int runSerialConsole(const BoardKind& kind, int id, bool check);
