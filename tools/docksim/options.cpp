#include "docksim/options.h"

#include <cstdlib>

#include "docksim/control_lines.h"
#include "docksim/faults.h"

namespace docksim {

bool parseUsbVersion(const std::string& text, unsigned char out[3])
{
    std::size_t pos = 0;
    for (int part = 0; part < 3; ++part) {
        const std::size_t start = pos;
        int value = 0;
        while (pos < text.size() && text[pos] >= '0' && text[pos] <= '9' && pos - start < 3)
            value = value * 10 + (text[pos++] - '0');
        if (pos == start || value > 255)
            return false;
        out[part] = static_cast<unsigned char>(value);
        if (part < 2 && (pos >= text.size() || text[pos++] != '.'))
            return false;
    }
    return pos == text.size();
}

static bool printable(const std::string& text)
{
    for (unsigned char c : text)
        if (c < 0x20 || c >= 0x7f)
            return false;
    return !text.empty();
}

bool parseOptions(const std::vector<std::string>& args, Options& options, std::string& error)
{
    Options out;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        std::string v;
        auto value = [&] {
            if (i + 1 >= args.size()) {
                error = arg + " needs a value";
                return false;
            }
            v = args[++i];
            return true;
        };
        auto current = [&]() -> DockConfig* {
            if (out.docks.empty())
                error = arg + " must follow a --dock";
            return out.docks.empty() ? nullptr : &out.docks.back();
        };
        DockConfig* dock = nullptr;
        if (arg == "--help" || arg == "-h") {
            out.help = true;
        } else if (arg == "--log") {
            out.log = true;
        } else if (arg == "--socket") {
            if (!value())
                return false;
            out.socket = v;
        } else if (arg == "--dock") {
            if (!value())
                return false;
            if (v != "s" && v != "m" && v != "n") {
                error = "unknown dock type '" + v + "' (s, m or n)";
                return false;
            }
            out.docks.emplace_back();
            out.docks.back().kind = v[0];
        } else if (arg == "--id") {
            if (!(dock = current()) || !value())
                return false;
            if (v.size() != 1 || v[0] < '0' || v[0] > '9') {
                error = "--id takes one decimal digit, not '" + v + "'";
                return false;
            }
            dock->id = v[0] - '0';
        } else if (arg == "--version") {
            if (!(dock = current()) || !value())
                return false;
            dock->version = v;
        } else if (arg == "--twin") {
            if (!(dock = current()))
                return false;
            dock->twin = true;
        } else if (arg == "--fault") {
            if (!(dock = current()) || !value())
                return false;
            Faults scratch;
            if (!scratch.apply(v, dock->kind == 's', error))
                return false;
            dock->faults.push_back(v);
        } else {
            error = "unknown option '" + arg + "'";
            return false;
        }
    }
    if (!out.help) {
        if (out.socket.empty()) {
            error = "--socket is required";
            return false;
        }
        if (out.docks.empty()) {
            error = "at least one --dock is required";
            return false;
        }
        for (const DockConfig& d : out.docks) {
            unsigned char bytes[3];
            if (d.kind == 's' ? !parseUsbVersion(d.version, bytes) : !printable(d.version)) {
                error = "--version '" + d.version + "': " +
                        (d.kind == 's' ? "the USB dock's is A.B.C, each 0..255" : "use printable ASCII");
                return false;
            }
            if (d.twin && d.kind != 's') {
                error = "--twin applies to a USB dock (s) only";
                return false;
            }
        }
    }
    options = std::move(out);
    return true;
}

std::string usageText()
{
    return std::string(
               "Usage: docksim --socket PATH [--log]\n"
               "               --dock s|m|n [--id N] [--version TEXT] [--fault FAULT]...\n"
               "                            [--twin]\n"
               "               [--dock ...]...\n"
               "\n"
               "Emulates the docks' drivers behind a Unix socket (docs/docksim.md has the\n"
               "protocol). Each --dock adds a dock; the options after it apply to it.\n"
               "\n"
               "  --socket PATH   where to listen; the file is removed again on exit\n"
               "  --log           print each USB command block received as 'cdb HEX' and each\n"
               "                  Thunderbolt command as 'tbt D COMMAND' (D: the dock's index)\n"
               "  --dock s        USB 3.0 Transfer Dock (com_tarvoworks_driver_usbDockDriver)\n"
               "  --dock m        Thunderbolt Single Dock (com_tarvoworks_driver_TbtDockDriver)\n"
               "  --dock n        Thunderbolt CD2 Dock (same class)\n"
               "  --id N          dock id, one digit, answered to \"@\" as R<N> (default 0)\n"
               "  --version TEXT  firmware version (default 1.0.0; the USB dock's is A.B.C)\n"
               "  --twin          USB: a second driver service with the same locationID\n"
               "  --fault FAULT   misbehave as FAULT says (below); may be repeated\n"
               "\n"
               "Once listening, 'ready' is printed on stdout. Control lines are then read\n"
               "from stdin, one per line; each gets 'ok' or 'error: WHY' on stdout. D is a\n"
               "dock's index (from 0) and may be left out for dock 0.\n") +
           ControlLines::help() +
           "\nFaults:\n" + Faults::help() +
           "\nExit status: 0 after quit or stdin EOF, 1 if the socket could not be made,\n"
           "2 on bad usage.\n";
}

} // namespace docksim
