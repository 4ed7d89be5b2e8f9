// The controller board inside a removable diskpack.
//
// Commands: L<2 hex> LED byte (flash bits 6-7, red 4-5, green 2-3, blue 0-1),
// A<0|1> disk activity monitor, X<0|1> write protect, Y read it (R<digit>),
// D<text> display text (up to 40 characters), B<2 hex> display drive,
// S<0|1> SCSI id MSB, V battery (R<2 hex>, 20 mV units), T<0|1> temperature
// events, P<2 hex> select text page 0..23, W<text> write the selected page,
// R read it, Q<2 hex> number of pages 0..23, O operating hours (R<4 hex>),
// M min/max temperature (R<4 hex>: min high byte, max low byte, signed),
// U GUID, C prepare closedown, I parallel SCSI type (R<digit>), E<digit> SAS
// address of port 0 or 1, Z reset the EEPROM, G<2 hex> backplane rail
// (group high nibble 0..1, rail low nibble 0..3; R<4 hex> millivolts).
//
// Events: b<hex> button code, t<2 hex> temperature (signed, only while
// enabled), l<digit> LED lit or dark, sent whenever that changes.
//
// Control lines: button B HEX (b event), temp B DEGREES (sets the
// temperature, t event while enabled), hours B N, check B FIELD VALUE with
// FIELD one of led activity writeprotect display drive scsimsb tempevents
// page numpages.
#include <array>
#include <cstdint>

#include "boardsim/personality_serial.h"

namespace boardsim {
namespace {

using serial::hex;
using serial::hexArg;

constexpr std::size_t kTextLength = 40;
constexpr int kPages = 24;

class DiskpackPersonality : public serial::LetterBoard {
public:
    explicit DiskpackPersonality(BoardInfo info) : LetterBoard(std::move(info)) { resetEeprom(); }

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        const auto w = serial::words(args);
        int v = 0;
        if (verb == "button") {
            if (w.size() != 1 || !serial::hexControlArg(w[0], 4, v))
                return fail(error, "button needs a hex code");
            out.event("b" + hex(v, w[0].size() > 2 ? 4 : 2));
            return true;
        }
        if (verb == "temp") {
            if (w.size() != 1 || !serial::parseDecimal(w[0], -128, 127, v))
                return fail(error, "temp needs degrees -128..127");
            temperature_.set(v);
            if (temperatureEvents_)
                out.event(temperatureEvent());
            return true;
        }
        if (verb == "hours") {
            if (w.size() != 1 || !serial::parseDecimal(w[0], 0, 0xFFFF, v))
                return fail(error, "hours needs 0..65535");
            hours_ = v;
            return true;
        }
        return LetterBoard::control(verb, args, out, error);
    }

protected:
    bool letterCommand(char letter, const std::string& arg, Replier& out) override
    {
        const bool noArg = arg.empty();
        switch (letter) {
        case 'L':
            return setLed(arg, out);
        case 'A':
            return setFlag(arg, monitorActivity_, out);
        case 'X':
            return setFlag(arg, writeProtect_, out);
        case 'Y':
            return answer(noArg, writeProtect_ ? "1" : "0", out);
        case 'D':
            return setText(arg, display_, out);
        case 'B':
            return setHex(arg, 2, 0xFF, displayDrive_, out);
        case 'S':
            return setFlag(arg, scsiIdMsb_, out);
        case 'V':
            return answer(noArg, hex(batteryRaw_, 2), out);
        case 'T':
            return setFlag(arg, temperatureEvents_, out);
        case 'P':
            return setHex(arg, 2, kPages - 1, page_, out);
        case 'W':
            return setText(arg, pages_[static_cast<std::size_t>(page_)], out);
        case 'R':
            return answer(noArg, pages_[static_cast<std::size_t>(page_)], out);
        case 'Q':
            return setHex(arg, 2, kPages - 1, numPages_, out);
        case 'O':
            return answer(noArg, hex(hours_, 4), out);
        case 'M':
            return answer(noArg, temperature_.extremes(), out);
        case 'U':
            return answer(noArg, "{6B29FC40-CA47-1067-B31D-00DD010662D" + std::to_string(info().id) + "}", out);
        case 'C':
            return accept(noArg, out);
        case 'Z':
            if (noArg)
                resetEeprom();
            return accept(noArg, out);
        case 'I':
            return answer(noArg, "0", out);
        case 'E':
            return sasAddress(arg, out);
        case 'G':
            return rail(arg, out);
        default:
            return false;
        }
    }

    void synchronise(Replier& out) override
    {
        out.event(ledLit() ? "l1" : "l0");
        if (temperatureEvents_)
            out.event(temperatureEvent());
    }

    serial::StateFields state() const override
    {
        return {{"led", hex(led_, 2)},
                {"activity", monitorActivity_ ? "1" : "0"},
                {"writeprotect", writeProtect_ ? "1" : "0"},
                {"display", display_},
                {"drive", hex(displayDrive_, 2)},
                {"scsimsb", scsiIdMsb_ ? "1" : "0"},
                {"tempevents", temperatureEvents_ ? "1" : "0"},
                {"page", std::to_string(page_)},
                {"numpages", std::to_string(numPages_)}};
    }

private:
    bool ledLit() const { return (led_ & 0x3F) != 0; }

    bool setLed(const std::string& arg, Replier& out)
    {
        const bool was = ledLit();
        if (!setHex(arg, 2, 0xFF, led_, out))
            return false;
        if (ledLit() != was)
            out.event(ledLit() ? "l1" : "l0");
        return true;
    }

    static bool setText(const std::string& arg, std::string& field, Replier& out)
    {
        if (arg.size() > kTextLength)
            return false;
        field = arg;
        out.ok();
        return true;
    }

    std::string temperatureEvent() const { return "t" + temperature_.reading(); }

    bool sasAddress(const std::string& arg, Replier& out) const
    {
        int port = 0;
        if (!hexArg(arg, 1, port) || port > 1)
            return false;
        out.data("5000C5000000" + hex(info().id, 2) + hex(port, 2));
        return true;
    }

    bool rail(const std::string& arg, Replier& out)
    {
        // Group 0 is the pack's own supply, group 1 what the backplane feeds it.
        static const int kRails[2][4] = {{5000, 3300, 1800, 1200}, {12000, 5000, 3300, 0}};
        int selector = 0;
        if (!hexArg(arg, 2, selector))
            return false;
        const int group = selector >> 4, railNo = selector & 15;
        if (group > 1 || railNo > 3)
            return false;
        out.data(hex(kRails[group][railNo], 4));
        return true;
    }

    void resetEeprom()
    {
        for (auto& p : pages_)
            p.clear();
        numPages_ = 0;
        page_ = 0;
        temperature_.min = temperature_.max = temperature_.now;
    }

    int led_ = 0;
    bool monitorActivity_ = false;
    bool writeProtect_ = false;
    std::string display_;
    int displayDrive_ = 200;
    bool scsiIdMsb_ = false;
    int batteryRaw_ = 150; // 3.0 V
    bool temperatureEvents_ = false;
    serial::Temperature temperature_{25, 25, 25};
    int hours_ = 1234;
    std::array<std::string, kPages> pages_;
    int page_ = 0;
    int numPages_ = 0;
};

} // namespace

std::unique_ptr<Personality> makeDiskpackPersonality(const BoardInfo& info)
{
    return std::make_unique<DiskpackPersonality>(info);
}

} // namespace boardsim
