#pragma once

#include "support/PtyPeer.h"

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

/** avrtest on a pseudo-terminal as its controlling terminal (so Ctrl-C works), standard error on a pipe. */
class ConsoleSession
{
public:
    static constexpr int deadlineMs = 20000;

    explicit ConsoleSession(const std::vector<std::string>& args);
    ~ConsoleSession();

    /** Waits until `text` has been printed after the mark and moves the mark past it. */
    bool waitFor(const std::string& text, int timeoutMs = deadlineMs);
    /** Waits until the console reads single keys, collecting its output meanwhile. */
    bool waitForKeyMode(int timeoutMs = deadlineMs);
    /** Presses one key once the console is ready for it. */
    bool key(char k);
    void line(const std::string& text) { type(text + "\n"); }
    void type(const std::string& bytes);
    void interrupt() { type("\x03"); }

    /** Output printed since the mark; the mark moves to the end. */
    std::string takeOutput();
    std::string output();
    std::string errors();

    /** The exit status (255 for -1), or -1000 if the console had to be killed. */
    int exitStatus(int timeoutMs = deadlineMs);

private:
    bool pump(int timeoutMs);

    int pid = -1;
    int fds[2] = { -1, -1 }; // the terminal, standard error
    std::string text[2];
    size_t mark = 0;
    std::optional<int> status;
};

/** A board answering lines from a table ("?" identity, "@" id, "!" OK, else "N"), or first from a handler. */
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
    bool waitForReceived(size_t n, int timeoutMs = ConsoleSession::deadlineMs)
    {
        return peer.waitForReceived(taken + n, timeoutMs);
    }
    void event(const std::string& line) { peer.writeLine(line); }
    PtyPeer& pty() { return peer; }

private:
    std::mutex lock;
    std::map<std::string, std::vector<std::string>> table;
    Handler handler;
    size_t taken = 0;
    PtyPeer peer; // last, so that its answering thread stops before the table goes
};

/** A key: prompts and answers, the lines the board receives with replies (empty: OK), and what follows. */
struct KeyCase
{
    char key;
    std::vector<std::pair<std::string, std::string>> answers;
    std::vector<std::pair<std::string, std::vector<std::string>>> wire;
    std::string printed = "";
};

/** Presses the key, answers its prompts, and checks the wire and the exact text printed. */
void runKeyCase(ConsoleSession& console, ScriptedBoard& board, const KeyCase& c);

/** Discovery gives a board 100 ms, which a starved test can miss: runs are tried this many times. */
constexpr int findAttempts = 3;

/** An interactive run past the identity and help hint; nullptr (a gtest failure) if every attempt missed. */
std::unique_ptr<ConsoleSession> startFound(const std::vector<std::string>& args, const std::string& identity);

/** Two upper-case hex digits of the low byte. */
inline std::string hex2(int v)
{
    const char* digits = "0123456789ABCDEF";
    return { digits[(v >> 4) & 15], digits[v & 15] };
}

#include <gtest/gtest.h>

/** A console opened on one scripted board, left with `x` at the end. */
class SerialConsoleTest : public ::testing::Test
{
protected:
    void open(const std::string& letter, const std::string& identity)
    {
        board = std::make_unique<ScriptedBoard>(dir.path(), "tty.usbserial-BENCH", identity);
        console = startFound({ letter }, identity);
        ASSERT_TRUE(console);
        ASSERT_TRUE(console->waitForKeyMode());
    }

    void runAll(const std::vector<KeyCase>& cases)
    {
        for (auto& c : cases)
            runKeyCase(*console, *board, c);
    }

    /** A key whose exchange `handler` plays: one prompt, then `printed`, then back for keys. */
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

    /** Sends the event lines in one go; the console must print exactly their texts. */
    void expectEvents(const std::vector<std::pair<std::string, std::string>>& events)
    {
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
