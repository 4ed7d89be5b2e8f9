#pragma once

/** The dock's measured supply rails; the number is what the dock firmware
    takes as the rail selector. */
enum class XferDockVoltageRail : int
{
    supply12V = 0,
    diskpack3V3 = 1
};
