#include "docksim/dock.h"

namespace docksim {

Dock::Dock(int index, DockConfig config) : index_(index), config_(std::move(config))
{
    std::string error;
    for (const std::string& f : config_.faults)
        faults_.apply(f, usb(), error); // checked when the options were read
}

void Dock::plug(Registry& registry)
{
    if (!plugged())
        topEntries_ = publish(registry);
}

void Dock::unplug(Registry& registry)
{
    for (int id : topEntries_)
        registry.remove(id);
    topEntries_.clear();
}

std::string Dock::diskSerial(int disk) const
{
    return "SIMDISK" + std::to_string(index_) + std::to_string(disk) + "Z" + std::to_string(config_.id);
}

bool parseOnOff(const std::string& text, const char* on, const char* off, bool& value)
{
    if (text != on && text != off)
        return false;
    value = text == on;
    return true;
}

std::string hexDigits(unsigned value, int digits)
{
    static const char kDigits[] = "0123456789ABCDEF";
    std::string out(static_cast<std::size_t>(digits), '0');
    for (int i = digits - 1; i >= 0; --i, value >>= 4)
        out[static_cast<std::size_t>(i)] = kDigits[value & 0xF];
    return out;
}

std::string hexBytes(const uint8_t* data, std::size_t size)
{
    std::string out;
    for (std::size_t i = 0; i < size; ++i)
        out += hexDigits(data[i], 2);
    return out;
}

bool parseHexBytes(const std::string& text, std::vector<uint8_t>& out)
{
    if (text.empty() || text.size() % 2)
        return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        int v = 0;
        for (char c : text.substr(i, 2)) {
            const int d = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
                        : (c >= 'A' && c <= 'F') ? c - 'A' + 10 : (c >= 'a' && c <= 'f') ? c - 'a' + 10 : -1;
            if (d < 0)
                return false;
            v = v * 16 + d;
        }
        out.push_back(static_cast<uint8_t>(v));
    }
    return true;
}

} // namespace docksim
