// What an emulated board says: the command set and events of one board type.
//
// The core personality answers the commands every board shares ("?", "@",
// "!") and refuses everything else. A board type derives from Personality and
// adds its own commands (command()), the state events it repeats after a
// synchronisation (synchronise()), control lines the test driver may address
// to it (control()) and timed events (tick()). A personality that speaks a
// different protocol altogether, such as a bootloader, overrides handle().
//
// Threading: a personality is only ever called from its board's own thread,
// so it needs no locking of its own.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace boardsim {

class Personality;

// Collects what a personality wants sent in answer to one call. Lines are sent
// in the order they were added, each followed by "\r\n".
class Replier {
public:
    enum class Kind {
        Final, // the one line that closes a command: "OK", "N", "R..." or the identity
        Event, // an asynchronous line; by convention it starts with a lower-case letter
        Raw,   // bytes sent exactly as given, without a line ending
    };
    struct Item {
        Kind kind;
        std::string bytes;
    };

    void ok() { final("OK"); }
    void refuse() { final("N"); }
    void data(const std::string& payload) { final("R" + payload); }
    void final(const std::string& line) { items_.push_back({Kind::Final, line}); }
    void event(const std::string& line) { items_.push_back({Kind::Event, line}); }
    void raw(const std::string& bytes) { items_.push_back({Kind::Raw, bytes}); }

    // Replaces the board's personality once the current call has returned,
    // e.g. to enter or leave a bootloader. The new one keeps the board's id.
    void become(std::unique_ptr<Personality> next);

    const std::vector<Item>& items() const { return items_; }
    std::vector<Item>& items() { return items_; }
    std::size_t finalCount() const;
    std::unique_ptr<Personality> takeSuccessor();

    Replier();
    ~Replier();
    Replier(Replier&&) noexcept;
    Replier& operator=(Replier&&) noexcept;

private:
    std::vector<Item> items_;
    std::unique_ptr<Personality> successor_;
};

// Fixed facts about the board a personality speaks for.
struct BootloaderState;
struct Faults;

struct BoardInfo {
    BoardInfo(char l = 0, int i = 0, std::string v = {}) : letter(l), id(i), version(std::move(v)) {}

    char letter = 0;     // board type: c, d, r, t, u, x
    int id = 0;          // 0..9, answered to "@"
    std::string version; // firmware version, e.g. "V1.00"
    bool inBootloader = false; // waiting in the bootloader rather than running the application
    // The board's flash, which its bootloader programs. One per board, shared
    // by every personality the board takes on, so it survives a restart.
    std::shared_ptr<BootloaderState> bootloader;
};

class Personality {
public:
    explicit Personality(BoardInfo info);
    virtual ~Personality();

    Personality(const Personality&) = delete;
    Personality& operator=(const Personality&) = delete;

    const BoardInfo& info() const { return info_; }

    // The board type's name, without the version: "Diskpack board".
    virtual std::string identity() const;

    // Answers one received command line. Must add exactly one final line to
    // `out` (the board warns on stderr otherwise) and may add events before or
    // after it. Fault injection happens outside, in the board.
    virtual void handle(const std::string& line, Replier& out);

    // A control line `VERB B ARGS` from the test driver whose VERB the core
    // does not know. Return false and set `error` if it is not for this
    // personality either; events added to `out` are sent at once.
    virtual bool control(const std::string& verb, const std::string& args, Replier& out,
                         std::string& error);

    // A personality that reads a byte stream of its own instead of lines (the
    // bootloader) says so; the board then hands it every byte it receives.
    virtual bool takesBytes() const { return false; }
    struct ByteInput {
        std::size_t consumed = 0;          // bytes used from the start of the data
        std::vector<std::string> requests; // requests they completed, for --log
    };
    // Consumes bytes until they run out or it hands over to another
    // personality, whose the rest then are. Answers go to `out`; faults that
    // concern it are used up from `faults`.
    virtual ByteInput receive(const char* data, std::size_t size, Faults& faults, Replier& out);

    // How often tick() is wanted; zero means never. Asked again after every
    // call into the personality, so it may change with the board's state.
    virtual std::chrono::milliseconds tickInterval() const { return std::chrono::milliseconds(0); }
    // Timed behaviour; events added to `out` are sent at once.
    virtual void tick(Replier& out);

protected:
    // Board-specific commands. Return false to have the line refused.
    virtual bool command(const std::string& line, Replier& out);
    // Called after the "OK" to "!": the board's current state as events.
    virtual void synchronise(Replier& out);

private:
    BoardInfo info_;
};

// Board letters the emulator knows, in the order --help lists them.
const std::vector<char>& knownBoardLetters();

// The identity string of a board type, or empty for an unknown letter.
std::string identityForLetter(char letter);

// The personality for a board type, or nullptr for an unknown letter.
std::unique_ptr<Personality> makePersonality(const BoardInfo& info);

// Makes a board's personality; makePersonality() unless a test supplies its own.
using PersonalityFactory = std::function<std::unique_ptr<Personality>(const BoardInfo&)>;

} // namespace boardsim
