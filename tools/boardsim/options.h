// The boardsim command line.
#pragma once

#include <string>
#include <vector>

namespace boardsim {

struct BoardConfig {
    char letter = 0;
    int id = 0;
    std::string version = "V1.00";
    std::string name;                // filled with the default when --name is absent
    std::vector<std::string> faults; // fault FAULTs, applied in order
    bool bootloader = false;         // start waiting in the bootloader
};

struct Options {
    std::string dir;
    bool log = false;     // report received command lines on stdout
    bool verbose = false; // report what is sent and the faults applied on stderr
    std::string faultLog; // file for one line per command received; empty for none
    bool help = false;
    std::vector<BoardConfig> boards;
};

// The default symlink name part of the board at command-line position
// `index`: SIM<index><letter><id>, so names sort in command-line order.
std::string defaultBoardName(std::size_t index, char letter, int id);

// Parses the arguments after the program name. False with `error` set on
// anything the user must fix (the caller exits with status 2).
bool parseOptions(const std::vector<std::string>& args, Options& options, std::string& error);

std::string usageText();

} // namespace boardsim
