// The chassis controller of a four-bay enclosure.
//
// Commands: V<2 hex> volume 0..31, R<2 hex> display brightness 0..15,
// I<0|1> inverter, A B C D<2 hex> control byte of bay 0..3 (fan speed bits
// 0-5, locked bit 6, powered bit 7; a powered but unlocked pack is refused),
// L<2 hex> LED state 0..31, T reset the shuttle, W commit the settings to the
// EEPROM. Not on firmware V1.00: F<2 hex> colour, P<0|1> ambient mode,
// S<0|1> screen saver. Only from V2.5 on (the first four characters of the
// version compared as text): H<digit> bay 0 or 1 connected (R<digit>).
//
// Events: a..d<digit> bay 0..3 (bit 0 present, bit 1 locked), sent when a
// pack comes or goes or the lock changes; e DVD eject button; v<2 hex>
// volume and r<2 hex> brightness, sent when the knobs are turned; s<2 hex>
// shuttle position (signed); t<2 hex> button code.
//
// Control lines: insert B BAY, eject B BAY, dvd B, volume B N, brightness B N,
// shuttle B N (-128..127), button B HEX, connect B BAY 0|1, check B FIELD
// VALUE with FIELD one of bay0..bay3 (the control byte in hex), volume
// brightness inverter led colour ambient screensaver shuttle commits.
#include <array>
#include <cstring>

#include "boardsim/personality_serial.h"

namespace boardsim {
namespace {

using serial::flagArg;
using serial::hex;
using serial::hexArg;

constexpr int kBays = 4;
constexpr int kLocked = 0x40;
constexpr int kPowered = 0x80;

class ChassisPersonality : public serial::LetterBoard {
public:
    explicit ChassisPersonality(BoardInfo info) : LetterBoard(std::move(info)) {}

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        const auto w = serial::words(args);
        int v = 0;
        if (verb == "insert" || verb == "eject") {
            if (w.size() != 1 || !serial::parseDecimal(w[0], 0, kBays - 1, v))
                return fail(error, verb + " needs a bay 0..3");
            present_[static_cast<std::size_t>(v)] = verb == "insert";
            out.event(bayEvent(v));
            return true;
        }
        if (verb == "dvd") {
            if (!w.empty())
                return fail(error, "dvd takes only a board");
            out.event("e");
            return true;
        }
        if (verb == "volume" || verb == "brightness") {
            const int max = verb == "volume" ? 31 : 15;
            if (w.size() != 1 || !serial::parseDecimal(w[0], 0, max, v))
                return fail(error, verb + " needs 0.." + std::to_string(max));
            (verb == "volume" ? volume_ : brightness_) = v;
            out.event((verb == "volume" ? "v" : "r") + hex(v, 2));
            return true;
        }
        if (verb == "shuttle") {
            if (w.size() != 1 || !serial::parseDecimal(w[0], -128, 127, v))
                return fail(error, "shuttle needs -128..127");
            shuttle_ = v;
            out.event("s" + serial::signedByteHex(v));
            return true;
        }
        if (verb == "button") {
            if (w.size() != 1 || !serial::hexControlArg(w[0], 2, v))
                return fail(error, "button needs a hex code 00..FF");
            out.event("t" + hex(v, 2));
            return true;
        }
        if (verb == "connect") {
            bool on = false;
            if (w.size() != 2 || !serial::parseDecimal(w[0], 0, 1, v) || !flagArg(w[1], on))
                return fail(error, "connect needs a bay 0..1 and 0 or 1");
            connected_[static_cast<std::size_t>(v)] = on;
            return true;
        }
        return LetterBoard::control(verb, args, out, error);
    }

protected:
    bool letterCommand(char letter, const std::string& arg, Replier& out) override
    {
        int v = 0;
        switch (letter) {
        case 'V':
            return setHex(arg, 2, 31, volume_, out);
        case 'R':
            return setHex(arg, 2, 15, brightness_, out);
        case 'L':
            return setHex(arg, 2, 31, led_, out);
        case 'I':
            return setFlag(arg, inverter_, out);
        case 'A':
        case 'B':
        case 'C':
        case 'D':
            if (!hexArg(arg, 2, v) || ((v & kPowered) && !(v & kLocked)))
                return false;
            setBay(letter - 'A', v, out);
            return true;
        case 'T':
            if (arg.empty())
                shuttle_ = 0;
            return accept(arg.empty(), out);
        case 'W':
            if (arg.empty())
                ++commits_;
            return accept(arg.empty(), out);
        case 'F':
            return !firstFirmware() && setHex(arg, 2, 0xFF, colour_, out);
        case 'P':
            return !firstFirmware() && setFlag(arg, ambient_, out);
        case 'S':
            return !firstFirmware() && setFlag(arg, screenSaver_, out);
        case 'H':
            if (!knowsConnection() || !hexArg(arg, 1, v) || v > 1)
                return false;
            out.data(connected_[static_cast<std::size_t>(v)] ? "1" : "0");
            return true;
        default:
            return false;
        }
    }

    void synchronise(Replier& out) override
    {
        for (int bay = 0; bay < kBays; ++bay)
            out.event(bayEvent(bay));
        out.event("v" + hex(volume_, 2));
        out.event("r" + hex(brightness_, 2));
    }

    serial::StateFields state() const override
    {
        serial::StateFields s{{"volume", std::to_string(volume_)},
                              {"brightness", std::to_string(brightness_)},
                              {"inverter", inverter_ ? "1" : "0"},
                              {"led", hex(led_, 2)},
                              {"colour", hex(colour_, 2)},
                              {"ambient", ambient_ ? "1" : "0"},
                              {"screensaver", screenSaver_ ? "1" : "0"},
                              {"shuttle", std::to_string(shuttle_)},
                              {"commits", std::to_string(commits_)}};
        for (int bay = 0; bay < kBays; ++bay)
            s["bay" + std::to_string(bay)] = hex(control_[static_cast<std::size_t>(bay)], 2);
        return s;
    }

private:
    bool firstFirmware() const { return info().version == "V1.00"; }
    bool knowsConnection() const { return std::strncmp(info().version.c_str(), "V2.5", 4) >= 0; }

    void setBay(int bay, int value, Replier& out)
    {
        auto& current = control_[static_cast<std::size_t>(bay)];
        const bool lockChanged = ((current ^ value) & kLocked) != 0;
        current = value;
        out.ok();
        if (lockChanged)
            out.event(bayEvent(bay));
    }

    std::string bayEvent(int bay) const
    {
        const auto b = static_cast<std::size_t>(bay);
        const int bits = (present_[b] ? 1 : 0) | ((control_[b] & kLocked) ? 2 : 0);
        return std::string(1, static_cast<char>('a' + bay)) + hex(bits, 1);
    }

    std::array<int, kBays> control_{};
    std::array<bool, kBays> present_{};
    std::array<bool, 2> connected_{{true, false}};
    int volume_ = 16;
    int brightness_ = 8;
    bool inverter_ = false;
    int led_ = 0;
    int colour_ = 0;
    bool ambient_ = false;
    bool screenSaver_ = false;
    int shuttle_ = 0;
    int commits_ = 0;
};

} // namespace

std::unique_ptr<Personality> makeChassisPersonality(const BoardInfo& info)
{
    return std::make_unique<ChassisPersonality>(info);
}

} // namespace boardsim
