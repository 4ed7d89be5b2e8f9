#pragma once

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
