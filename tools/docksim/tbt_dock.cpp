#include "docksim/tbt_dock.h"

#include <algorithm>

namespace docksim {

namespace {

const std::string kOk = "OK";
const std::string kNack = "N";

// Strict upper-case hex: the product writes its digits that way.
bool upperHex(const std::string& text, unsigned& value)
{
    value = 0;
    for (char c : text) {
        const int d = c >= '0' && c <= '9' ? c - '0' : c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
        if (d < 0)
            return false;
        value = value * 16 + static_cast<unsigned>(d);
    }
    return true;
}

unsigned hexOf(const std::string& digits)
{
    unsigned v = 0;
    upperHex(digits, v);
    return v;
}

// "0" or "1" after a flag command.
bool flag(const std::string& arg, bool& value)
{
    if (arg != "0" && arg != "1")
        return false;
    value = arg == "1";
    return true;
}

} // namespace

const TbtDock::Command TbtDock::kCommands[] = {
    {'?', 0, &TbtDock::identify, false},
    {'@', 0, &TbtDock::answerId, false},
    {'!', 0, &TbtDock::synchronise, false},
    {'&', 0, &TbtDock::nextEvent, false},
    {'Z', 0, &TbtDock::resetEeprom, false},
    {'I', 0, &TbtDock::getDiskpackId, true},
    {'U', 0, &TbtDock::getGuid, true},
    {'G', 1, &TbtDock::getRail, false},
    {'X', 1, &TbtDock::setWriteProtect, true},
    {'Y', 1, &TbtDock::getWriteProtect, true},
    {'T', 1, &TbtDock::enableDockTempEvents, false},
    {'P', 1, &TbtDock::enablePackTempEvents, false},
    {'O', 0, &TbtDock::getHours, false},
    {'M', 1, &TbtDock::getMinMax, false},
    {'L', 2, &TbtDock::setLed, false},
    {'D', 1, &TbtDock::setPower, false},
    {'R', 6, &TbtDock::readEeprom, true},
    {'W', -1, &TbtDock::writeEeprom, true},
    {'t', 1, &TbtDock::setTypeId, false},
    {'S', 4, &TbtDock::setSerial, false},
    {'E', 0, &TbtDock::getSerial, false},
    {'F', 2, &TbtDock::setFan, false},
    {'*', -1, &TbtDock::star, false},
    {'%', -1, &TbtDock::enterBootloader, false},
};

TbtDock::TbtDock(int index, DockConfig config) : Dock(index, std::move(config)), typeId_(cd2() ? 4 : 0)
{
    guid_ = {0x28, 0x54, 0x42, 0x54, cd2() ? uint8_t(0xC2) : uint8_t(0x51), 0x00, static_cast<uint8_t>(index),
             static_cast<uint8_t>(this->config().id)};
}

std::vector<int> TbtDock::publish(Registry& reg)
{
    const std::string n = std::to_string(index());
    // The Thunderbolt path names a switch whose parent, the port, holds the UID.
    const int port = reg.add(reg.root(), "tbt-port", "ThunderboltPort", n, Json::object().set("UID", Json(uid())));
    const int sw = reg.add(port, "tbt-switch", "ThunderboltSwitch", "0");
    const int device = reg.add(reg.root(), "tbt-dock", "ThunderboltDevice", n,
                               Json::object().set("Thunderbolt Path", reg.path(sw)));
    const int bridge = reg.add(device, "pci-bridge", "PCIBridge", "0");
    const int controller = reg.add(bridge, "sata-controller", "AHCIController", "0");
    for (int disk = 0; disk < diskCount(); ++disk) {
        const int branch = reg.add(controller, "ahci-port", "AHCIPort", std::to_string(disk));
        const int driver = reg.add(branch, "block-driver", "BlockStorageDriver", "0");
        // A sibling after the first child: the walk down takes first children only.
        reg.add(branch, "port-statistics", "AHCIPortStatistics", "1",
                Json::object().set("Device Characteristics", Json::object().set("Serial Number", "NOT-A-DISK")));
        Json characteristics = Json::object();
        characteristics.set("Product Name", "SIM DISK").set("Serial Number", diskSerial(disk));
        reg.add(driver, "disk", "BlockStorageDevice", "0",
                Json::object().set("Device Characteristics", std::move(characteristics)));
    }
    // After the controller: the dock's parent's first child is the controller.
    reg.add(bridge, kDriverClass, kDriverClass, "0",
            Json::object().set("IOClass", kDriverClass).set("HostComms", Json::object().set("reply", "")), index());
    return {port, device};
}

std::string TbtDock::command(const std::string& text)
{
    if (text.empty())
        return kNack;
    const auto* cmd = std::find_if(std::begin(kCommands), std::end(kCommands),
                                   [&](const Command& c) { return c.letter == text[0]; });
    if (cmd == std::end(kCommands))
        return kNack;
    const std::string arg = text.substr(1);
    unsigned ignored = 0;
    if (cmd->digits >= 0 && (arg.size() != static_cast<std::size_t>(cmd->digits) || !upperHex(arg, ignored)))
        return kNack;
    if (cmd->needsDiskpack && !diskpackIn_)
        return kNack;
    return (this->*cmd->handler)(arg);
}

void TbtDock::queue(const std::string& event)
{
    if (events_.size() < kMaxQueuedEvents)
        events_.push_back(event);
}

std::string TbtDock::presenceEvent() const
{
    return "i" + hexDigits((diskpackIn_ ? 1u : 0u) | (diskpackIn_ && diskpackFault_ ? 2u : 0u), 2);
}

std::string TbtDock::ledOrFanEvent() const
{
    return cd2() ? "j" + hexDigits(static_cast<unsigned>(fan_), 2) : std::string(ledLit_ ? "l1" : "l0");
}

std::string TbtDock::identify(const std::string&) { return identity() + " " + config().version; }
std::string TbtDock::answerId(const std::string&) { return "R" + hexDigits(static_cast<unsigned>(config().id), 1); }

std::string TbtDock::synchronise(const std::string&)
{
    queue(presenceEvent());
    queue(button_ ? "b1" : "b0");
    queue("t" + hexDigits(static_cast<unsigned>(temperature_[1]) & 0xFF, 2));
    if (diskpackIn_)
        queue("p" + hexDigits(static_cast<unsigned>(temperature_[0]) & 0xFF, 2));
    queue(ledOrFanEvent());
    return kOk;
}

std::string TbtDock::nextEvent(const std::string&)
{
    if (events_.empty())
        return "";
    std::string event = events_.front();
    events_.pop_front();
    return event;
}

std::string TbtDock::resetEeprom(const std::string&)
{
    std::fill(eeprom_.begin(), eeprom_.end(), 0xFF);
    return kOk;
}

std::string TbtDock::getDiskpackId(const std::string&) { return "R" + hexDigits(static_cast<unsigned>(diskpackId_), 1); }
std::string TbtDock::getGuid(const std::string&) { return "R" + hexBytes(guid_.data(), guid_.size()); }

std::string TbtDock::getRail(const std::string& arg)
{
    const unsigned rail = hexOf(arg);
    if (rail >= railsMv().size())
        return kNack;
    return "R" + hexDigits(static_cast<unsigned>(railsMv()[rail]) & 0xFFFF, 4);
}

std::string TbtDock::setWriteProtect(const std::string& arg) { return flag(arg, writeProtect_) ? kOk : kNack; }

std::string TbtDock::getWriteProtect(const std::string& arg)
{
    return arg == "0" ? std::string(writeProtect_ ? "R1" : "R0") : kNack;
}

std::string TbtDock::enableDockTempEvents(const std::string& arg) { return flag(arg, dockTempEvents_) ? kOk : kNack; }
std::string TbtDock::enablePackTempEvents(const std::string& arg) { return flag(arg, packTempEvents_) ? kOk : kNack; }
std::string TbtDock::getHours(const std::string&) { return "R" + hexDigits(static_cast<unsigned>(hours_), 4); }

std::string TbtDock::getMinMax(const std::string& arg)
{
    const unsigned zone = hexOf(arg);
    if (zone > 1)
        return kNack;
    return "R" + hexDigits(static_cast<unsigned>(minTemp_[zone]) & 0xFF, 2) +
           hexDigits(static_cast<unsigned>(maxTemp_[zone]) & 0xFF, 2);
}

std::string TbtDock::setLed(const std::string& arg)
{
    const int byte = static_cast<int>(hexOf(arg));
    if (cd2() && (byte & 0x80)) // the CD2's LED has no activity flag
        return kNack;
    ledByte_ = byte;
    const bool lit = (byte & 0x3F) != 0;
    if (lit != ledLit_ && !cd2()) {
        ledLit_ = lit;
        queue(ledOrFanEvent());
    }
    ledLit_ = lit;
    return kOk;
}

std::string TbtDock::setPower(const std::string& arg) { return flag(arg, power_) ? kOk : kNack; }

std::string TbtDock::readEeprom(const std::string& arg)
{
    // "0", three digits of address, two of count; the answer is always 32 bytes.
    const unsigned address = hexOf(arg.substr(1, 3));
    const unsigned count = hexOf(arg.substr(4, 2));
    if (arg[0] != '0' || count < 1 || count > 32)
        return kNack;
    std::string out = "R";
    for (unsigned i = 0; i < 32; ++i)
        out += hexDigits(eeprom_[(address + i) % kEepromSize], 2);
    return out;
}

std::string TbtDock::writeEeprom(const std::string& arg)
{
    // Address bits 11..8, address low byte, count, then the count bytes.
    unsigned wrapped = 0; // only the digits' validity matters here
    if (arg.size() < 6 || !upperHex(arg, wrapped))
        return kNack;
    const unsigned high = hexOf(arg.substr(0, 2)), low = hexOf(arg.substr(2, 2)), count = hexOf(arg.substr(4, 2));
    if (high > 0x0F || count < 1 || count > 32 || arg.size() != 6 + 2 * count)
        return kNack;
    const unsigned address = (high << 8) | low;
    for (unsigned i = 0; i < count; ++i)
        eeprom_[(address + i) % kEepromSize] = static_cast<uint8_t>(hexOf(arg.substr(6 + 2 * i, 2)));
    return kOk;
}

std::string TbtDock::setTypeId(const std::string& arg)
{
    static const std::vector<int> kSingle{0, 1, 4, 9, 10}, kCd2{4, 5, 6};
    const int id = static_cast<int>(hexOf(arg));
    const auto& valid = cd2() ? kCd2 : kSingle;
    if (std::find(valid.begin(), valid.end(), id) == valid.end())
        return kNack;
    typeId_ = id;
    return kOk;
}

std::string TbtDock::setSerial(const std::string& arg)
{
    serial_ = static_cast<int>(hexOf(arg));
    return kOk;
}

std::string TbtDock::getSerial(const std::string&) { return "R" + hexDigits(static_cast<unsigned>(serial_), 4); }

std::string TbtDock::setFan(const std::string& arg)
{
    if (!cd2())
        return kNack;
    const int speed = static_cast<int>(hexOf(arg));
    if (speed != fan_) {
        fan_ = speed;
        queue(ledOrFanEvent());
    }
    return kOk;
}

std::string TbtDock::star(const std::string& arg)
{
    // "R" and one port character is the CD2's port reset; it cannot be taken
    // for a bootloader request, which is always longer.
    if (arg.size() == 2 && arg[0] == 'R') {
        if (!cd2() || arg[1] < '0' || arg[1] > '3')
            return kNack;
        resetPort_ = arg[1] - '0';
        return kOk;
    }
    return loader_.request(arg);
}

std::string TbtDock::enterBootloader(const std::string& arg)
{
    if (arg != "UP")
        return kNack;
    loader_.enter();
    return kOk;
}

void TbtDock::setTemperature(int zone, int degrees)
{
    temperature_[zone] = degrees;
    minTemp_[zone] = std::min(minTemp_[zone], degrees);
    maxTemp_[zone] = std::max(maxTemp_[zone], degrees);
    const bool enabled = zone == 1 ? dockTempEvents_ : packTempEvents_ && diskpackIn_;
    if (enabled)
        queue((zone == 1 ? "t" : "p") + hexDigits(static_cast<unsigned>(degrees) & 0xFF, 2));
}

std::string TbtDock::control(const std::string& verb, const std::string& arg)
{
    int v = 0;
    bool on = false;
    if (verb == "diskpack") {
        if (arg != "in" && arg != "out" && arg != "fault")
            return "diskpack takes in, out or fault";
        diskpackIn_ = arg != "out";
        diskpackFault_ = arg == "fault";
        queue(presenceEvent());
    } else if (verb == "button") {
        if (!parseOnOff(arg, "down", "up", button_))
            return "button takes down or up";
        queue(button_ ? "b1" : "b0");
    } else if (verb == "dock-temp" || verb == "diskpack-temp") {
        if (!parseDecimal(arg, -128, 127, v))
            return verb + " takes degrees -128..127";
        setTemperature(verb == "dock-temp" ? 1 : 0, v);
    } else if (verb == "led") {
        if (cd2())
            return "the CD2 dock reports its fan, not its LED";
        if (!parseOnOff(arg, "on", "off", on))
            return "led takes on or off";
        ledLit_ = on;
        queue(ledOrFanEvent());
    } else if (verb == "fan") {
        if (!cd2())
            return "only the CD2 dock has a fan";
        if (!parseDecimal(arg, 0, 255, fan_))
            return "fan takes a speed 0..255";
        queue(ledOrFanEvent());
    } else if (verb == "event") {
        if (arg.empty())
            return "event needs a text";
        queue(arg);
    } else if (verb == "rail") {
        const auto space = arg.find(' ');
        int rail = 0;
        auto& rails = cd2() ? cd2RailsMv_ : singleRailsMv_;
        if (space == std::string::npos ||
            !parseDecimal(arg.substr(0, space), 0, static_cast<int>(rails.size()) - 1, rail) ||
            !parseDecimal(arg.substr(space + 1), -32768, 32767, v))
            return "rail takes a rail 0.." + std::to_string(rails.size() - 1) + " and millivolts -32768..32767";
        rails[static_cast<std::size_t>(rail)] = v;
    } else if (verb == "diskpack-id") {
        if (!parseDecimal(arg, 0, 15, diskpackId_))
            return "diskpack-id takes 0..15";
    } else if (verb == "guid") {
        std::vector<uint8_t> bytes;
        if (!parseHexBytes(arg, bytes) || bytes.size() != guid_.size())
            return "guid takes 8 bytes of hex";
        std::copy(bytes.begin(), bytes.end(), guid_.begin());
    } else {
        return "a Thunderbolt dock has no '" + verb + "'";
    }
    return "";
}

StateFields TbtDock::state() const
{
    return {{"diskpack", diskpackIn_ ? (diskpackFault_ ? "fault" : "in") : "out"},
            {"writeprotect", writeProtect_ ? "1" : "0"},
            {"button", button_ ? "down" : "up"},
            {"power", power_ ? "1" : "0"},
            {"dock-temp", std::to_string(temperature_[1])},
            {"diskpack-temp", std::to_string(temperature_[0])},
            {"tempevents", dockTempEvents_ ? "1" : "0"},
            {"packtempevents", packTempEvents_ ? "1" : "0"},
            {"led", hexDigits(static_cast<unsigned>(ledByte_), 2)},
            {"fan", std::to_string(fan_)},
            {"typeid", std::to_string(typeId_)},
            {"serial", hexDigits(static_cast<unsigned>(serial_), 4)},
            {"resetport", std::to_string(resetPort_)},
            {"events", std::to_string(events_.size())},
            {"bootloader", loader_.active() ? "1" : "0"},
            {"endstatus", std::to_string(loader_.endStatus())},
            {"pages", std::to_string(loader_.pagesWritten())}};
}

const std::vector<uint8_t>* TbtDock::memory(const std::string& name) const
{
    return name == "eeprom" ? &eeprom_ : name == "flash" ? &loader_.flash() : nullptr;
}

} // namespace docksim
