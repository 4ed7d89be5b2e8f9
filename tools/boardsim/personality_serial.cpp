#include "boardsim/personality_serial.h"

namespace boardsim {

std::string serialBoardControlHelp()
{
    return "Control lines of the chassis (c):\n"
           "  insert B BAY / eject B BAY    a pack comes into or leaves bay 0..3 (bay event)\n"
           "  dvd B                         the DVD eject button (e)\n"
           "  volume B N, brightness B N    the knobs turned to N (v, r)\n"
           "  shuttle B N                   the shuttle at N, -128..127 (s)\n"
           "  button B HEX                  a button code (t)\n"
           "  connect B BAY 0|1             whether bay 0..1 answers as connected to H\n"
           "Control lines of the diskpack (d):\n"
           "  button B HEX                  a button code (b)\n"
           "  temp B DEGREES                the temperature; t event while T1 is in force\n"
           "  hours B N                     the operating hours counter\n"
           "Control lines of the transfer station (x):\n"
           "  insert B / eject B            the diskpack comes or goes (i)\n"
           "  door B open|closed            the door (d)\n"
           "  temp B DEGREES                the pack's temperature; p event while P1 is in\n"
           "                                force and a pack is in\n"
           "Control lines of the remote control (r):\n"
           "  key B HEX, rotor B HEX        keys and rotor (k, r)\n"
           "  encoder B STEPS               encoder steps, -128..127 (e)\n"
           "  debug B TEXT                  a debug line (d)\n"
           "  busy B on|off                 answer the \"@\" poll with R1 while on\n"
           "  With Q1 the remote sends a q and an f line of touch values every 250 ms.\n"
           "All four: check B FIELD VALUE succeeds when the board's FIELD reads VALUE;\n"
           "  a wrong FIELD lists the fields.\n";
}

namespace serial {

namespace {

int digitValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

} // namespace

bool hexArg(const std::string& text, std::size_t digits, std::uint32_t& value)
{
    if (text.size() != digits || digits == 0 || digits > 8)
        return false;
    std::uint32_t v = 0;
    for (char c : text) {
        const int d = digitValue(c);
        if (d < 0)
            return false;
        v = (v << 4) | static_cast<std::uint32_t>(d);
    }
    value = v;
    return true;
}

bool hexBytes(const std::string& text, std::vector<std::uint8_t>& bytes)
{
    if (text.size() % 2 != 0)
        return false;
    bytes.clear();
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int hi = digitValue(text[i]);
        const int lo = digitValue(text[i + 1]);
        if (hi < 0 || lo < 0)
            return false;
        bytes.push_back(static_cast<std::uint8_t>(hi * 16 + lo));
    }
    return true;
}

std::string hex(std::uint32_t value, std::size_t digits)
{
    static const char kDigits[] = "0123456789ABCDEF";
    std::string s(digits, '0');
    for (std::size_t i = 0; i < digits && i < 8; ++i)
        s[digits - 1 - i] = kDigits[(value >> (4 * i)) & 0xF];
    return s;
}

bool hexControlArg(const std::string& text, std::size_t maxDigits, int& value)
{
    if (text.empty() || text.size() > maxDigits)
        return false;
    std::string upper;
    for (char c : text)
        upper += (c >= 'a' && c <= 'f') ? static_cast<char>(c - 'a' + 'A') : c;
    return hexArg(upper, upper.size(), value);
}

std::vector<std::string> words(const std::string& args)
{
    std::vector<std::string> out;
    std::string word;
    for (char c : args) {
        if (c != ' ') {
            word.push_back(c);
        } else if (!word.empty()) {
            out.push_back(word);
            word.clear();
        }
    }
    if (!word.empty())
        out.push_back(word);
    return out;
}

bool checkState(const StateFields& state, const std::string& args, std::string& error)
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

bool setLedState(const std::string& arg, int& state, Replier& out)
{
    int v = 0;
    if (!hexArg(arg, 1, v))
        return false;
    out.ok();
    if (v != state) {
        state = v;
        out.event("l" + hex(static_cast<std::uint32_t>(v), 1));
    }
    return true;
}

bool LetterBoard::control(const std::string& verb, const std::string& args, Replier& out, std::string& error)
{
    if (verb == "check")
        return check(args, error);
    return Personality::control(verb, args, out, error);
}

bool LetterBoard::check(const std::string& args, std::string& error) const { return checkState(state(), args, error); }

} // namespace serial
} // namespace boardsim
