// Shared pieces of the board personalities: the argument forms their commands
// take on the wire, the state they have in common, the base class of boards
// whose commands are a letter and its argument, and the factories that
// makePersonality() calls.
//
// The boards read hex digits in upper case only. The product always writes
// them that way, so a board that accepted lower case would hide a regression.
#pragma once

#include "simcore/simcore.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "boardsim/personality.h"

namespace boardsim {

std::unique_ptr<Personality> makeChassisPersonality(const BoardInfo& info);
std::unique_ptr<Personality> makeDiskpackPersonality(const BoardInfo& info);
std::unique_ptr<Personality> makeRemotePersonality(const BoardInfo& info);
std::unique_ptr<Personality> makeTransferPersonality(const BoardInfo& info);

// The control lines these boards understand, for --help.
std::string serialBoardControlHelp();

namespace serial {

// The value of `text` if it is exactly `digits` (1..8) upper-case hex digits.
bool hexArg(const std::string& text, std::size_t digits, std::uint32_t& value);

// The same into an int, which holds at most 7 digits.
inline bool hexArg(const std::string& text, std::size_t digits, int& value)
{
    std::uint32_t v = 0;
    if (digits > 7 || !hexArg(text, digits, v))
        return false;
    value = static_cast<int>(v);
    return true;
}

// The bytes of `text`, two upper-case hex digits each; empty text is no bytes.
bool hexBytes(const std::string& text, std::vector<std::uint8_t>& bytes);

// A one-digit switch: "0" or "1".
inline bool flagArg(const std::string& text, bool& on)
{
    if (text != "0" && text != "1")
        return false;
    on = text == "1";
    return true;
}

// A control line's one word that is either `yes` or `no`.
inline bool choiceArg(const std::vector<std::string>& words, const char* yes, const char* no, bool& value)
{
    if (words.size() != 1 || (words[0] != yes && words[0] != no))
        return false;
    value = words[0] == yes;
    return true;
}

// `value` as `digits` upper-case hex digits (the low ones).
std::string hex(std::uint32_t value, std::size_t digits);

// A signed value as the boards send it: two's complement in one byte.
inline std::string signedByteHex(int value) { return hex(static_cast<std::uint32_t>(value) & 0xFF, 2); }

// Control line arguments: a decimal integer, optionally signed.
using simcore::parseDecimal;

// Control line arguments: hex of either case, 1 to `maxDigits` digits.
bool hexControlArg(const std::string& text, std::size_t maxDigits, int& value);

// Splits a control line's arguments at spaces.
std::vector<std::string> words(const std::string& args);

// A temperature sensor and the extremes it has read, kept by the board.
struct Temperature {
    int now;
    int min;
    int max;

    void set(int degrees)
    {
        now = degrees;
        min = std::min(min, degrees);
        max = std::max(max, degrees);
    }
    std::string reading() const { return signedByteHex(now); }
    // The answer to a min/max query: the lowest, then the highest.
    std::string extremes() const { return signedByteHex(min) + signedByteHex(max); }
};

// The state a board shows to "check B FIELD VALUE", each field as text.
using StateFields = std::map<std::string, std::string>;

// "check B FIELD VALUE" (VALUE may hold spaces, and may be empty): succeeds
// when the board's FIELD reads exactly VALUE, else says what it reads.
bool checkState(const StateFields& state, const std::string& args, std::string& error);

// One hex digit of LED state (two bits per LED), acknowledged; a change is
// reported as the event l<digit>.
bool setLedState(const std::string& arg, int& state, Replier& out);

// A board whose commands are one letter and an argument, and which answers
// the driver's "check" lines.
class LetterBoard : public Personality {
public:
    using Personality::Personality;

    // Takes "check"; a board's own verbs come first, in its override.
    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override;

protected:
    bool command(const std::string& line, Replier& out) final { return letterCommand(line[0], line.substr(1), out); }

    // One command: its letter and what follows. False has it refused.
    virtual bool letterCommand(char letter, const std::string& arg, Replier& out) = 0;

    // Compares the board's state(), field by field, unless a board checks
    // differently.
    virtual bool check(const std::string& args, std::string& error) const;
    virtual StateFields state() const { return {}; }

    // Refuses a control line, saying why.
    static bool fail(std::string& error, const std::string& why)
    {
        error = why;
        return false;
    }
    // Answers `payload` if `valid`; returns `valid`, so that a false refuses.
    static bool answer(bool valid, const std::string& payload, Replier& out)
    {
        if (valid)
            out.data(payload);
        return valid;
    }
    // Acknowledges if `valid`; returns `valid`.
    static bool accept(bool valid, Replier& out)
    {
        if (valid)
            out.ok();
        return valid;
    }
    static bool setFlag(const std::string& arg, bool& field, Replier& out) { return accept(flagArg(arg, field), out); }
    // Exactly `digits` hex digits, at most `max`, into `field`.
    template <class T>
    static bool setHex(const std::string& arg, std::size_t digits, T max, T& field, Replier& out)
    {
        T v = 0;
        if (!hexArg(arg, digits, v) || v > max)
            return false;
        field = v;
        out.ok();
        return true;
    }
};

} // namespace serial
} // namespace boardsim
