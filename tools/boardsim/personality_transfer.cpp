// The transfer station controller.
//
// Commands: Z reset the EEPROM, V battery (R<2 hex>, 200 mV units), B battery
// capacity (R<2 hex> percent), C battery current (R<4 hex>, 10 mA units,
// FFFF when unknown), F<2 hex> fan speed, W<digit> fan PWM frequency 0..5,
// I diskpack id (R<digit>), U diskpack GUID, X<2 hex> write protect (high
// digit 0 diskpack or 1 internal disks, low digit 0 or 1), Y<digit> read it
// (R<digit>), P<0|1> diskpack temperature events, O operating hours
// (R<4 hex>), M min/max temperature (R<4 hex>, signed bytes), L<hex> LED
// state (bits 0-1 LED 0, 2-3 LED 1), D<hex> power 0..7 (bit 0 diskpack,
// 1 internal disks, 2 tape), E<digit> SAS address of port 0..3, S<port>
// [16 hex] set a port's SAS address or with the port alone restore its own,
// N fitted devices (R<2 hex>: disks in bits 0-3, tape bit 4), R<2 hex> set
// them. The diskpack commands I and U are refused while no pack is in.
//
// Events: p<2 hex> diskpack temperature (signed, while enabled and a pack is
// in), d<digit> door open, i<digit> diskpack present, l<hex> LED state,
// sent whenever it changes.
//
// Control lines: insert B, eject B, door B open|closed, temp B DEGREES,
// check B FIELD VALUE with FIELD one of fan pwm led power wpdiskpack
// wpinternal tempevents sas0..sas3 fitted.
#include <array>

#include "boardsim/personality_serial.h"

namespace boardsim {
namespace {

using serial::hex;
using serial::hexArg;

constexpr int kPorts = 4;

class TransferPersonality : public serial::LetterBoard {
public:
    explicit TransferPersonality(BoardInfo info) : LetterBoard(std::move(info)) { restoreSasAddresses(); }

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        const auto w = serial::words(args);
        if (verb == "insert" || verb == "eject") {
            if (!w.empty())
                return fail(error, verb + " takes only a board");
            packPresent_ = verb == "insert";
            out.event(packPresent_ ? "i1" : "i0");
            return true;
        }
        if (verb == "door") {
            if (!serial::choiceArg(w, "open", "closed", doorOpen_))
                return fail(error, "door needs open or closed");
            out.event(doorOpen_ ? "d1" : "d0");
            return true;
        }
        if (verb == "temp") {
            int v = 0;
            if (w.size() != 1 || !serial::parseDecimal(w[0], -128, 127, v))
                return fail(error, "temp needs degrees -128..127");
            temperature_.set(v);
            if (temperatureEvents_ && packPresent_)
                out.event(temperatureEvent());
            return true;
        }
        return LetterBoard::control(verb, args, out, error);
    }

protected:
    bool letterCommand(char letter, const std::string& arg, Replier& out) override
    {
        int v = 0;
        const bool noArg = arg.empty();
        switch (letter) {
        case 'Z':
            if (noArg) {
                restoreSasAddresses();
                fitted_ = 0x12;
            }
            return accept(noArg, out);
        case 'V':
            return answer(noArg, hex(60, 2), out); // 12.0 V
        case 'B':
            return answer(noArg, hex(87, 2), out);
        case 'C':
            return answer(noArg, hex(current_, 4), out);
        case 'F':
            return setHex(arg, 2, 0xFF, fan_, out);
        case 'W':
            return setHex(arg, 1, 5, pwm_, out);
        case 'I':
            return answer(noArg && packPresent_, hex(3, 1), out);
        case 'U':
            return answer(noArg && packPresent_, "{0F1E2D3C-4B5A-6978-8796-A5B4C3D2E1F0}", out);
        case 'X':
            if (!hexArg(arg, 2, v) || (v >> 4) > 1 || (v & 15) > 1)
                return false;
            ((v >> 4) == 0 ? wpDiskpack_ : wpInternal_) = (v & 1) != 0;
            out.ok();
            return true;
        case 'Y':
            if (!hexArg(arg, 1, v) || v > 1)
                return false;
            out.data((v == 0 ? wpDiskpack_ : wpInternal_) ? "1" : "0");
            return true;
        case 'P':
            return setFlag(arg, temperatureEvents_, out);
        case 'O':
            return answer(noArg, hex(4321, 4), out);
        case 'M':
            return answer(noArg, temperature_.extremes(), out);
        case 'L':
            return serial::setLedState(arg, led_, out);
        case 'D':
            return setHex(arg, 1, 7, power_, out);
        case 'E':
            if (!hexArg(arg, 1, v) || v >= kPorts)
                return false;
            out.data(sas_[static_cast<std::size_t>(v)]);
            return true;
        case 'S':
            return setSasAddress(arg, out);
        case 'N':
            return answer(noArg, hex(fitted_, 2), out);
        case 'R':
            return setHex(arg, 2, 0x1F, fitted_, out);
        default:
            return false;
        }
    }

    void synchronise(Replier& out) override
    {
        out.event(doorOpen_ ? "d1" : "d0");
        out.event(packPresent_ ? "i1" : "i0");
        out.event("l" + hex(led_, 1));
        if (temperatureEvents_ && packPresent_)
            out.event(temperatureEvent());
    }

    serial::StateFields state() const override
    {
        serial::StateFields s{{"fan", std::to_string(fan_)},
                              {"pwm", std::to_string(pwm_)},
                              {"led", std::to_string(led_)},
                              {"power", std::to_string(power_)},
                              {"wpdiskpack", wpDiskpack_ ? "1" : "0"},
                              {"wpinternal", wpInternal_ ? "1" : "0"},
                              {"tempevents", temperatureEvents_ ? "1" : "0"},
                              {"fitted", hex(fitted_, 2)}};
        for (int p = 0; p < kPorts; ++p)
            s["sas" + std::to_string(p)] = sas_[static_cast<std::size_t>(p)];
        return s;
    }

private:
    std::string temperatureEvent() const { return "p" + temperature_.reading(); }

    std::string ownSasAddress(int port) const { return "5000C5001234" + hex(info().id, 2) + hex(port * 4, 2); }

    void restoreSasAddresses()
    {
        for (int p = 0; p < kPorts; ++p)
            sas_[static_cast<std::size_t>(p)] = ownSasAddress(p);
    }

    bool setSasAddress(const std::string& arg, Replier& out)
    {
        // One decimal digit of port, then nothing or exactly 16 hex digits.
        if (arg.empty() || arg[0] < '0' || arg[0] >= '0' + kPorts)
            return false;
        const int port = arg[0] - '0';
        const std::string addr = arg.substr(1);
        std::vector<std::uint8_t> bytes;
        if (!addr.empty() && (addr.size() != 16 || !serial::hexBytes(addr, bytes)))
            return false;
        sas_[static_cast<std::size_t>(port)] = addr.empty() ? ownSasAddress(port) : addr;
        out.ok();
        return true;
    }

    bool packPresent_ = false;
    bool doorOpen_ = false;
    bool temperatureEvents_ = false;
    serial::Temperature temperature_{30, 30, 30};
    int current_ = 0xFFFF; // on mains: the board cannot measure it
    int fan_ = 0;
    int pwm_ = 3;
    bool wpDiskpack_ = false;
    bool wpInternal_ = false;
    int led_ = 0;
    int power_ = 0;
    int fitted_ = 0x12;
    std::array<std::string, kPorts> sas_;
};

} // namespace

std::unique_ptr<Personality> makeTransferPersonality(const BoardInfo& info)
{
    return std::make_unique<TransferPersonality>(info);
}

} // namespace boardsim
