#include "docksim/usb_dock.h"

#include <algorithm>

namespace docksim {

namespace {

constexpr uint8_t kOpcodeCommand = 0xDE;
constexpr uint8_t kOpcodeUpgrade = 0xE4;
constexpr std::size_t kShortReply = 16;

void putLe16(std::vector<uint8_t>& r, std::size_t at, unsigned value)
{
    r[at] = static_cast<uint8_t>(value & 0xFF);
    r[at + 1] = static_cast<uint8_t>((value >> 8) & 0xFF);
}

} // namespace

const UsbDock::Command UsbDock::kCommands[] = {
    {0x00, &UsbDock::status, 128, false},
    {0x01, &UsbDock::setPower, kShortReply, false},
    {0x02, &UsbDock::setDiskpackLed, kShortReply, false},
    {0x03, &UsbDock::getDiskpackLed, kShortReply, false},
    {0x04, &UsbDock::getGuid, kShortReply, false},
    {0x05, &UsbDock::getFirmware, 32, false},
    {0x06, &UsbDock::getWriteProtect, kShortReply, true},
    {0x07, &UsbDock::setWriteProtect, kShortReply, true},
    {0x0A, &UsbDock::getTemperature, kShortReply, false},
    {0x0B, &UsbDock::writeEeprom, kShortReply, true},
    {0x0C, &UsbDock::readEeprom, 48, true},
    {0x0D, &UsbDock::getDiskpackId, kShortReply, true},
    {0x0E, &UsbDock::getDiskSerial, 32, false},
    {0x0F, &UsbDock::getRail, kShortReply, false},
    {0x10, &UsbDock::setDockLed, kShortReply, false},
};

UsbDock::UsbDock(int index, DockConfig config) : Dock(index, std::move(config))
{
    parseUsbVersion(this->config().version, version_);
    guid_ = {0x28, 0x53, 0x49, 0x4D, 0x00, 0x0D, static_cast<uint8_t>(index), static_cast<uint8_t>(this->config().id)};
}

std::vector<int> UsbDock::publish(Registry& reg)
{
    const std::string n = std::to_string(index());
    Json device = Json::object();
    device.set("locationID", Json(static_cast<int64_t>(locationId())))
        .set("USB Serial Number", serialNumber())
        .set("USB Product Name", "USB 3.0 Transfer Dock");
    const int bus = reg.add(reg.root(), "docksim-usb", "USBHostController", n);
    const int dev = reg.add(bus, "TransferDock", "USBDevice", hexDigits(static_cast<unsigned>(locationId()), 8),
                            std::move(device));
    // The twin stands for a second driver instance of the same device, which
    // the product must count once by its locationID.
    for (int i = 0; i < (config().twin ? 2 : 1); ++i) {
        const int iface = reg.add(dev, "interface", "USBInterface", std::to_string(i),
                                  Json::object().set("bInterfaceNumber", i));
        reg.add(iface, kDriverName, kDriverName, "", Json::object().set("IOClass", kDriverName), index());
    }
    return {bus};
}

bool UsbDock::execute(const uint8_t cdb[16], std::vector<uint8_t>& reply)
{
    const uint8_t subcode = cdb[1];
    reply.assign(kShortReply, 0);
    reply[0] = subcode;
    reply[1] = kRefused;
    if (cdb[0] == kOpcodeUpgrade) {
        if (subcode == 0 && cdb[2] == 0x40 && cdb[3] == 0xC0) {
            ++upgrades_;
            reply[1] = kOk;
        }
        return true;
    }
    if (cdb[0] != kOpcodeCommand)
        return false;
    const auto* command = std::find_if(std::begin(kCommands), std::end(kCommands),
                                       [&](const Command& c) { return c.subcode == subcode; });
    if (command == std::end(kCommands))
        return true;
    reply.assign(command->length, 0);
    reply[0] = subcode;
    if (command->needsDiskpack && !diskpackIn_)
        reply[1] = kRefused;
    else
        (this->*command->handler)(cdb, reply);
    return true;
}

void UsbDock::status(const uint8_t*, std::vector<uint8_t>& r)
{
    // Byte 1: bits 0 and 3 a diskpack in, bit 2 write protected. Byte 3 bit 1:
    // eject button down. Byte 4 'U' when bytes 5..6 hold the diskpack's
    // temperature. Bytes 7..11: the diskpack LED as set, byte 12 lit.
    r[1] = static_cast<uint8_t>((diskpackIn_ ? 0x09 : 0) | (writeProtect_ ? 0x04 : 0));
    r[3] = button_ ? 0x02 : 0;
    if (diskpackIn_) {
        r[4] = kOk;
        putLe16(r, 5, static_cast<unsigned>(diskpackTemp_ * 16) & 0xFFFF);
    }
    std::copy(led_.begin(), led_.end(), r.begin() + 7);
    r[12] = ledLit_ ? 1 : 0;
}

void UsbDock::setPower(const uint8_t* cdb, std::vector<uint8_t>& r)
{
    power_ = cdb[2] != 0;
    r[1] = kOk;
}

void UsbDock::setDiskpackLed(const uint8_t* cdb, std::vector<uint8_t>& r)
{
    std::copy(cdb + 2, cdb + 7, led_.begin());
    ledLit_ = led_[0] || led_[1] || led_[2];
    r[1] = kOk;
}

void UsbDock::getDiskpackLed(const uint8_t*, std::vector<uint8_t>& r)
{
    r[1] = kOk;
    std::copy(led_.begin(), led_.end(), r.begin() + 2);
}

void UsbDock::getGuid(const uint8_t*, std::vector<uint8_t>& r)
{
    if (diskpackIn_)
        std::copy(guid_.begin(), guid_.end(), r.begin() + 1);
}

void UsbDock::getFirmware(const uint8_t*, std::vector<uint8_t>& r) { std::copy(version_, version_ + 3, r.begin() + 1); }

void UsbDock::getWriteProtect(const uint8_t*, std::vector<uint8_t>& r)
{
    r[1] = kOk;
    r[2] = writeProtect_ ? 1 : 0;
}

void UsbDock::setWriteProtect(const uint8_t* cdb, std::vector<uint8_t>& r)
{
    writeProtect_ = cdb[2] != 0;
    r[1] = kOk;
}

void UsbDock::getTemperature(const uint8_t*, std::vector<uint8_t>& r)
{
    if (diskpackIn_)
        putLe16(r, 1, static_cast<unsigned>(diskpackTemp_ * 16) & 0xFFFF);
}

void UsbDock::writeEeprom(const uint8_t* cdb, std::vector<uint8_t>& r)
{
    const std::size_t address = cdb[2] | (cdb[3] << 8);
    const std::size_t count = cdb[4];
    if (address >= kEepromSize || count > 11) {
        r[1] = kRefused;
        return;
    }
    // Like a serial EEPROM's page write: past the end of its 32-byte page the
    // address wraps to the page's start.
    const std::size_t page = address - address % kEepromPage;
    for (std::size_t i = 0; i < count; ++i)
        eeprom_[page + (address + i) % kEepromPage] = cdb[5 + i];
    r[1] = kOk;
}

void UsbDock::readEeprom(const uint8_t* cdb, std::vector<uint8_t>& r)
{
    const std::size_t address = cdb[2] | (cdb[3] << 8);
    const std::size_t count = cdb[4];
    if (address >= kEepromSize || count > kEepromPage) {
        r[1] = kRefused;
        return;
    }
    for (std::size_t i = 0; i < count; ++i)
        r[2 + i] = eeprom_[(address + i) % kEepromSize];
    r[1] = kOk;
}

void UsbDock::getDiskpackId(const uint8_t*, std::vector<uint8_t>& r)
{
    r[1] = kOk;
    r[2] = diskpackId_;
}

void UsbDock::getDiskSerial(const uint8_t* cdb, std::vector<uint8_t>& r)
{
    const int disk = cdb[2];
    r[1] = static_cast<uint8_t>(disk);
    r[2] = kRefused;
    if (disk > 1 || !diskpackIn_)
        return;
    const std::string serial = diskSerial(disk);
    r[2] = kOk;
    r[3] = static_cast<uint8_t>(serial.size());
    std::copy(serial.begin(), serial.end(), r.begin() + 4);
}

void UsbDock::getRail(const uint8_t* cdb, std::vector<uint8_t>& r)
{
    r[1] = cdb[2] < railsMv_.size() ? kOk : kRefused;
    if (r[1] == kRefused)
        return;
    putLe16(r, 2, static_cast<unsigned>(railsMv_[cdb[2]]));
}

void UsbDock::setDockLed(const uint8_t* cdb, std::vector<uint8_t>& r)
{
    std::copy(cdb + 2, cdb + 7, dockLed_.begin());
    r[1] = kOk;
}

std::string UsbDock::control(const std::string& verb, const std::string& arg)
{
    int v = 0;
    if (verb == "diskpack")
        return parseOnOff(arg, "in", "out", diskpackIn_) ? "" : "diskpack takes in or out";
    if (verb == "button")
        return parseOnOff(arg, "down", "up", button_) ? "" : "button takes down or up";
    if (verb == "led")
        return parseOnOff(arg, "on", "off", ledLit_) ? "" : "led takes on or off";
    if (verb == "diskpack-temp") {
        if (!parseDecimal(arg, -128, 127, v))
            return "diskpack-temp takes degrees -128..127";
        diskpackTemp_ = v;
        return "";
    }
    if (verb == "rail") {
        const auto space = arg.find(' ');
        int rail = 0;
        if (space == std::string::npos || !parseDecimal(arg.substr(0, space), 0, 1, rail) ||
            !parseDecimal(arg.substr(space + 1), 0, 65535, v))
            return "rail takes a rail 0..1 and millivolts 0..65535";
        railsMv_[static_cast<std::size_t>(rail)] = v;
        return "";
    }
    if (verb == "diskpack-id") {
        if (!parseDecimal(arg, 0, 15, v))
            return "diskpack-id takes 0..15";
        diskpackId_ = static_cast<uint8_t>(v);
        return "";
    }
    if (verb == "guid") {
        std::vector<uint8_t> bytes;
        if (!parseHexBytes(arg, bytes) || bytes.size() != guid_.size())
            return "guid takes 8 bytes of hex";
        std::copy(bytes.begin(), bytes.end(), guid_.begin());
        return "";
    }
    return "the USB dock has no '" + verb + "'";
}

static std::string joined(const std::array<uint8_t, 5>& values)
{
    std::string out;
    for (uint8_t v : values)
        out += (out.empty() ? "" : ",") + std::to_string(v);
    return out;
}

StateFields UsbDock::state() const
{
    return {{"diskpack", diskpackIn_ ? "in" : "out"},
            {"writeprotect", writeProtect_ ? "1" : "0"},
            {"button", button_ ? "down" : "up"},
            {"power", power_ ? "1" : "0"},
            {"diskpack-temp", std::to_string(diskpackTemp_)},
            {"led", joined(led_)},
            {"ledlit", ledLit_ ? "1" : "0"},
            {"dockled", joined(dockLed_)},
            {"upgrades", std::to_string(upgrades_)}};
}

const std::vector<uint8_t>* UsbDock::memory(const std::string& name) const
{
    return name == "eeprom" ? &eeprom_ : nullptr;
}

} // namespace docksim
