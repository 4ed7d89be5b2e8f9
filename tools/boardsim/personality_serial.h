// Shared pieces of the chassis, diskpack, remote control and transfer station
// personalities: the argument forms their commands take on the wire and the
// factories that makePersonality() calls.
//
// The boards read hex digits in upper case only. The product always writes
// them that way, so a board that accepted lower case would hide a regression.
#pragma once

#include <map>
#include <memory>
#include <vector>
#include <string>

#include "boardsim/personality.h"

namespace boardsim {

std::unique_ptr<Personality> makeChassisPersonality(const BoardInfo& info);
std::unique_ptr<Personality> makeDiskpackPersonality(const BoardInfo& info);
std::unique_ptr<Personality> makeRemotePersonality(const BoardInfo& info);
std::unique_ptr<Personality> makeTransferPersonality(const BoardInfo& info);

// The control lines these boards understand, for --help.
std::string serialBoardControlHelp();

namespace serial {

// The value of `text` if it is exactly `digits` upper-case hex digits.
inline bool hexArg(const std::string& text, std::size_t digits, int& value)
{
    if (text.size() != digits || digits == 0 || digits > 7)
        return false;
    int v = 0;
    for (char c : text) {
        if (c >= '0' && c <= '9')
            v = v * 16 + (c - '0');
        else if (c >= 'A' && c <= 'F')
            v = v * 16 + (c - 'A' + 10);
        else
            return false;
    }
    value = v;
    return true;
}

// A one-digit switch: "0" or "1".
inline bool flagArg(const std::string& text, bool& on)
{
    if (text != "0" && text != "1")
        return false;
    on = text == "1";
    return true;
}

// `value` as `digits` upper-case hex digits (the low ones).
inline std::string hex(int value, int digits)
{
    static const char kDigits[] = "0123456789ABCDEF";
    std::string s(static_cast<std::size_t>(digits), '0');
    for (int i = digits - 1; i >= 0; --i) {
        s[static_cast<std::size_t>(i)] = kDigits[value & 15];
        value >>= 4;
    }
    return s;
}

// A signed value as the boards send it: two's complement in one byte.
inline std::string signedByteHex(int value) { return hex(value & 0xFF, 2); }

// Control line arguments: a decimal integer, optionally signed.
inline bool decimalArg(const std::string& text, long lo, long hi, int& value)
{
    if (text.empty() || text.size() > 11)
        return false;
    std::size_t i = (text[0] == '-' || text[0] == '+') ? 1 : 0;
    if (i == text.size())
        return false;
    long v = 0;
    for (; i < text.size(); ++i) {
        if (text[i] < '0' || text[i] > '9')
            return false;
        v = v * 10 + (text[i] - '0');
    }
    if (text[0] == '-')
        v = -v;
    if (v < lo || v > hi)
        return false;
    value = static_cast<int>(v);
    return true;
}

// Control line arguments: hex of either case, 1 to `maxDigits` digits.
inline bool hexControlArg(const std::string& text, std::size_t maxDigits, int& value)
{
    if (text.empty() || text.size() > maxDigits)
        return false;
    std::string upper;
    for (char c : text)
        upper += (c >= 'a' && c <= 'f') ? static_cast<char>(c - 'a' + 'A') : c;
    return hexArg(upper, upper.size(), value);
}

// Splits a control line's arguments at single spaces.
inline std::vector<std::string> words(const std::string& args)
{
    std::vector<std::string> out;
    std::size_t start = 0;
    while (start <= args.size()) {
        const auto end = args.find(' ', start);
        const std::string w = args.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (!w.empty())
            out.push_back(w);
        if (end == std::string::npos)
            break;
        start = end + 1;
    }
    return out;
}

// The state a board shows to "check B FIELD VALUE", each field as text.
using StateFields = std::map<std::string, std::string>;

// "check B FIELD VALUE" (VALUE may hold spaces, and may be empty): succeeds
// when the board's FIELD reads exactly VALUE, else says what it reads.
inline bool checkState(const StateFields& state, const std::string& args, std::string& error)
{
    const auto space = args.find(' ');
    const std::string field = args.substr(0, space);
    const std::string expected = space == std::string::npos ? std::string() : args.substr(space + 1);
    const auto it = state.find(field);
    if (field.empty() || it == state.end()) {
        error = "check: no field '" + field + "'; fields:";
        for (const auto& kv : state)
            error += " " + kv.first;
        return false;
    }
    if (it->second != expected) {
        error = field + " is '" + it->second + "'";
        return false;
    }
    return true;
}

} // namespace serial
} // namespace boardsim
