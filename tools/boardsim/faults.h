// Misbehaviour a board can be told to show, so the product's error handling
// can be exercised without flaky hardware.
#pragma once

#include <optional>
#include <random>
#include <string>

namespace boardsim {

struct Faults {
    unsigned nackEvery = 0;  // answer every Nth command with "N"
    unsigned dropEvery = 0;  // answer every Nth command with nothing
    std::optional<std::string> junkBefore; // a line sent before each reply
    std::optional<unsigned char> highbitBefore; // a byte (+ "\r\n") sent before each reply
    unsigned delayMs = 0;    // wait before each reply
    unsigned nackIdentify = 0; // "?" requests still to be refused
    unsigned baud = 0;       // pace everything sent at this rate; 0 = as fast as possible
    // The bootloader's page requests; each counts down as it is used.
    unsigned refuseWrites = 0; // page writes still to refuse with "N"
    unsigned corruptReads = 0; // page reads still to answer with a wrong checksum
    unsigned stallReads = 0;   // page reads still to break off mid-page
    // random=SEED:PERCENT and events=PERCENT draw from `rng`, so one seed
    // replays the same run command for command.
    unsigned randomPercent = 0; // commands that get one fault from RandomFault
    unsigned eventPercent = 0;  // chance of a numbered event before, and another after, a reply
    std::mt19937 rng;
    bool babble = false;        // send event lines back to back, without end

    bool any() const;
};

// The faults random=SEED:PERCENT picks from, equally likely.
enum class RandomFault { Nack, Drop, Junk, Highbit, Delay };
constexpr unsigned kRandomFaultKinds = 5;
// Past the product's 500 ms wait for a character.
constexpr unsigned kRandomDelayMs = 700;
// The line the junk fault sends: upper-case, yet neither "OK", "N" nor a response.
constexpr const char* kRandomJunkLine = "JUNK";

// Applies one FAULT ("nack-every=3", "highbit-before", "clear", ...) to
// `faults`. On error `faults` is unchanged and `error` says why.
bool applyFaultSetting(Faults& faults, const std::string& setting, std::string& error);

// One line per FAULT form, for --help.
const char* faultSettingHelp();

} // namespace boardsim
