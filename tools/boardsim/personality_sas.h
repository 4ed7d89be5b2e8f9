// The personalities of the two boards with a SAS expander behind them.
#pragma once

#include <memory>
#include <string>

#include "boardsim/personality.h"

namespace boardsim {

// Desktop transfer station, board letter t.
std::unique_ptr<Personality> makeDesktopPersonality(const BoardInfo& info);
// Xfer drive dual (two diskpacks), board letter u.
std::unique_ptr<Personality> makeXferDualPersonality(const BoardInfo& info);

// Their control lines, for --help.
std::string sasBoardControlHelp();

} // namespace boardsim
