#pragma once

#include <cstdint>

/** The serial link test on numbered port `port`: on the terminal port a
    plain terminal until Ctrl-A, then (and on every other port) a throughput
    test until Ctrl-C. Returns the exit status. */
int runLinkTest(int port);

namespace LinkTest
{
    /** The port that starts in terminal mode. */
    constexpr int terminalPort = 5;
    /** Characters a pass is taken to send, scaled to milliseconds. */
    constexpr uint32_t charsPerPassTimesMs = 26000000u;
    constexpr int writesPerPass = 1001;

    /** Characters a second for one pass. A pass shorter than a millisecond
        counts as one millisecond rather than dividing by zero. */
    uint32_t rate(uint32_t elapsedMs);
}
