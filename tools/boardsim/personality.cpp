#include "boardsim/personality.h"

#include "boardsim/personality_bootloader.h"
#include "boardsim/personality_sas.h"
#include "boardsim/personality_serial.h"

#include <utility>

namespace boardsim {

Replier::Replier() = default;
Replier::~Replier() = default;
Replier::Replier(Replier&&) noexcept = default;
Replier& Replier::operator=(Replier&&) noexcept = default;

void Replier::become(std::unique_ptr<Personality> next) { successor_ = std::move(next); }

std::unique_ptr<Personality> Replier::takeSuccessor() { return std::move(successor_); }

std::size_t Replier::finalCount() const
{
    std::size_t n = 0;
    for (const auto& item : items_)
        if (item.kind == Kind::Final)
            ++n;
    return n;
}

Personality::Personality(BoardInfo info) : info_(std::move(info))
{
    if (!info_.bootloader)
        info_.bootloader = std::make_shared<BootloaderState>();
}
Personality::~Personality() = default;

std::string Personality::identity() const { return identityForLetter(info_.letter); }

void Personality::handle(const std::string& line, Replier& out)
{
    if (line == "?") {
        out.final(identity() + " " + info_.version);
    } else if (line == "@") {
        out.data(std::to_string(info_.id));
    } else if (line == "!") {
        out.ok();
        synchronise(out);
    } else if (line == "%UP") {
        // Every board's application hands over to the bootloader the same way.
        out.ok();
        out.become(makeBootloaderPersonality(info_));
    } else if (line.empty() || !command(line, out)) {
        // No board command is empty; command() may count on a letter.
        out.refuse();
    }
}

bool Personality::control(const std::string& verb, const std::string&, Replier&, std::string& error)
{
    error = "unknown command '" + verb + "'";
    return false;
}

void Personality::tick(Replier&) {}

Personality::ByteInput Personality::receive(const char*, std::size_t, Faults&, Replier&) { return {}; }

bool Personality::command(const std::string&, Replier&) { return false; }

void Personality::synchronise(Replier&) {}

namespace {

struct BoardType {
    char letter;
    const char* identity;
    std::unique_ptr<Personality> (*make)(const BoardInfo& info);
};

// The emulated boards: a new one is one row here and its personality file.
const BoardType kBoardTypes[] = {
    {'c', "Chassis board", makeChassisPersonality},
    {'d', "Diskpack board", makeDiskpackPersonality},
    {'r', "Remote Control AVR board", makeRemotePersonality},
    {'t', "Desktop Transfer Station board", makeDesktopPersonality},
    {'u', "Xfer Drive Dual SAS board", makeXferDualPersonality},
    {'x', "Transfer Station board", makeTransferPersonality},
};

const BoardType* findBoardType(char letter)
{
    for (const auto& t : kBoardTypes)
        if (t.letter == letter)
            return &t;
    return nullptr;
}

} // namespace

const std::vector<char>& knownBoardLetters()
{
    static const std::vector<char> letters = [] {
        std::vector<char> v;
        for (const auto& t : kBoardTypes)
            v.push_back(t.letter);
        return v;
    }();
    return letters;
}

std::string identityForLetter(char letter)
{
    const BoardType* type = findBoardType(letter);
    return type != nullptr ? type->identity : std::string();
}

std::unique_ptr<Personality> makePersonality(const BoardInfo& info)
{
    const BoardType* type = findBoardType(info.letter);
    if (type == nullptr)
        return nullptr;
    if (info.inBootloader)
        return makeBootloaderPersonality(info);
    return type->make(info);
}

} // namespace boardsim
