#include "boardsim/sas_expander.h"

#include "boardsim/personality_serial.h"

#include <cctype>
#include <stdexcept>

namespace boardsim {

namespace {

std::uint32_t bigEndian(const std::vector<std::uint8_t>& bytes, std::size_t from, int count)
{
    std::uint32_t v = 0;
    for (int i = 0; i < count; ++i)
        v = (v << 8) | bytes[from + static_cast<std::size_t>(i)];
    return v;
}

} // namespace

bool parseNumber(const std::string& text, long long& value)
{
    if (text.empty())
        return false;
    const bool negative = text[0] == '-';
    const std::string body = negative ? text.substr(1) : text;
    const bool hex = body.size() > 2 && body[0] == '0' && (body[1] == 'x' || body[1] == 'X');
    const std::string digits = hex ? body.substr(2) : body;
    if (digits.empty() || !std::isxdigit(static_cast<unsigned char>(digits[0])) ||
        (!hex && !std::isdigit(static_cast<unsigned char>(digits[0]))))
        return false;
    std::size_t used = 0;
    try {
        value = std::stoll(digits, &used, hex ? 16 : 10);
        if (hex)
            used += 2;
        if (negative)
            value = -value;
    } catch (const std::exception&) {
        return false;
    }
    return used == body.size();
}

bool numberArg(const std::string& text, long long lo, long long hi, long long& value)
{
    long long v = 0;
    if (!parseNumber(text, v) || v < lo || v > hi)
        return false;
    value = v;
    return true;
}

SasExpander::SasExpander(const Layout& layout, std::uint64_t sasAddress)
    : layout_(layout), phys_(static_cast<std::size_t>(layout.numPhys)), address_(sasAddress)
{
    for (auto& p : phys_)
        p.rate = layout_.rateAtPowerUp;
}

void SasExpander::attach(int phy, std::uint64_t address)
{
    auto& p = phys_.at(static_cast<std::size_t>(phy));
    p.attached = true;
    p.device = address;
}

void SasExpander::detach(int phy)
{
    auto& p = phys_.at(static_cast<std::size_t>(phy));
    p.attached = false;
    p.device = 0;
}

bool SasExpander::attached(int phy) const { return phys_.at(static_cast<std::size_t>(phy)).attached; }

void SasExpander::setErrorCount(int phy, std::uint32_t count) { phys_.at(static_cast<std::size_t>(phy)).errors = count; }

std::uint32_t SasExpander::errorCount(int phy) const { return phys_.at(static_cast<std::size_t>(phy)).errors; }

std::uint32_t SasExpander::rate(int phy) const { return phys_.at(static_cast<std::size_t>(phy)).rate; }

bool SasExpander::inReset(int phy) const { return phys_.at(static_cast<std::size_t>(phy)).held; }

bool SasExpander::frame(const std::string& hex, Replier& out)
{
    std::vector<std::uint8_t> bytes;
    if (hex.empty() || !serial::hexBytes(hex, bytes))
        return false;
    const std::size_t a = static_cast<std::size_t>(layout_.addressBytes);
    switch (bytes[0]) {
    case 0x02:
        if (bytes.size() != 1 + a + 4 || !write(bigEndian(bytes, 1, layout_.addressBytes), bigEndian(bytes, 1 + a, 4)))
            return false;
        out.ok();
        return true;
    case 0x03:
        return bytes.size() == 1 + a && read(bigEndian(bytes, 1, layout_.addressBytes), out);
    case 0x05:
        return bytes.size() == 1 + a && readAddress(bigEndian(bytes, 1, layout_.addressBytes), out);
    case 0x06:
    case 0x07:
        if (bytes.size() != 1 || (bytes[0] == 0x07 && !layout_.uartResetVariant))
            return false;
        // A reset brings every PHY back up with fresh counters.
        for (auto& p : phys_) {
            p.held = false;
            p.errors = 0;
        }
        uart_ = bytes[0] == 0x07;
        ++resets_;
        onReset();
        out.ok();
        return true;
    default:
        return otherFunction(bytes, out);
    }
}

bool SasExpander::otherFunction(const std::vector<std::uint8_t>&, Replier&) { return false; }

SasExpander::Reg SasExpander::decode(std::uint32_t address, int& phy) const
{
    if (address == layout_.expanderAddressRegister)
        return Reg::ExpanderAddress;
    if (address < layout_.phyBase)
        return Reg::None;
    const std::uint32_t rel = address - layout_.phyBase;
    const std::uint32_t index = rel / layout_.phyStride;
    if (index >= static_cast<std::uint32_t>(layout_.numPhys))
        return Reg::None;
    phy = static_cast<int>(index);
    const std::uint32_t offset = rel % layout_.phyStride;
    if (offset == layout_.statusOffset)
        return Reg::Status;
    if (offset == layout_.attachedOffset)
        return Reg::Attached;
    if (offset == layout_.controlOffset)
        return Reg::Control;
    if (offset == layout_.errorCountOffset)
        return Reg::Errors;
    if (offset == layout_.rateOffset)
        return Reg::Rate;
    return Reg::None;
}

bool SasExpander::read(std::uint32_t address, Replier& out)
{
    int phy = 0;
    std::uint32_t v = 0;
    switch (decode(address, phy)) {
    case Reg::Status: {
        const auto& p = phys_[static_cast<std::size_t>(phy)];
        v = p.attached && !p.held ? 0x10000001u : 0u;
        break;
    }
    case Reg::Control: v = phys_[static_cast<std::size_t>(phy)].control; break;
    case Reg::Errors: v = phys_[static_cast<std::size_t>(phy)].errors; break;
    case Reg::Rate: v = phys_[static_cast<std::size_t>(phy)].rate; break;
    default: return false;
    }
    out.data(serial::hex(v, 8));
    return true;
}

bool SasExpander::readAddress(std::uint32_t address, Replier& out)
{
    int phy = 0;
    std::uint64_t a = 0;
    switch (decode(address, phy)) {
    case Reg::ExpanderAddress: a = address_; break;
    case Reg::Attached: a = phys_[static_cast<std::size_t>(phy)].device; break;
    default: return false;
    }
    out.data(serial::hex(static_cast<std::uint32_t>(a >> 32), 8) + serial::hex(static_cast<std::uint32_t>(a), 8));
    return true;
}

bool SasExpander::write(std::uint32_t address, std::uint32_t value)
{
    int phy = 0;
    const Reg reg = decode(address, phy);
    if (reg != Reg::Control && reg != Reg::Rate)
        return false;
    auto& p = phys_[static_cast<std::size_t>(phy)];
    if (reg == Reg::Rate) {
        if (!layout_.rateAccepts(p.rate, value))
            return false;
        p.rate = value;
        return true;
    }
    switch (value) {
    case 5: p.errors = 0; break;
    case 3: p.held = true; break;
    case 1: p.held = false; break;
    default: return false;
    }
    p.control = value;
    return true;
}

} // namespace boardsim
