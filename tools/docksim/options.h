// The docksim command line.
#pragma once

#include <string>
#include <vector>

namespace docksim {

struct DockConfig {
    char kind = 0;                   // 's' USB 3.0 dock, 'm' Thunderbolt single, 'n' Thunderbolt CD2
    int id = 0;                      // answered to "@" (Thunderbolt)
    std::string version = "1.0.0";   // firmware version; "A.B.C" for the USB dock
    std::vector<std::string> faults; // FAULT settings, applied in order
    bool twin = false;               // USB: publish a second driver service for the same device
};

struct Options {
    std::string socket;
    bool log = false;
    bool help = false;
    std::vector<DockConfig> docks;
};

// Parses the arguments after the program name. False with `error` set on
// anything the user must fix (the caller exits with status 2).
bool parseOptions(const std::vector<std::string>& args, Options& options, std::string& error);

// "A.B.C", each part 0..255, into three bytes; false otherwise.
bool parseUsbVersion(const std::string& text, unsigned char out[3]);

std::string usageText();

} // namespace docksim
