// An emulated SAS expander, as the two SAS boards reach it through their
// pass-through command "E".
//
// A frame is the hex text after the "E" (upper case): a function byte, then for register
// functions a big-endian register address of the expander's own width (three
// bytes on the desktop station, four on the dual board), then for a write a
// big-endian 32-bit value.
//
//   02 ADDR VALUE  write a register              -> OK
//   03 ADDR        read a register               -> R + 8 digits
//   05 ADDR        read an 8-byte SAS address    -> R + 16 digits
//   06 / 07        reset the expander (07 on the dual board only: with its
//                  debug UART enabled)           -> OK
//
// Registers the expander does not have, read-only registers written, values a
// register cannot hold and frames of the wrong length are refused with "N", so
// a host that builds a frame wrongly finds out at once.
//
// Each PHY has a window of registers at phyBase + phy * phyStride:
//   status       (read)   0x10000001 while a device is attached and the PHY is
//                         out of reset, else 0
//   attached     (05)     the attached device's SAS address, zeros if none
//   control      (write)  5 clears the PHY's error counter, 3 holds the PHY in
//                         reset, 1 releases it; reads give the last value
//   error count  (read)   the PHY's error counter
//   link rate    (r/w)    the layout's rate register; the layout says which
//                         values it takes
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "boardsim/personality.h"

namespace boardsim {

// For the SAS boards' control lines: a number in decimal or, with a 0x
// prefix, hex (negative allowed). False if it is neither.
bool parseNumber(const std::string& text, long long& value);
// The same, and within lo..hi.
bool numberArg(const std::string& text, long long lo, long long hi, long long& value);

class SasExpander {
public:
    struct Layout {
        int addressBytes;           // 3 or 4
        std::uint32_t phyBase;
        std::uint32_t phyStride;
        int numPhys;
        std::uint32_t statusOffset;
        std::uint32_t attachedOffset;
        std::uint32_t controlOffset;
        std::uint32_t errorCountOffset;
        std::uint32_t rateOffset;
        std::uint32_t rateAtPowerUp;
        // Whether the rate register may go from `before` to `after`.
        bool (*rateAccepts)(std::uint32_t before, std::uint32_t after);
        std::uint32_t expanderAddressRegister; // read with 05
        bool uartResetVariant;                 // 07 is a valid reset
    };

    SasExpander(const Layout& layout, std::uint64_t sasAddress);
    virtual ~SasExpander() = default;

    // Answers one frame given as the hex text after "E". False means refuse.
    bool frame(const std::string& hex, Replier& out);

    void attach(int phy, std::uint64_t address);
    void detach(int phy);
    bool attached(int phy) const;

    void setErrorCount(int phy, std::uint32_t count);
    std::uint32_t errorCount(int phy) const;
    std::uint32_t rate(int phy) const;
    bool inReset(int phy) const;
    int numPhys() const { return layout_.numPhys; }

    std::uint64_t address() const { return address_; }
    int resetCount() const { return resets_; }
    bool uartEnabled() const { return uart_; }

protected:
    // Functions beyond the register set (the desktop station's EEPROM).
    // `bytes` is the whole decoded frame. Return false to refuse.
    virtual bool otherFunction(const std::vector<std::uint8_t>& bytes, Replier& out);
    // Called for a reset, after the PHYs have come back up.
    virtual void onReset() {}
    void setAddress(std::uint64_t a) { address_ = a; }

private:
    struct Phy {
        bool attached = false;
        std::uint64_t device = 0;
        std::uint32_t errors = 0;
        std::uint32_t control = 0;
        std::uint32_t rate = 0;
        bool held = false;
    };
    enum class Reg { None, Status, Attached, Control, Errors, Rate, ExpanderAddress };

    Reg decode(std::uint32_t address, int& phy) const;
    bool read(std::uint32_t address, Replier& out);
    bool readAddress(std::uint32_t address, Replier& out);
    bool write(std::uint32_t address, std::uint32_t value);

    const Layout layout_;
    std::vector<Phy> phys_;
    std::uint64_t address_;
    int resets_ = 0;
    bool uart_ = false;
};

} // namespace boardsim
