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

namespace boardsim {

namespace {

using serial::hex;

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
            std::string text;
            for (int i = 0; i < kEepromBlockSize; ++i)
                text += hex(eeprom_[at + static_cast<std::size_t>(i)], 2);
            out.data(text);
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

class DesktopPersonality : public SasBoard {
public:
    explicit DesktopPersonality(BoardInfo info) : SasBoard(std::move(info), std::make_unique<DesktopExpander>()) {}

    void tick(Replier& out) override
    {
        if (tempEvents_ && present_)
            out.event(temperatureEvent());
    }

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        const auto w = serial::words(args);
        long long n = 0;
        if (verb == "insert") {
            long long disks = 4;
            if (w.size() > 1 || (w.size() == 1 && !numberArg(w[0], 0, 4, disks)))
                return fail(error, "insert takes an optional disk count 0..4");
            present_ = true;
            disks_ = static_cast<int>(disks);
            updateDisks();
            out.event("i1");
            return true;
        }
        if (verb == "eject") {
            if (!w.empty())
                return fail(error, "eject takes only a board");
            present_ = false;
            updateDisks();
            out.event("i0");
            return true;
        }
        if (verb == "lever") {
            if (!serial::choiceArg(w, "open", "closed", leverOpen_))
                return fail(error, "lever takes open or closed");
            out.event(leverOpen_ ? "v1" : "v0");
            return true;
        }
        if (verb == "temp") {
            if (w.size() != 1 || !numberArg(w[0], -128, 127, n))
                return fail(error, "temp takes degrees -128..127");
            temperature_.set(static_cast<int>(n));
            if (tempEvents_ && present_)
                out.event(temperatureEvent());
            return true;
        }
        return SasBoard::control(verb, args, out, error);
    }

protected:
    bool letterCommand(char letter, const std::string& arg, Replier& out) override
    {
        const bool noArg = arg.empty();
        switch (letter) {
        case 'Z':
            if (noArg) {
                writeProtect_ = false;
                tempEvents_ = false;
                ledId_ = 0;
            }
            return accept(noArg, out);
        case 'V':
            return answer(noArg, hex(battery_, 2), out);
        case 'I':
            return answer(noArg && present_, hex(packId_, 1), out);
        case 'U':
            return answer(noArg && present_, guid_, out);
        case 'X':
            return setFlag(arg, writeProtect_, out);
        case 'Y':
            return answer(arg == "0", writeProtect_ ? "1" : "0", out);
        case 'P':
            return setFlag(arg, tempEvents_, out);
        case 'O':
            return answer(noArg, hex(hours_, 4), out);
        case 'M':
            return answer(noArg, temperature_.extremes(), out);
        case 'L':
            return serial::setLedState(arg, led_, out);
        case 'D':
            if (!serial::flagArg(arg, power_))
                return false;
            updateDisks();
            out.ok();
            return true;
        case 'H':
            return setHex(arg, 1, 0xF, ledId_, out);
        case 'E':
            return expander().frame(arg, out);
        default:
            return false;
        }
    }

    void synchronise(Replier& out) override
    {
        out.event(present_ ? "i1" : "i0");
        out.event(leverOpen_ ? "v1" : "v0");
        out.event("l" + hex(led_, 1));
    }

    bool boardState(const std::vector<std::string>& key, long long& v) const override
    {
        if (key.size() != 1)
            return false;
        const std::string& name = key[0];
        if (name == "led") v = led_;
        else if (name == "power") v = power_;
        else if (name == "wp") v = writeProtect_;
        else if (name == "ledid") v = ledId_;
        else if (name == "tempevents") v = tempEvents_;
        else return false;
        return true;
    }

private:
    void updateDisks()
    {
        for (int d = 0; d < 4; ++d) {
            const int phy = kDiskPhyTop - d;
            if (present_ && power_ && d < disks_)
                expander().attach(phy, 0x5000C500AB000010ull + static_cast<std::uint64_t>(d));
            else
                expander().detach(phy);
        }
    }

    std::string temperatureEvent() const { return "p" + temperature_.reading(); }

    bool present_ = false;
    int disks_ = 4;
    bool leverOpen_ = false;
    bool power_ = false;
    bool writeProtect_ = false;
    bool tempEvents_ = false;
    int led_ = 0;
    int ledId_ = 0;
    std::uint32_t battery_ = 0x2A; // 4.2 V
    std::uint32_t packId_ = 5;
    std::string guid_ = "6F1C2A40-8E33-4D1B-9A57-0B3C5D7E9F21";
    std::uint32_t hours_ = 1234;
    serial::Temperature temperature_{30, 18, 41};
};

} // namespace

std::unique_ptr<Personality> makeDesktopPersonality(const BoardInfo& info)
{
    return std::make_unique<DesktopPersonality>(info);
}

} // namespace boardsim
