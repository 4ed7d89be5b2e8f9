#include "boardsim/options.h"

#include <set>
#include <sys/stat.h>

#include "boardsim/faults.h"
#include "boardsim/personality.h"
#include "boardsim/personality_sas.h"
#include "boardsim/personality_serial.h"

namespace boardsim {

std::string defaultBoardName(std::size_t index, char letter, int id)
{
    return "SIM" + std::to_string(index) + letter + std::to_string(id);
}

static bool validName(const std::string& name)
{
    if (name.empty() || name.size() > 64)
        return false;
    for (char c : name) {
        const bool ok = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                        c == '.' || c == '_' || c == '-';
        if (!ok)
            return false;
    }
    return true;
}

static bool printable(const std::string& text)
{
    for (unsigned char c : text)
        if (c < 0x20 || c == 0x7f)
            return false;
    return true;
}

bool parseOptions(const std::vector<std::string>& args, Options& options, std::string& error)
{
    Options out;
    std::vector<bool> named;
    for (std::size_t i = 0; i < args.size(); ++i) {
        const std::string& arg = args[i];
        auto value = [&](std::string& v) {
            if (i + 1 >= args.size()) {
                error = arg + " needs a value";
                return false;
            }
            v = args[++i];
            return true;
        };
        auto current = [&]() -> BoardConfig* {
            if (out.boards.empty()) {
                error = arg + " must follow a --board";
                return nullptr;
            }
            return &out.boards.back();
        };
        std::string v;
        if (arg == "--help" || arg == "-h") {
            out.help = true;
        } else if (arg == "--log") {
            out.log = true;
        } else if (arg == "--verbose") {
            out.verbose = true;
        } else if (arg == "--fault-log") {
            if (!value(out.faultLog))
                return false;
        } else if (arg == "--dir") {
            if (!value(out.dir))
                return false;
        } else if (arg == "--board") {
            if (!value(v))
                return false;
            if (v.size() != 1 || identityForLetter(v[0]).empty()) {
                error = "unknown board letter '" + v + "'";
                return false;
            }
            BoardConfig b;
            b.letter = v[0];
            out.boards.push_back(b);
            named.push_back(false);
        } else if (arg == "--id") {
            BoardConfig* b = current();
            if (!b || !value(v))
                return false;
            if (v.size() != 1 || v[0] < '0' || v[0] > '9') {
                error = "--id takes one decimal digit, not '" + v + "'";
                return false;
            }
            b->id = v[0] - '0';
        } else if (arg == "--version") {
            BoardConfig* b = current();
            if (!b || !value(v))
                return false;
            if (v.empty() || !printable(v)) {
                error = "--version needs printable text";
                return false;
            }
            b->version = v;
        } else if (arg == "--name") {
            BoardConfig* b = current();
            if (!b || !value(v))
                return false;
            if (!validName(v)) {
                error = "--name '" + v + "': use letters, digits, '.', '_' and '-' only";
                return false;
            }
            b->name = v;
            named.back() = true;
        } else if (arg == "--bootloader") {
            BoardConfig* b = current();
            if (!b)
                return false;
            b->bootloader = true;
        } else if (arg == "--fault") {
            BoardConfig* b = current();
            if (!b || !value(v))
                return false;
            Faults scratch;
            if (!applyFaultSetting(scratch, v, error))
                return false;
            b->faults.push_back(v);
        } else {
            error = "unknown option '" + arg + "'";
            return false;
        }
    }
    if (out.help) {
        options = std::move(out);
        return true;
    }
    if (out.dir.empty()) {
        error = "--dir is required";
        return false;
    }
    struct stat st {};
    if (stat(out.dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
        error = "--dir " + out.dir + " is not an existing directory";
        return false;
    }
    if (out.boards.empty()) {
        error = "at least one --board is required";
        return false;
    }
    std::set<std::string> names;
    for (std::size_t k = 0; k < out.boards.size(); ++k) {
        BoardConfig& b = out.boards[k];
        if (!named[k]) {
            if (k > 9) {
                error = "board " + std::to_string(k) + " needs a --name: default names have room for 10 boards";
                return false;
            }
            b.name = defaultBoardName(k, b.letter, b.id);
        }
        if (!names.insert(b.name).second) {
            error = "two boards are named '" + b.name + "'";
            return false;
        }
    }
    options = std::move(out);
    return true;
}

std::string usageText()
{
    std::string letters;
    for (char c : knownBoardLetters())
        letters += std::string("                  ") + c + "  " + identityForLetter(c) + "\n";
    return std::string(
               "Usage: boardsim --dir DIR [--log] [--verbose] [--fault-log FILE]\n"
               "                --board LETTER [--id N] [--version TEXT] [--name NAME] [--bootloader]\n"
               "                [--fault FAULT]...\n"
               "                [--board ...]...\n"
               "\n"
               "Emulates serial boards on pseudo-terminals. Each board is published as the\n"
               "symlink DIR/tty.usbserial-NAME to its pty. Each --board starts a new board;\n"
               "the options after it apply to that board.\n"
               "\n"
               "  --dir DIR       existing directory for the symlinks (required)\n"
               "  --log           print each received command line on stdout as 'rx B LINE'\n"
               "                  (B is the board index; control characters, bytes >= 0x80 and\n"
               "                  '\\' are written as \\xHH)\n"
               "  --verbose       report what the boards send and the faults applied on stderr\n"
               "  --fault-log FILE\n"
           "                  write one line per command line a board receives, as\n"
           "                  'B SEQ FAULT BEFORE AFTER LINE': B the board index, SEQ the\n"
           "                  command's number on that board (from 1, discovery requests\n"
           "                  included), FAULT what was done to it (none, nack, drop, junk,\n"
           "                  highbit, delay, joined by '+' where several met), BEFORE and\n"
           "                  AFTER the numbers N of the events eN sent before and after its\n"
           "                  reply (events=) or '-', LINE the command as --log writes it.\n"
           "                  The line is written before the reply is sent. FILE is replaced.\n"
           "  --board LETTER  board type:\n") +
           letters +
           "  --id N          board id, one digit, answered to \"@\" (default 0)\n"
           "  --version TEXT  firmware version answered to \"?\" (default V1.00)\n"
           "  --name NAME     symlink name part (default SIM<k><letter><id>, k = position\n"
           "                  of the board on the command line from 0)\n"
           "  --bootloader    start waiting in the bootloader, as a board whose update broke\n"
           "                  off does\n"
           "  --fault FAULT   misbehave as FAULT says; may be repeated:\n" +
           faultSettingHelp() +
           "\n"
           "Boards answer \"?\" with the identity and version, \"@\" with R<id>, \"!\" with OK,\n"
           "and anything else with N. They end lines with \\r\\n and keep at most 1080\n"
           "characters of a received line.\n"
           "\n"
           "\"%UP\" (answered OK) enters the bootloader, which programs and reads the\n"
           "flash page by page: \":\" PPPP, 256 data bytes and a checksum, all in hex, is\n"
           "answered Y or N; \"$\" PPPP is answered with the page and its checksum in hex;\n"
           "\"#\" restarts the application. \"?\" then answers \"(bootloader) \" and the\n"
           "identity. The flash outlives the restart.\n"
           "\n"
           "Once every link is published, 'ready' is printed on stdout. Control lines are\n"
           "then read from stdin, one per line; each gets 'ok' or 'error: WHY' on stdout.\n"
           "B is a board's index (from 0) or its name.\n"
           "  event B TEXT    send the line TEXT from board B now\n"
           "  send B HEX      send raw bytes (hex pairs, spaces allowed) from board B\n"
           "  unplug B        remove B's symlink and close its pty (the device vanishes)\n"
           "  plug B          give B a new pty and publish it under the same name\n"
           "  fault B FAULT   add a fault to B; 'fault B clear' removes them all\n"
           "  quit            remove the symlinks and exit (also on stdin EOF, SIGINT, SIGTERM)\n"
           "Other 'VERB B ARGS' lines go to board B's personality, if it knows VERB.\n"
           + serialBoardControlHelp() +
           sasBoardControlHelp() +
           "\n"
           "Exit status: 0 after quit, 1 if a pty or link could not be made, 2 on bad usage.\n";
}

} // namespace boardsim
