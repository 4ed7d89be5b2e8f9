#pragma once

#include "support/PtyPeer.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/** avrtest running as a child process with a pseudo-terminal as its standard
    input and output (and its controlling terminal, so Ctrl-C works as at the
    bench) and a pipe as its standard error. The terminal does no output
    processing, so what the test reads is exactly what the console printed.

    Every wait has a generous deadline: nothing here sleeps for a fixed time. */
class ConsoleSession
{
public:
    static constexpr int deadlineMs = 20000;

    explicit ConsoleSession(const std::vector<std::string>& args);
    ~ConsoleSession();

    /** Waits until `text` has been printed after the mark and moves the mark
        past it. */
    bool waitFor(const std::string& text, int timeoutMs = deadlineMs);
    /** Waits until the console reads single keys (its terminal is out of line
        mode), draining its output meanwhile. */
    bool waitForKeyMode(int timeoutMs = deadlineMs);
    /** Presses one key once the console is ready for it. */
    bool key(char k);
    /** Types an answer line. */
    void line(const std::string& text);
    /** Sends raw bytes to the console's terminal. */
    void type(const std::string& bytes);
    /** Ctrl-C at the terminal. */
    void interrupt() { type("\x03"); }

    /** Output printed since the mark; the mark moves to the end. */
    std::string takeOutput();
    /** Everything printed so far. */
    std::string output();
    std::string errors();

    /** The exit status (as the shell sees it, 255 for -1), or -1000 if the
        console did not end in time (it is then killed). */
    int exitStatus(int timeoutMs = deadlineMs);

private:
    bool pump(int timeoutMs);

    int pid = -1;
    int master = -1;
    int errFd = -1;
    std::string out, err;
    size_t mark = 0;
    std::optional<int> status;
};

/** A board on a pseudo-terminal that answers the console from a table of
    replies: each received command line gets the lines given for it, "?" the
    identity, "@" the id and "!" OK unless the test says otherwise; anything
    not in the table is refused with "N". A handler may take over lines the
    table cannot express (multi-block transfers). */
class ScriptedBoard
{
public:
    using Handler = std::function<std::optional<std::vector<std::string>>(const std::string& line)>;

    ScriptedBoard(const std::string& dir, const std::string& linkName, const std::string& identity, int id = 0);

    void reply(const std::string& command, std::vector<std::string> lines);
    void setHandler(Handler h);

    /** Lines received since the last call. */
    std::vector<std::string> takeReceived();
    /** Waits until at least n lines arrived since the last takeReceived(). */
    bool waitForReceived(size_t n, int timeoutMs = ConsoleSession::deadlineMs);
    /** Sends an event line now. */
    void event(const std::string& line) { peer.writeLine(line); }

    PtyPeer& pty() { return peer; }

private:
    std::vector<std::string> respond(const std::string& line);

    PtyPeer peer;
    std::mutex lock;
    std::map<std::string, std::vector<std::string>> table;
    Handler handler;
    size_t taken = 0;
};

/** One key of a board's table as the technician uses it. */
struct KeyCase
{
    char key;
    /** Prompt and answer pairs, in order. An answer is typed with a return. */
    std::vector<std::pair<std::string, std::string>> answers;
    /** Command lines the board must receive, in order, with its reply to each
        (empty: "OK"). */
    std::vector<std::pair<std::string, std::vector<std::string>>> wire;
    /** What the console prints after the prompts and the echoed answers. */
    std::string printed = "";
};

/** Presses the key, answers its prompts, and checks the lines on the wire and
    the exact text printed. Returns false (with gtest failures) on a mismatch. */
bool runKeyCase(ConsoleSession& console, ScriptedBoard& board, const KeyCase& c);

/** The console's path and arguments as a vector. */
std::vector<std::string> avrtestCommand(const std::vector<std::string>& args);

/** Discovery gives a board 100 ms to answer; a test process starved of the
    CPU can miss that, which says nothing about the console. Where a board is
    there to be found, a run that missed it is tried this many times in all. */
constexpr int findAttempts = 3;

/** An interactive run on a board that is there, once the board's identity
    line and the help hint are out; nullptr (with a gtest failure) if every
    attempt missed the board. */
std::unique_ptr<ConsoleSession> startFound(const std::vector<std::string>& args, const std::string& identity);

/** Two upper-case hex digits of the low byte. */
std::string hex2(int v);

#include <gtest/gtest.h>

/** A console opened on one scripted board, left with `x` at the end. */
class SerialConsoleTest : public ::testing::Test
{
protected:
    /** Starts the console for board type `letter` against a board answering
        "?" with `identity`, and waits for it to be ready for keys. */
    void open(const std::string& letter, const std::string& identity)
    {
        board = std::make_unique<ScriptedBoard>(dir.path(), "tty.usbserial-BENCH", identity);
        console = startFound({ letter }, identity);
        ASSERT_TRUE(console);
        ASSERT_TRUE(console->waitForKeyMode());
        board->takeReceived();
    }

    void runAll(const std::vector<KeyCase>& cases)
    {
        for (auto& c : cases)
            runKeyCase(*console, *board, c);
    }

    /** For a key whose exchange `handler` plays: presses the key, answers its
        one prompt, and waits until the echoed answer and then `printed` are
        out and the console is back for keys. */
    void runScripted(char key, ScriptedBoard::Handler handler, const std::string& prompt, const std::string& answer,
                     const std::string& printed)
    {
        board->setHandler(std::move(handler));
        board->takeReceived();
        ASSERT_TRUE(console->key(key));
        ASSERT_TRUE(console->waitFor(prompt));
        console->line(answer);
        ASSERT_TRUE(console->waitFor(answer + "\n" + printed));
        ASSERT_TRUE(console->waitForKeyMode());
    }

    /** Sends the event lines in one go and checks that the console prints
        exactly the given text for them (an empty string for events it keeps
        quiet about). */
    void expectEvents(const std::vector<std::pair<std::string, std::string>>& events)
    {
        console->takeOutput();
        const size_t start = console->output().size();
        std::string expected;
        for (auto& [line, printed] : events)
        {
            board->event(line);
            expected += printed;
        }
        EXPECT_TRUE(waitUntil([&] { return console->output().size() >= start + expected.size(); },
                              ConsoleSession::deadlineMs));
        EXPECT_EQ(console->output().substr(start), expected);
        console->takeOutput();
    }

    void TearDown() override
    {
        if (console == nullptr || HasFatalFailure())
            return;
        console->key('x');
        EXPECT_EQ(console->exitStatus(), 0);
    }

    TempDevDir dir;
    std::unique_ptr<ScriptedBoard> board;
    std::unique_ptr<ConsoleSession> console;
};
