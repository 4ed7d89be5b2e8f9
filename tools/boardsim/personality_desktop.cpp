// The desktop transfer station (board letter t): one diskpack slot with a
// lever, battery, temperatures, LEDs, and a 12-PHY SAS expander behind "E"
// with 24-bit register addresses and a 320-byte configuration EEPROM.
//
// Commands (anything else, or a wrong number of digits, is refused with N):
//   Z            reset settings (write protect, temperature events, id LED)
//   V            R + 2 digits: battery in 100 mV steps
//   I  U         R + diskpack id (1 digit) / GUID text; N with no diskpack
//   X d  Y0      set / read the diskpack write protect (d is 0 or 1)
//   P d          temperature events off/on
//   O  M         R + 4 digits: operating hours / min and max temperature
//   L h          LED state (one hex digit: two bits per LED); a change is
//                reported as the event l<h>
//   D d          diskpack power; the pack's disks appear on the expander only
//                while it is present and powered
//   H h          identification LED
//   E ...        expander frame (see sas_expander.h), plus
//                  00 BB + 32 bytes  write EEPROM block BB (0..9)  -> OK
//                  01 BB             read EEPROM block BB          -> R + 64 digits
//                A reset (06) loads the expander's SAS address from EEPROM
//                bytes 65..72 when the configuration there is valid (0x51 at
//                byte 64, bytes 64..192 and 193..251 each summing to 0).
//
// Events: i1/i0 diskpack present/absent, v1/v0 lever open/closed, pHH
// temperature (two's complement), l<h> LED state, dTEXT debug text. After "!"
// the board reports i, v and l.
//
// Control lines (B is the board):
//   insert B [DISKS]     a diskpack with DISKS disks (0..4, default 4) arrives
//   eject B              the diskpack leaves
//   lever B open|closed
//   temp B DEGREES       the diskpack's temperature; reported if enabled
//   phyerrors B PHY N    set a PHY's error counter
//   check B KEY VALUE    error unless the state KEY equals VALUE; keys: led,
//                        power, wp, ledid, tempevents, resets, rate.PHY,
//                        errors.PHY, held.PHY
#include "boardsim/personality_sas.h"

#include <array>

#include "boardsim/sas_expander.h"

namespace boardsim {

namespace {

constexpr int kEepromBlocks = 10;
constexpr int kEepromBlockSize = 32;
constexpr int kDiskPhyTop = 11; // disk 0; disk 3 is on PHY 8

bool desktopRateAccepts(std::uint32_t, std::uint32_t after)
{
    // Minimum code in the top byte, maximum in the next: 0x80 1.5 and 0x90
    // 3 Gbit/s. Nothing else in the register.
    const auto code = [](std::uint32_t c) { return c == 0x80 || c == 0x90; };
    return code(after >> 24) && code((after >> 16) & 0xFF) && (after & 0xFFFF) == 0;
}

const SasExpander::Layout kLayout = {
    3,          // addressBytes
    0x040000,   // phyBase
    0x400,      // phyStride
    12,         // numPhys
    0x044,      // status
    0x078,      // attached address
    0x310,      // control
    0x318,      // error count
    0x0A0,      // link rate
    0x80900000, // rate at power-up: 1.5 to 3 Gbit/s
    desktopRateAccepts,
    0x000000,   // expander's own address
    false,      // no UART variant of the reset
};

class DesktopExpander : public SasExpander {
public:
    DesktopExpander() : SasExpander(kLayout, 0x500605B000000000ull) { eeprom_.fill(0xFF); }

protected:
    bool otherFunction(const std::vector<std::uint8_t>& bytes, Replier& out) override
    {
        if (bytes.size() < 2 || bytes[1] >= kEepromBlocks)
            return false;
        const std::size_t at = static_cast<std::size_t>(bytes[1]) * kEepromBlockSize;
        if (bytes[0] == 0x00 && bytes.size() == 2 + kEepromBlockSize) {
            for (int i = 0; i < kEepromBlockSize; ++i)
                eeprom_[at + static_cast<std::size_t>(i)] = bytes[2 + static_cast<std::size_t>(i)];
            out.ok();
            return true;
        }
        if (bytes[0] == 0x01 && bytes.size() == 2) {
            std::string hex;
            for (int i = 0; i < kEepromBlockSize; ++i)
                hex += hexDigits(eeprom_[at + static_cast<std::size_t>(i)], 2);
            out.data(hex);
            return true;
        }
        return false;
    }

    void onReset() override
    {
        const auto sums = [this](int from, int to) {
            unsigned s = 0;
            for (int i = from; i <= to; ++i)
                s += eeprom_[static_cast<std::size_t>(i)];
            return s & 0xFF;
        };
        if (eeprom_[64] != 0x51 || sums(64, 192) != 0 || sums(193, 251) != 0)
            return;
        std::uint64_t a = 0;
        for (int i = 65; i <= 72; ++i)
            a = (a << 8) | eeprom_[static_cast<std::size_t>(i)];
        setAddress(a);
    }

private:
    std::array<std::uint8_t, kEepromBlocks * kEepromBlockSize> eeprom_{};
};

class DesktopPersonality : public Personality {
public:
    explicit DesktopPersonality(BoardInfo info) : Personality(std::move(info)) {}

    std::chrono::milliseconds tickInterval() const override { return std::chrono::milliseconds(2000); }

    void tick(Replier& out) override
    {
        if (tempEvents_ && present_)
            out.event(temperatureEvent());
    }

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        const auto w = splitWords(args);
        long long n = 0;
        if (verb == "insert") {
            long long disks = 4;
            if (w.size() > 1 || (w.size() == 1 && (!parseNumber(w[0], disks) || disks < 0 || disks > 4))) {
                error = "insert takes an optional disk count 0..4";
                return false;
            }
            present_ = true;
            disks_ = static_cast<int>(disks);
            updateDisks();
            out.event("i1");
            return true;
        }
        if (verb == "eject") {
            if (!w.empty()) {
                error = "eject takes only a board";
                return false;
            }
            present_ = false;
            updateDisks();
            out.event("i0");
            return true;
        }
        if (verb == "lever") {
            if (w.size() != 1 || (w[0] != "open" && w[0] != "closed")) {
                error = "lever takes open or closed";
                return false;
            }
            leverOpen_ = w[0] == "open";
            out.event(leverOpen_ ? "v1" : "v0");
            return true;
        }
        if (verb == "temp") {
            if (w.size() != 1 || !parseNumber(w[0], n) || n < -128 || n > 127) {
                error = "temp takes degrees -128..127";
                return false;
            }
            setTemperature(static_cast<int>(n));
            if (tempEvents_ && present_)
                out.event(temperatureEvent());
            return true;
        }
        if (verb == "phyerrors") {
            long long count = 0;
            if (w.size() != 2 || !parseNumber(w[0], n) || n < 0 || n >= expander_.numPhys() ||
                !parseNumber(w[1], count) || count < 0 || count > 0xFFFFFFFFll) {
                error = "phyerrors takes a PHY 0..11 and a count";
                return false;
            }
            expander_.setErrorCount(static_cast<int>(n), static_cast<std::uint32_t>(count));
            return true;
        }
        if (verb == "check")
            return check(w, error);
        return Personality::control(verb, args, out, error);
    }

protected:
    bool command(const std::string& line, Replier& out) override
    {
        const std::string arg = line.substr(1);
        std::uint32_t v = 0;
        const bool flag = parseHexDigits(arg, 1, v) && v <= 1;
        const auto answer = [&out](bool valid, const std::string& payload) {
            if (valid)
                out.data(payload);
            return valid;
        };
        switch (line[0]) {
        case 'Z':
            if (!arg.empty())
                return false;
            writeProtect_ = false;
            tempEvents_ = false;
            ledId_ = 0;
            out.ok();
            return true;
        case 'V':
            return answer(arg.empty(), hexDigits(battery_, 2));
        case 'I':
            return answer(arg.empty() && present_, hexDigits(packId_, 1));
        case 'U':
            return answer(arg.empty() && present_, guid_);
        case 'X':
            if (!flag)
                return false;
            writeProtect_ = v != 0;
            out.ok();
            return true;
        case 'Y':
            return answer(arg == "0", writeProtect_ ? "1" : "0");
        case 'P':
            if (!flag)
                return false;
            tempEvents_ = v != 0;
            out.ok();
            return true;
        case 'O':
            return answer(arg.empty(), hexDigits(hours_, 4));
        case 'M':
            return answer(arg.empty(), hexDigits(static_cast<std::uint32_t>(minTemp_) & 0xFF, 2) +
                                           hexDigits(static_cast<std::uint32_t>(maxTemp_) & 0xFF, 2));
        case 'L':
            if (!parseHexDigits(arg, 1, v))
                return false;
            out.ok();
            if (v != led_) {
                led_ = v;
                out.event("l" + hexDigits(led_, 1));
            }
            return true;
        case 'D':
            if (!flag)
                return false;
            power_ = v != 0;
            updateDisks();
            out.ok();
            return true;
        case 'H':
            if (!parseHexDigits(arg, 1, v))
                return false;
            ledId_ = v;
            out.ok();
            return true;
        case 'E':
            return expander_.frame(arg, out);
        default:
            return false;
        }
    }

    void synchronise(Replier& out) override
    {
        out.event(present_ ? "i1" : "i0");
        out.event(leverOpen_ ? "v1" : "v0");
        out.event("l" + hexDigits(led_, 1));
    }

private:
    void updateDisks()
    {
        for (int d = 0; d < 4; ++d) {
            const int phy = kDiskPhyTop - d;
            if (present_ && power_ && d < disks_)
                expander_.attach(phy, 0x5000C500AB000010ull + static_cast<std::uint64_t>(d));
            else
                expander_.detach(phy);
        }
    }

    void setTemperature(int degrees)
    {
        temperature_ = degrees;
        if (degrees < minTemp_)
            minTemp_ = degrees;
        if (degrees > maxTemp_)
            maxTemp_ = degrees;
    }

    std::string temperatureEvent() const
    {
        return "p" + hexDigits(static_cast<std::uint32_t>(temperature_) & 0xFF, 2);
    }

    bool check(const std::vector<std::string>& w, std::string& error) const
    {
        long long want = 0;
        if (w.size() != 2 || !parseNumber(w[1], want)) {
            error = "check takes KEY VALUE";
            return false;
        }
        long long have = 0;
        if (!lookup(w[0], have)) {
            error = "no state '" + w[0] + "'";
            return false;
        }
        if (have != want) {
            error = w[0] + " is " + std::to_string(have) + ", not " + std::to_string(want);
            return false;
        }
        return true;
    }

    bool lookup(const std::string& key, long long& v) const
    {
        const auto dot = key.find('.');
        const std::string name = key.substr(0, dot);
        if (dot == std::string::npos) {
            if (name == "led") v = led_;
            else if (name == "power") v = power_;
            else if (name == "wp") v = writeProtect_;
            else if (name == "ledid") v = ledId_;
            else if (name == "tempevents") v = tempEvents_;
            else if (name == "resets") v = expander_.resetCount();
            else return false;
            return true;
        }
        long long phy = 0;
        if (!parseNumber(key.substr(dot + 1), phy) || phy < 0 || phy >= expander_.numPhys())
            return false;
        const int p = static_cast<int>(phy);
        if (name == "rate") v = expander_.rate(p);
        else if (name == "errors") v = expander_.errorCount(p);
        else if (name == "held") v = expander_.inReset(p);
        else return false;
        return true;
    }

    DesktopExpander expander_;
    bool present_ = false;
    int disks_ = 4;
    bool leverOpen_ = false;
    bool power_ = false;
    bool writeProtect_ = false;
    bool tempEvents_ = false;
    std::uint32_t led_ = 0;
    std::uint32_t ledId_ = 0;
    std::uint32_t battery_ = 0x2A; // 4.2 V
    std::uint32_t packId_ = 5;
    std::string guid_ = "6F1C2A40-8E33-4D1B-9A57-0B3C5D7E9F21";
    std::uint32_t hours_ = 1234;
    int temperature_ = 30;
    int minTemp_ = 18;
    int maxTemp_ = 41;
};

} // namespace

std::unique_ptr<Personality> makeDesktopPersonality(const BoardInfo& info)
{
    return std::make_unique<DesktopPersonality>(info);
}

} // namespace boardsim
