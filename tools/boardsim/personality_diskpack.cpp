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

using serial::flagArg;
using serial::hex;
using serial::hexArg;

constexpr std::size_t kTextLength = 40;
constexpr int kPages = 24;

class DiskpackPersonality : public Personality {
public:
    explicit DiskpackPersonality(BoardInfo info) : Personality(std::move(info)) { resetEeprom(); }

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        const auto w = serial::words(args);
        int v = 0;
        if (verb == "button") {
            if (w.size() != 1 || !serial::hexControlArg(w[0], 4, v)) {
                error = "button needs a hex code";
                return false;
            }
            out.event("b" + hex(v, w[0].size() > 2 ? 4 : 2));
            return true;
        }
        if (verb == "temp") {
            if (w.size() != 1 || !serial::decimalArg(w[0], -128, 127, v)) {
                error = "temp needs degrees -128..127";
                return false;
            }
            setTemperature(v);
            if (temperatureEvents_)
                out.event(temperatureEvent());
            return true;
        }
        if (verb == "hours") {
            if (w.size() != 1 || !serial::decimalArg(w[0], 0, 0xFFFF, v)) {
                error = "hours needs 0..65535";
                return false;
            }
            hours_ = v;
            return true;
        }
        if (verb == "check")
            return serial::checkState(state(), args, error);
        return Personality::control(verb, args, out, error);
    }

protected:
    bool command(const std::string& line, Replier& out) override
    {
        const char letter = line[0];
        const std::string arg = line.substr(1);
        int v = 0;
        bool on = false;
        switch (letter) {
        case 'L':
            if (!hexArg(arg, 2, v))
                return false;
            setLed(v, out);
            return true;
        case 'A':
            if (!flagArg(arg, on))
                return false;
            monitorActivity_ = on;
            out.ok();
            return true;
        case 'X':
            if (!flagArg(arg, on))
                return false;
            writeProtect_ = on;
            out.ok();
            return true;
        case 'Y':
            if (!arg.empty())
                return false;
            out.data(writeProtect_ ? "1" : "0");
            return true;
        case 'D':
            if (arg.size() > kTextLength)
                return false;
            display_ = arg;
            out.ok();
            return true;
        case 'B':
            if (!hexArg(arg, 2, v))
                return false;
            displayDrive_ = v;
            out.ok();
            return true;
        case 'S':
            if (!flagArg(arg, on))
                return false;
            scsiIdMsb_ = on;
            out.ok();
            return true;
        case 'V':
            if (!arg.empty())
                return false;
            out.data(hex(batteryRaw_, 2));
            return true;
        case 'T':
            if (!flagArg(arg, on))
                return false;
            temperatureEvents_ = on;
            out.ok();
            return true;
        case 'P':
            if (!hexArg(arg, 2, v) || v >= kPages)
                return false;
            page_ = v;
            out.ok();
            return true;
        case 'W':
            if (arg.size() > kTextLength)
                return false;
            pages_[static_cast<std::size_t>(page_)] = arg;
            out.ok();
            return true;
        case 'R':
            if (!arg.empty())
                return false;
            out.data(pages_[static_cast<std::size_t>(page_)]);
            return true;
        case 'Q':
            if (!hexArg(arg, 2, v) || v >= kPages)
                return false;
            numPages_ = v;
            out.ok();
            return true;
        case 'O':
            if (!arg.empty())
                return false;
            out.data(hex(hours_, 4));
            return true;
        case 'M':
            if (!arg.empty())
                return false;
            out.data(serial::signedByteHex(minTemp_) + serial::signedByteHex(maxTemp_));
            return true;
        case 'U':
            if (!arg.empty())
                return false;
            out.data("{6B29FC40-CA47-1067-B31D-00DD010662D" + std::to_string(info().id) + "}");
            return true;
        case 'C':
        case 'Z':
            if (!arg.empty())
                return false;
            if (letter == 'Z')
                resetEeprom();
            out.ok();
            return true;
        case 'I':
            if (!arg.empty())
                return false;
            out.data("0");
            return true;
        case 'E':
            if (!hexArg(arg, 1, v) || v > 1)
                return false;
            out.data("5000C5000000" + hex(info().id, 2) + hex(v, 2));
            return true;
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

private:
    serial::StateFields state() const
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

    bool ledLit() const { return (led_ & 0x3F) != 0; }

    void setLed(int value, Replier& out)
    {
        const bool was = ledLit();
        led_ = value;
        out.ok();
        if (ledLit() != was)
            out.event(ledLit() ? "l1" : "l0");
    }

    void setTemperature(int degrees)
    {
        temperature_ = degrees;
        if (degrees < minTemp_)
            minTemp_ = degrees;
        if (degrees > maxTemp_)
            maxTemp_ = degrees;
    }

    std::string temperatureEvent() const { return "t" + serial::signedByteHex(temperature_); }

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
        minTemp_ = maxTemp_ = temperature_;
    }

    int led_ = 0;
    bool monitorActivity_ = false;
    bool writeProtect_ = false;
    std::string display_;
    int displayDrive_ = 200;
    bool scsiIdMsb_ = false;
    int batteryRaw_ = 150; // 3.0 V
    bool temperatureEvents_ = false;
    int temperature_ = 25;
    int minTemp_ = 25, maxTemp_ = 25;
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
