// The control lines a test (or a person) types on docksim's stdin to make
// the docks do what real ones do on their own, or to look at their state.
//
// "VERB [D] ARGS": D is a dock's index and may be left out for dock 0. Each
// argument is one word; a line is answered "ok" or "error: WHY".
#pragma once

#include <string>

namespace docksim {

class Emulator;

class ControlLines {
public:
    explicit ControlLines(Emulator& emulator) : emulator_(emulator) {}

    std::string run(const std::string& line);
    bool quitRequested() const { return quit_; }

    static std::string help();

private:
    std::string check(std::size_t dock, const std::string& field, const std::string& value);

    Emulator& emulator_;
    bool quit_ = false;
};

} // namespace docksim
