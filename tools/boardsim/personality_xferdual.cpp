// The xfer drive dual (board letter u): two diskpack slots W = 0 and 1, each
// with two disks, its own EEPROM (4096 bytes), LED, power, write protect, fan
// and temperature; system rails, temperatures and fan; and a 36-PHY SAS
// expander behind "E" with 32-bit register addresses.
//
// Commands (anything else, or a wrong number of digits, is refused with N):
//   Z            reset settings (write protects, temperature events, id LED)
//   G r          R + 4 digits: rail r (0..4: 1V0 1V8 3V3 5V 12V) in mV
//   O            R + 4 digits: operating hours
//   M z          R + 4 digits: min and max temperature of zone z (0, 1 the
//                diskpacks, 2 the system)
//   T d          system temperature events off/on
//   F hh         system fan: 00 off, 01 automatic, 55..FF a speed; 02..54
//                are refused (the fan would stall)
//   H h          identification LED
//   I W  U W     R + diskpack id (1 digit) / GUID; N for an empty slot
//   P Wd         diskpack temperature events; D Wd power; X Wd write protect
//   Y W          R + 1 digit: write protect
//   L Whh        LED: activity bit 7, flash bit 6, red 4-5, green 2-3, blue
//                0-1; the LED going on or off is reported as l
//   J Whh        disk fan: 01 automatic (runs at 0x80), else the speed; a
//                change of speed is reported as j
//   R Waaacc     R + 64 digits: the 32 bytes from address aaa of W's EEPROM
//                (the board always reads a whole window; cc, at most 0x20, is
//                checked but otherwise unused); needs a diskpack
//   W ...        bytes W<<4|a-high, a-low, count (<= 32), then exactly count
//                data bytes, written from the address; needs a diskpack
//   E ...        expander frame, see sas_expander.h; 07 resets it with its
//                UART enabled. Diskpack W's disk k is on PHY 1 - k + 2W,
//                attached while the pack is present and powered.
// The link-rate register keeps bits 11-31 as they are (a write that changes
// them is refused); bits 0-3 take a minimum code 8/9/A, bits 4-7 a maximum
// code 8/9/A (1.5/3/6 Gbit/s), bits 8-10 a non-empty set of enabled rates.
//
// Events: tBBSS system temperatures; pWTT diskpack temperature; iWf presence
// (f: bit 0 present, bit 1 fault); bWd eject button; lWd LED on/off; jWSS
// disk fan speed; dTEXT. After "!" the board reports i, l and j of each slot.
//
// Control lines (B is the board):
//   insert B W [fault]   a diskpack arrives in slot W (optionally faulty)
//   eject B W            it leaves
//   button B W down|up   the slot's eject button
//   temp B W DEGREES     the diskpack's temperature; reported if enabled
//   systemp B BOARD SAS  the system temperatures; reported if enabled
//   phyerrors B PHY N    set a PHY's error counter
//   check B KEY VALUE    error unless the state KEY equals VALUE; keys: fan,
//                        ledid, sysevents, uart, resets, led.W, power.W, wp.W,
//                        tempevents.W, diskfan.W, rate.PHY, errors.PHY,
//                        held.PHY, eeprom.W.ADDR
#include "boardsim/personality_sas.h"

#include <algorithm>
#include <array>

namespace boardsim {

namespace {

using serial::hex;
using serial::signedByteHex;

constexpr std::size_t kPackEepromSize = 4096;
constexpr std::size_t kEepromWindow = 32;
constexpr std::uint32_t kAutoFanSpeed = 0x80;

bool validRateCode(std::uint32_t c) { return c >= 0x8 && c <= 0xA; }

bool dualRateAccepts(std::uint32_t before, std::uint32_t after)
{
    return (before & ~0x7FFu) == (after & ~0x7FFu) && validRateCode(after & 0xF) &&
           validRateCode((after >> 4) & 0xF) && ((after >> 8) & 0x7) != 0;
}

const SasExpander::Layout kLayout = {
    4,           // addressBytes
    0xC0040000,  // phyBase
    0x1000,      // phyStride
    36,          // numPhys
    0x044,       // status
    0x078,       // attached address
    0x718,       // control
    0x730,       // error count
    0x704,       // link rate
    0x3C005FA8,  // rate at power-up: vendor bits above, all rates, 1.5 to 6 Gbit/s
    dualRateAccepts,
    0xC0066010,  // expander's own address
    true,        // 07 resets with the UART enabled
};

struct Pack {
    bool present = false;
    bool fault = false;
    bool power = false;
    bool writeProtect = false;
    bool tempEvents = false;
    std::uint32_t led = 0;
    std::uint32_t diskFan = 1; // as last set: 1 automatic, else the speed
    serial::Temperature temperature{27, 19, 38};
    std::uint32_t id = 0;
    std::string guid;
    std::array<std::uint8_t, kPackEepromSize> eeprom{};

    bool ledOn() const { return (led & 0x3F) != 0; }
    std::uint32_t fanSpeed() const { return diskFan == 1 ? kAutoFanSpeed : diskFan; }
};

class XferDualPersonality : public SasBoard {
public:
    explicit XferDualPersonality(BoardInfo info)
        : SasBoard(std::move(info), std::make_unique<SasExpander>(kLayout, 0x500605B0DD000000ull))
    {
        for (std::uint32_t w = 0; w < 2; ++w) {
            packs_[w].id = 3 + w;
            packs_[w].guid = "9B2E6C10-55A0-4F7E-8C3D-21A4E6F8000" + std::to_string(w);
            packs_[w].eeprom.fill(0xFF);
        }
    }

    void tick(Replier& out) override
    {
        if (sysEvents_)
            out.event(systemTemperatureEvent());
        for (int w = 0; w < 2; ++w)
            if (packs_[w].tempEvents && packs_[w].present)
                out.event(packTemperatureEvent(w));
    }

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override
    {
        const auto w = serial::words(args);
        long long which = 0, n = 0, m = 0;
        const bool slot = !w.empty() && numberArg(w[0], 0, 1, which);
        const int s = static_cast<int>(which);
        if (verb == "insert") {
            if (!slot || w.size() > 2 || (w.size() == 2 && w[1] != "fault"))
                return fail(error, "insert takes a slot 0 or 1 and optionally 'fault'");
            packs_[s].present = true;
            packs_[s].fault = w.size() == 2;
            updateDisks();
            out.event(presenceEvent(s));
            return true;
        }
        if (verb == "eject") {
            if (!slot || w.size() != 1)
                return fail(error, "eject takes a slot 0 or 1");
            packs_[s].present = false;
            packs_[s].fault = false;
            updateDisks();
            out.event(presenceEvent(s));
            return true;
        }
        if (verb == "button") {
            if (!slot || w.size() != 2 || (w[1] != "down" && w[1] != "up"))
                return fail(error, "button takes a slot 0 or 1 and down or up");
            out.event("b" + hex(static_cast<std::uint32_t>(s << 4 | (w[1] == "down" ? 1 : 0)), 2));
            return true;
        }
        if (verb == "temp") {
            if (!slot || w.size() != 2 || !numberArg(w[1], -128, 127, n))
                return fail(error, "temp takes a slot 0 or 1 and degrees -128..127");
            Pack& p = packs_[s];
            p.temperature.set(static_cast<int>(n));
            if (p.tempEvents && p.present)
                out.event(packTemperatureEvent(s));
            return true;
        }
        if (verb == "systemp") {
            if (w.size() != 2 || !numberArg(w[0], -128, 127, n) || !numberArg(w[1], -128, 127, m))
                return fail(error, "systemp takes board and SAS degrees -128..127");
            boardTemp_ = static_cast<int>(n);
            sasTemp_ = static_cast<int>(m);
            sysMin_ = std::min({sysMin_, boardTemp_, sasTemp_});
            sysMax_ = std::max({sysMax_, boardTemp_, sasTemp_});
            if (sysEvents_)
                out.event(systemTemperatureEvent());
            return true;
        }
        return SasBoard::control(verb, args, out, error);
    }

protected:
    bool letterCommand(char letter, const std::string& arg, Replier& out) override
    {
        std::uint32_t v = 0;
        // Two digits: the slot, then a flag.
        std::uint32_t pair = 0;
        const bool slotFlag = serial::hexArg(arg, 2, pair) && (pair >> 4) <= 1 && (pair & 15) <= 1;
        const int w = static_cast<int>(pair >> 4);
        const bool on = (pair & 1) != 0;
        const bool oneDigit = serial::hexArg(arg, 1, v);

        switch (letter) {
        case 'Z':
            if (arg.empty()) {
                for (auto& p : packs_) {
                    p.writeProtect = false;
                    p.tempEvents = false;
                }
                sysEvents_ = false;
                ledId_ = 0;
            }
            return accept(arg.empty(), out);
        case 'G':
            return answer(oneDigit && v <= 4, hex(rails_[oneDigit && v <= 4 ? v : 0], 4), out);
        case 'O':
            return answer(arg.empty(), hex(hours_, 4), out);
        case 'M':
            if (!oneDigit || v > 2)
                return false;
            return answer(true, v == 2 ? signedByteHex(sysMin_) + signedByteHex(sysMax_) : packs_[v].temperature.extremes(),
                          out);
        case 'T':
            return setFlag(arg, sysEvents_, out);
        case 'F':
            if (!serial::hexArg(arg, 2, v) || (v >= 2 && v < 0x55))
                return false;
            fan_ = v;
            out.ok();
            return true;
        case 'H':
            return setHex(arg, 1, 0xFu, ledId_, out);
        case 'I':
            return answer(oneDigit && v <= 1 && packs_[v & 1].present, hex(packs_[v & 1].id, 1), out);
        case 'U':
            return answer(oneDigit && v <= 1 && packs_[v & 1].present, packs_[v & 1].guid, out);
        case 'Y':
            return answer(oneDigit && v <= 1, packs_[v & 1].writeProtect ? "1" : "0", out);
        case 'P':
            if (slotFlag)
                packs_[w].tempEvents = on;
            return accept(slotFlag, out);
        case 'D':
            if (slotFlag) {
                packs_[w].power = on;
                updateDisks();
            }
            return accept(slotFlag, out);
        case 'X':
            if (slotFlag)
                packs_[w].writeProtect = on;
            return accept(slotFlag, out);
        case 'L':
            return setLed(arg, out);
        case 'J':
            return setDiskFan(arg, out);
        case 'R':
            return readEeprom(arg, out);
        case 'W':
            return writeEeprom(arg, out);
        case 'E':
            return expander().frame(arg, out);
        default:
            return false;
        }
    }

    void synchronise(Replier& out) override
    {
        for (int w = 0; w < 2; ++w) {
            out.event(presenceEvent(w));
            out.event(ledEvent(w));
            out.event(fanEvent(w));
        }
    }

private:
    bool setLed(const std::string& arg, Replier& out)
    {
        std::uint32_t v = 0;
        if (!serial::hexArg(arg, 3, v) || (v >> 8) > 1)
            return false;
        Pack& p = packs_[v >> 8];
        const bool wasOn = p.ledOn();
        p.led = v & 0xFF;
        out.ok();
        if (p.ledOn() != wasOn)
            out.event(ledEvent(static_cast<int>(v >> 8)));
        return true;
    }

    bool setDiskFan(const std::string& arg, Replier& out)
    {
        std::uint32_t v = 0;
        if (!serial::hexArg(arg, 3, v) || (v >> 8) > 1)
            return false;
        Pack& p = packs_[v >> 8];
        const std::uint32_t before = p.fanSpeed();
        p.diskFan = v & 0xFF;
        out.ok();
        if (p.fanSpeed() != before)
            out.event(fanEvent(static_cast<int>(v >> 8)));
        return true;
    }

    bool readEeprom(const std::string& arg, Replier& out)
    {
        std::uint32_t v = 0;
        if (!serial::hexArg(arg, 6, v) || (v >> 20) > 1 || (v & 0xFF) > kEepromWindow)
            return false;
        const Pack& p = packs_[v >> 20];
        if (!p.present)
            return false;
        const std::size_t addr = (v >> 8) & 0xFFF;
        std::string text;
        for (std::size_t i = 0; i < kEepromWindow; ++i)
            text += hex(p.eeprom[(addr + i) % kPackEepromSize], 2);
        out.data(text);
        return true;
    }

    bool writeEeprom(const std::string& arg, Replier& out)
    {
        std::vector<std::uint8_t> bytes;
        if (arg.size() < 6 || !serial::hexBytes(arg, bytes))
            return false;
        const std::size_t count = bytes[2];
        if ((bytes[0] >> 4) > 1 || count > kEepromWindow || bytes.size() != 3 + count)
            return false;
        Pack& p = packs_[bytes[0] >> 4];
        if (!p.present)
            return false;
        const std::size_t addr = static_cast<std::size_t>(bytes[0] & 0x0F) << 8 | bytes[1];
        for (std::size_t i = 0; i < count; ++i)
            p.eeprom[(addr + i) % kPackEepromSize] = bytes[3 + i];
        out.ok();
        return true;
    }

    void updateDisks()
    {
        for (int w = 0; w < 2; ++w)
            for (int disk = 0; disk < 2; ++disk) {
                const int phy = 1 - disk + 2 * w;
                if (packs_[w].present && packs_[w].power)
                    expander().attach(phy, 0x5000C500CD000000ull + static_cast<std::uint64_t>(w * 16 + disk));
                else
                    expander().detach(phy);
            }
    }

    std::string presenceEvent(int w) const
    {
        const Pack& p = packs_[w];
        return "i" + hex(static_cast<std::uint32_t>(w << 4 | (p.present ? 1 : 0) | (p.fault ? 2 : 0)), 2);
    }

    std::string ledEvent(int w) const
    {
        return "l" + hex(static_cast<std::uint32_t>(w << 4 | (packs_[w].ledOn() ? 1 : 0)), 2);
    }

    std::string fanEvent(int w) const
    {
        return "j" + hex(static_cast<std::uint32_t>(w) << 8 | packs_[w].fanSpeed(), 3);
    }

    std::string packTemperatureEvent(int w) const
    {
        return "p" + hex(static_cast<std::uint32_t>(w), 1) + packs_[w].temperature.reading();
    }

    std::string systemTemperatureEvent() const
    {
        return "t" + signedByteHex(boardTemp_) + signedByteHex(sasTemp_);
    }

    bool boardState(const std::vector<std::string>& key, long long& v) const override
    {
        const std::string& name = key[0];
        if (key.size() == 1) {
            if (name == "fan") v = fan_;
            else if (name == "ledid") v = ledId_;
            else if (name == "sysevents") v = sysEvents_;
            else if (name == "uart") v = expander().uartEnabled();
            else return false;
            return true;
        }
        long long n = 0;
        if (!numberArg(key[1], 0, 1, n))
            return false;
        const Pack& p = packs_[n];
        if (name == "eeprom") {
            long long addr = 0;
            if (key.size() != 3 || !numberArg(key[2], 0, static_cast<long long>(kPackEepromSize) - 1, addr))
                return false;
            v = p.eeprom[static_cast<std::size_t>(addr)];
            return true;
        }
        if (key.size() != 2)
            return false;
        if (name == "led") v = p.led;
        else if (name == "power") v = p.power;
        else if (name == "wp") v = p.writeProtect;
        else if (name == "tempevents") v = p.tempEvents;
        else if (name == "diskfan") v = p.diskFan;
        else return false;
        return true;
    }

    std::array<Pack, 2> packs_;
    std::array<std::uint32_t, 5> rails_ = {1000, 1800, 3300, 5000, 12000};
    std::uint32_t fan_ = 1;
    std::uint32_t ledId_ = 0;
    bool sysEvents_ = false;
    int boardTemp_ = 35;
    int sasTemp_ = 48;
    int sysMin_ = 21;
    int sysMax_ = 52;
    std::uint32_t hours_ = 777;
};

} // namespace

std::unique_ptr<Personality> makeXferDualPersonality(const BoardInfo& info)
{
    return std::make_unique<XferDualPersonality>(info);
}

} // namespace boardsim
