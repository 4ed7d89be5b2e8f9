// The hand-held remote control with a graphic display and a touch ring.
//
// Commands: C<hex> contrast, E read it (R<hex>), R<hex> ring brightness,
// I read it (R<hex>), F<2 hex> colour, P<0|1> ambient mode, Q<0|1> touch
// sensor events, G<hex pairs> one graphics command (at least one byte),
// M<text> boot message. "@" doubles as the readiness poll: it answers the id,
// and R1 instead while the display is busy.
//
// Events: k<hex> keys, r<hex> rotor, e<2 hex> encoder steps (signed),
// d<text> debug text, and while touch events are on, every 250 ms a
// q line of ten 4-digit signal values followed by an f line of ten
// reference values.
//
// Control lines: key B HEX, rotor B HEX, encoder B STEPS (-128..127),
// debug B TEXT, busy B on|off, check B FIELD VALUE with FIELD one of
// contrast ring colour ambient qtouch graphics (commands received)
// lastgraphics (hex of the last one) message.
#include <chrono>

#include "boardsim/personality_serial.h"

namespace boardsim {
namespace {

using serial::flagArg;
using serial::hex;
using serial::hexArg;

constexpr int kTouchChannels = 10;

bool decodeGraphics(const std::string& text, std::string& bytes)
{
    if (text.empty() || text.size() % 2 != 0)
        return false;
    bytes.clear();
    for (std::size_t i = 0; i < text.size(); i += 2) {
        int v = 0;
        if (!hexArg(text.substr(i, 2), 2, v))
            return false;
        bytes += static_cast<char>(v);
    }
    return true;
}

class RemotePersonality : public Personality {
public:
    explicit RemotePersonality(BoardInfo info) : Personality(std::move(info)) {}

    void handle(const std::string& line, Replier& out) override
    {
        if (line == "@" && busy_) {
            out.data("1");
            return;
        }
        Personality::handle(line, out);
    }

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        const auto w = serial::words(args);
        int v = 0;
        if (verb == "key" || verb == "rotor") {
            if (w.size() != 1 || !serial::hexControlArg(w[0], 4, v)) {
                error = verb + " needs a hex value of up to 4 digits";
                return false;
            }
            out.event((verb == "key" ? "k" : "r") + hex(v, verb == "key" ? 4 : 2));
            return true;
        }
        if (verb == "encoder") {
            if (w.size() != 1 || !serial::decimalArg(w[0], -128, 127, v)) {
                error = "encoder needs steps -128..127";
                return false;
            }
            out.event("e" + serial::signedByteHex(v));
            return true;
        }
        if (verb == "debug") {
            out.event("d" + args);
            return true;
        }
        if (verb == "busy") {
            if (w.size() != 1 || (w[0] != "on" && w[0] != "off")) {
                error = "busy needs on or off";
                return false;
            }
            busy_ = w[0] == "on";
            return true;
        }
        if (verb == "check")
            return serial::checkState(state(), args, error);
        return Personality::control(verb, args, out, error);
    }

    std::chrono::milliseconds tickInterval() const override { return std::chrono::milliseconds(250); }

    void tick(Replier& out) override
    {
        if (!touchEvents_)
            return;
        // A slowly breathing signal over a steady reference, so successive
        // reports differ as a real sensor's do.
        ++touchPhase_;
        std::string signal = "q", reference = "f";
        for (int ch = 0; ch < kTouchChannels; ++ch) {
            signal += hex(0x200 + ch * 16 + (touchPhase_ + ch) % 8, 4);
            reference += hex(0x200 + ch * 16, 4);
        }
        out.event(signal);
        out.event(reference);
    }

protected:
    bool command(const std::string& line, Replier& out) override
    {
        const char letter = line[0];
        const std::string arg = line.substr(1);
        int v = 0;
        bool on = false;
        switch (letter) {
        case 'C':
        case 'R':
            if (!hexArg(arg, 1, v))
                return false;
            (letter == 'C' ? contrast_ : ring_) = v;
            out.ok();
            return true;
        case 'E':
        case 'I':
            if (!arg.empty())
                return false;
            out.data(hex(letter == 'E' ? contrast_ : ring_, 1));
            return true;
        case 'F':
            if (!hexArg(arg, 2, v))
                return false;
            colour_ = v;
            out.ok();
            return true;
        case 'P':
        case 'Q':
            if (!flagArg(arg, on))
                return false;
            (letter == 'P' ? ambient_ : touchEvents_) = on;
            out.ok();
            return true;
        case 'G': {
            std::string bytes;
            if (!decodeGraphics(arg, bytes))
                return false;
            ++graphics_;
            lastGraphics_ = arg;
            out.ok();
            return true;
        }
        case 'M':
            message_ = arg;
            out.ok();
            return true;
        default:
            return false;
        }
    }

private:
    serial::StateFields state() const
    {
        return {{"contrast", std::to_string(contrast_)},
                {"ring", std::to_string(ring_)},
                {"colour", hex(colour_, 2)},
                {"ambient", ambient_ ? "1" : "0"},
                {"qtouch", touchEvents_ ? "1" : "0"},
                {"graphics", std::to_string(graphics_)},
                {"lastgraphics", lastGraphics_},
                {"message", message_}};
    }

    int contrast_ = 8;
    int ring_ = 4;
    int colour_ = 0;
    bool ambient_ = false;
    bool touchEvents_ = false;
    bool busy_ = false;
    int graphics_ = 0;
    std::string lastGraphics_;
    std::string message_;
    int touchPhase_ = 0;
};

} // namespace

std::unique_ptr<Personality> makeRemotePersonality(const BoardInfo& info)
{
    return std::make_unique<RemotePersonality>(info);
}

} // namespace boardsim
