#include "docksim/control_lines.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <vector>

#include "docksim/emulator.h"

namespace docksim {

namespace {

enum class Kind { Quit, Plug, Unplug, Fault, Check, Dock };

struct Verb {
    const char* name;
    std::size_t args; // after the optional dock index
    Kind kind;
    const char* usage;
    const char* help;
};

const Verb kVerbs[] = {
    {"diskpack", 1, Kind::Dock, "diskpack [D] in|out|fault",
     "a diskpack comes or goes (USB: status;\n"
     "                                Thunderbolt: i event); fault: in and faulty\n"
     "                                (Thunderbolt)"},
    {"button", 1, Kind::Dock, "button [D] down|up", "the eject button (USB: status; Thunderbolt: b)"},
    {"dock-temp", 1, Kind::Dock, "dock-temp [D] DEGREES", "Thunderbolt: dock temperature (t event after T1)"},
    {"diskpack-temp", 1, Kind::Dock, "diskpack-temp [D] DEGREES",
     "diskpack temperature (USB: status;\n"
     "                                Thunderbolt: p event after P1)"},
    {"led", 1, Kind::Dock, "led [D] on|off", "the diskpack LED lit (USB: status; single: l)"},
    {"fan", 1, Kind::Dock, "fan [D] SPEED", "CD2: the fan speed 0..255 (j event)"},
    {"event", 1, Kind::Dock, "event [D] TEXT", "Thunderbolt: queue TEXT (one word) as an event"},
    {"rail", 2, Kind::Dock, "rail [D] R MV", "what voltage rail R reads, in millivolts"},
    {"diskpack-id", 1, Kind::Dock, "diskpack-id [D] ID", "the diskpack id the dock answers, 0..15"},
    {"guid", 1, Kind::Dock, "guid [D] HEX", "the diskpack GUID the dock answers, 8 bytes"},
    {"unplug", 0, Kind::Unplug, "unplug [D]",
     "the dock goes: its entries leave the registry;\n"
     "                                USB calls complete \"not attached\", Thunderbolt\n"
     "                                set_properties fails"},
    {"plug", 0, Kind::Plug, "plug [D]", "the dock comes back, with new entry numbers"},
    {"fault", 1, Kind::Fault, "fault [D] FAULT", "add a fault (below); 'fault [D] clear' ends all"},
    {"check", 2, Kind::Check, "check [D] FIELD VALUE",
     "ok when the dock's FIELD reads VALUE;\n"
     "                                eeprom:ADDR and flash:ADDR (ADDR hex) compare\n"
     "                                memory with VALUE's hex bytes; a wrong FIELD\n"
     "                                lists the fields"},
    {"quit", 0, Kind::Quit, "quit", "remove the socket and exit (also on stdin\n"
     "                                EOF, SIGINT, SIGTERM)"},
};

std::vector<std::string> words(const std::string& line)
{
    std::istringstream in(line);
    std::vector<std::string> out;
    for (std::string w; in >> w;)
        out.push_back(w);
    return out;
}

} // namespace

std::string ControlLines::run(const std::string& line)
{
    const std::vector<std::string> w = words(line);
    if (w.empty())
        return "error: empty command";
    const auto* verb = std::find_if(std::begin(kVerbs), std::end(kVerbs), [&](const Verb& v) { return w[0] == v.name; });
    if (verb == std::end(kVerbs))
        return "error: unknown command '" + w[0] + "'";
    std::vector<std::string> args(w.begin() + 1, w.end());
    std::size_t dock = 0;
    if (verb->kind != Kind::Quit && args.size() == verb->args + 1) {
        int index = 0;
        if (!parseDecimal(args[0], 0, static_cast<int>(emulator_.dockCount()) - 1, index))
            return "error: no dock '" + args[0] + "'";
        dock = static_cast<std::size_t>(index);
        args.erase(args.begin());
    }
    if (args.size() != verb->args)
        return std::string("error: usage: ") + verb->usage;

    std::string error;
    switch (verb->kind) {
    case Kind::Quit:
        quit_ = true;
        break;
    case Kind::Unplug:
        emulator_.unplug(dock);
        break;
    case Kind::Plug:
        emulator_.plug(dock);
        break;
    case Kind::Fault:
        emulator_.dock(dock).faults().apply(args[0], emulator_.dock(dock).usb(), error);
        break;
    case Kind::Check:
        error = check(dock, args[0], args[1]);
        break;
    case Kind::Dock: {
        std::string joined = args[0];
        for (std::size_t i = 1; i < args.size(); ++i)
            joined += " " + args[i];
        error = emulator_.dock(dock).control(verb->name, joined);
        break;
    }
    }
    return error.empty() ? "ok" : "error: " + error;
}

std::string ControlLines::check(std::size_t index, const std::string& field, const std::string& value)
{
    Dock& dock = emulator_.dock(index);
    const auto colon = field.find(':');
    if (colon != std::string::npos) {
        const std::vector<uint8_t>* memory = dock.memory(field.substr(0, colon));
        std::vector<uint8_t> address, want;
        const std::string digits = field.substr(colon + 1);
        const std::string addressText = std::string(digits.size() % 2, '0') + digits; // whole bytes
        if (!memory)
            return "check: this dock has no memory '" + field.substr(0, colon) + "'";
        if (!parseHexBytes(addressText, address) || address.size() > 3 || !parseHexBytes(value, want))
            return "check: " + field.substr(0, colon) + ":ADDR takes a hex address and hex bytes";
        std::size_t at = 0;
        for (uint8_t b : address)
            at = at * 256 + b;
        if (at + want.size() > memory->size())
            return "check: past the end of " + field.substr(0, colon);
        const std::vector<uint8_t> got(memory->begin() + static_cast<long>(at),
                                       memory->begin() + static_cast<long>(at + want.size()));
        return got == want ? "" : "check: " + field + " is " + hexBytes(got.data(), got.size()) + ", not " + value;
    }
    std::string known;
    for (const auto& [name, current] : dock.state()) {
        if (name == field)
            return current == value ? "" : "check: " + field + " is " + current + ", not " + value;
        known += " " + name;
    }
    return "check: no field '" + field + "'; fields:" + known + " eeprom:ADDR" + (dock.usb() ? "" : " flash:ADDR");
}

std::string ControlLines::help()
{
    std::string out;
    for (const Verb& v : kVerbs) {
        std::string usage = std::string("  ") + v.usage;
        usage.resize(32, ' ');
        out += usage + v.help + "\n";
    }
    return out;
}

} // namespace docksim
