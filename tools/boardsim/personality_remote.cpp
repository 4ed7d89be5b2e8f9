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

using serial::hex;

constexpr int kTouchChannels = 10;

class RemotePersonality : public serial::LetterBoard {
public:
    explicit RemotePersonality(BoardInfo info) : LetterBoard(std::move(info)) {}

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
            if (w.size() != 1 || !serial::hexControlArg(w[0], 4, v))
                return fail(error, verb + " needs a hex value of up to 4 digits");
            out.event((verb == "key" ? "k" : "r") + hex(v, verb == "key" ? 4 : 2));
            return true;
        }
        if (verb == "encoder") {
            if (w.size() != 1 || !serial::parseDecimal(w[0], -128, 127, v))
                return fail(error, "encoder needs steps -128..127");
            out.event("e" + serial::signedByteHex(v));
            return true;
        }
        if (verb == "debug") {
            out.event("d" + args);
            return true;
        }
        if (verb == "busy") {
            if (!serial::choiceArg(w, "on", "off", busy_))
                return fail(error, "busy needs on or off");
            return true;
        }
        return LetterBoard::control(verb, args, out, error);
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
    bool letterCommand(char letter, const std::string& arg, Replier& out) override
    {
        switch (letter) {
        case 'C':
        case 'R':
            return setHex(arg, 1, 0xF, letter == 'C' ? contrast_ : ring_, out);
        case 'E':
        case 'I':
            return answer(arg.empty(), hex(letter == 'E' ? contrast_ : ring_, 1), out);
        case 'F':
            return setHex(arg, 2, 0xFF, colour_, out);
        case 'P':
        case 'Q':
            return setFlag(arg, letter == 'P' ? ambient_ : touchEvents_, out);
        case 'G': {
            std::vector<std::uint8_t> bytes;
            if (arg.empty() || !serial::hexBytes(arg, bytes))
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

    serial::StateFields state() const override
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

private:
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
