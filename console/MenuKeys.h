#pragma once

#include "link/HardwareBoard.h"

#include <memory>

/** One key of a board's menu and the command it runs. A board's keys are one
    array of these, next to the help text that lists them. */
template <class Target>
struct MenuKey
{
    char key;
    void (*run)(Target& target);
};

/** Runs the command of `key` from `keys`; false when the table has no such key. */
template <class Target, size_t numKeys>
bool runMenuKey(const MenuKey<Target> (&keys)[numKeys], Target& target, int key)
{
    for (auto& entry : keys)
    {
        if (entry.key == key)
        {
            entry.run(target);
            return true;
        }
    }
    return false;
}

/** runMenuKey over one fixed table, as a plain function a session can call. */
template <class Target, const auto& keys>
bool runKeyTable(Target& target, int key)
{
    return runMenuKey(keys, target, key);
}

/** What the console holds while it drives one board: the listener that
    prints the board's events and the board's keys. */
class BoardSession
{
public:
    virtual ~BoardSession() = default;
    virtual HardwareBoardEventListener& getListener() = 0;
    /** Runs one key; false when the board's menu has no such key. */
    virtual bool handleKey(int key) = 0;

    /** A session whose keys need nothing but the board, with a listener that
        hears every event the board reports. */
    template <class Board, class Listener, bool (*runKey)(Board&, int)>
    static std::unique_ptr<BoardSession> start(HardwareBoard& board)
    {
        struct Session : BoardSession
        {
            explicit Session(Board& b) : board(b) {}
            HardwareBoardEventListener& getListener() override { return listener; }
            bool handleKey(int key) override { return runKey(board, key); }

            Board& board;
            Listener listener { Listener::allEvents };
        };
        return std::make_unique<Session>(static_cast<Board&>(board));
    }
};

/** A board's menu as the console registers it: `?` prints the help, and a
    session runs the keys for as long as the board is driven. */
struct BoardMenu
{
    const char* help;
    std::unique_ptr<BoardSession> (*startSession)(HardwareBoard& board);
};
