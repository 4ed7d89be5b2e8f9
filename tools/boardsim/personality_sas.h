// The personalities of the two boards with a SAS expander behind them, and
// what they share: the expander, its control lines and the way "check" reads
// their state.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "boardsim/personality_serial.h"
#include "boardsim/sas_expander.h"

namespace boardsim {

// Desktop transfer station, board letter t.
std::unique_ptr<Personality> makeDesktopPersonality(const BoardInfo& info);
// Xfer drive dual (two diskpacks), board letter u.
std::unique_ptr<Personality> makeXferDualPersonality(const BoardInfo& info);

// Their control lines, for --help.
std::string sasBoardControlHelp();

// A board that passes "E" frames to its expander. Its control lines take
// numbers in decimal or 0x hex; "check B KEY VALUE" compares a number, and
// "phyerrors B PHY N" sets an expander PHY's error counter.
class SasBoard : public serial::LetterBoard {
public:
    SasBoard(BoardInfo info, std::unique_ptr<SasExpander> expander);

    // Enabled temperature events repeat at this pace.
    std::chrono::milliseconds tickInterval() const override { return std::chrono::milliseconds(2000); }

    bool control(const std::string& verb, const std::string& args, Replier& out, std::string& error) override;

protected:
    SasExpander& expander() { return *expander_; }
    const SasExpander& expander() const { return *expander_; }

    bool check(const std::string& args, std::string& error) const override;
    // The value of a state KEY, split at its dots, that is not an expander's
    // (resets, rate.PHY, errors.PHY, held.PHY). False for no such key.
    virtual bool boardState(const std::vector<std::string>& key, long long& value) const = 0;

private:
    std::unique_ptr<SasExpander> expander_;
};

} // namespace boardsim
