// What the two emulators, boardsim and docksim, share: how they print a line,
// how they are told to stop, and how they read a number on a control line.
// Like them it shares nothing with the product.
#pragma once

#include <string>

namespace simcore {

// One line on standard output, flushed at once: a test or a script waits on
// these lines.
void printLine(const std::string& line);

// Has SIGINT, SIGTERM and SIGHUP write to a pipe, and returns the pipe's read
// end for the emulator's poll loop to watch (-1 when no pipe could be made).
// SIGPIPE is ignored: a client that goes away must not kill the emulator
// before it has cleaned up its devices.
int stopFdOnSignals();

// A decimal number in [lo, hi], with an optional sign; false when `text` is
// not one.
bool parseDecimal(const std::string& text, long lo, long hi, int& value);

} // namespace simcore
