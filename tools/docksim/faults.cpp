#include "docksim/faults.h"

#include <cstdlib>

namespace docksim {

namespace {

struct FaultInfo {
    Fault fault;
    const char* name;
    bool usb; // false: Thunderbolt
    const char* help;
};

const FaultInfo kFaults[] = {
    {Fault::InvalidDest, "invalid-dest", true, "the next async call fails with 0x10000003, no completion"},
    {Fault::NotAttached, "not-attached", true, "the next completion's result is 0xE00002D9, no data"},
    {Fault::IoError, "io-error", true, "the next completion's result is 0xE00002BC, no data"},
    {Fault::NoReply, "no-reply", true, "no completion for the next async call (its result 0)"},
    {Fault::WrongSubcode, "wrong-subcode", true, "the next reply's byte 0 is the subcode XOR 0x80"},
    {Fault::Late, "late", true, "the next completion comes 1500 ms after the call"},
    {Fault::EepromFlip, "eeprom-flip", true, "the next EEPROM read (0x0C) has its first byte inverted"},
    {Fault::EepromReadFail, "eeprom-read-fail", true, "the next EEPROM read (0x0C) completes with 0xE00002BC"},
    {Fault::Nack, "nack", false, "the next command is answered \"N\" and not carried out"},
    {Fault::NoReply, "no-reply", false, "the next command is not carried out; \"reply\" stays"},
    {Fault::PropertyRead, "property-read", false, "get_properties of the driver fails (0xE00002BC)"},
    {Fault::NoHostComms, "no-hostcomms", false, "get_properties of the driver lacks \"HostComms\""},
    {Fault::EepromFlip, "eeprom-flip", false, "the next EEPROM read (R) has its first byte inverted"},
    {Fault::EepromReadFail, "eeprom-read-fail", false, "the next EEPROM read (R) is answered \"N\""},
};

} // namespace

bool Faults::apply(const std::string& setting, bool usb, std::string& error)
{
    if (setting == "clear") {
        left_ = {};
        return true;
    }
    const auto eq = setting.find('=');
    const std::string name = setting.substr(0, eq);
    int count = 1;
    if (eq != std::string::npos) {
        const std::string value = setting.substr(eq + 1);
        char* end = nullptr;
        const long n = std::strtol(value.c_str(), &end, 10);
        if (value == "always") {
            count = kUntilCleared;
        } else if (value.empty() || *end || value[0] == '-' || value[0] == '+' || n < 1 || n > 1000000) {
            error = "fault '" + name + "' takes =N (1..1000000) or =always";
            return false;
        } else {
            count = static_cast<int>(n);
        }
    }
    bool otherKind = false;
    for (const FaultInfo& info : kFaults) {
        if (name != info.name)
            continue;
        if (info.usb != usb) {
            otherKind = true;
            continue;
        }
        left_[static_cast<int>(info.fault)] = count;
        return true;
    }
    error = otherKind ? "fault '" + name + "' does not apply to a " + (usb ? "USB" : "Thunderbolt") + " dock"
                      : "unknown fault '" + name + "'";
    return false;
}

bool Faults::take(Fault fault)
{
    int& left = left_[static_cast<int>(fault)];
    if (left == 0)
        return false;
    if (left > 0)
        --left;
    return true;
}

std::string Faults::help()
{
    std::string out;
    for (bool usb : {true, false}) {
        out += usb ? "  USB dock (s):\n" : "  Thunderbolt docks (m, n):\n";
        for (const FaultInfo& info : kFaults)
            if (info.usb == usb) {
                std::string name = info.name;
                name.resize(18, ' ');
                out += "    " + name + info.help + "\n";
            }
    }
    out += "  FAULT applies once; FAULT=N to the next N requests it spoils; FAULT=always\n"
           "  until 'clear', which removes every fault of the dock. When several USB\n"
           "  faults are pending, the first in the list above spoils the call.\n";
    return out;
}

} // namespace docksim
