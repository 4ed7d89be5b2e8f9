#pragma once

#include <climits>

/** The mode of one diskpack LED, as the boards take it: a 2-bit field placed
    unchanged into the LED state byte they are sent.

    The underlying type is fixed so that any number typed at the console can be
    carried through as a mode; the boards do not mask it, so an out-of-range
    value spills into the neighbouring LED's field exactly as it would on the
    wire. */
enum DiskpackLedMode : int
{
    diskpackLedOff = 0,
    diskpackLedOn = 1,
    diskpackLedFlashSlow = 2,
    diskpackLedFlashFast = 3
};

/** The LED state byte of a one-slot board with `which`'s field (0: bits 0-1,
    any other: bits 2-3) cleared and `mode` shifted into it unmasked, so that
    the board gets what the caller gave, spilling into the next field if need
    be. Multiplying rather than shifting keeps a negative mode defined; false
    when the shifted mode does not fit an int. */
inline bool placeDiskpackLedMode(int state, int which, DiskpackLedMode mode, int& updated)
{
    const int field = which == 0 ? 1 : 4;
    const long long placed = (long long) mode * field;
    if (placed < INT_MIN || placed > INT_MAX)
        return false;
    updated = (state & ~(3 * field)) | (int) placed;
    return true;
}
