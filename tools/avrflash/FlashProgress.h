#pragma once

#include <juce_core/juce_core.h>

#include <cstdio>
#include <functional>

/** Shows how a pass over the flash is going: pages done, throughput and time
    left. On a terminal one bar is redrawn in place; otherwise (a log, a pipe)
    a plain line is written at every tenth of the pass, so a log stays short. */
class FlashProgress
{
public:
    /** Seconds from any fixed origin; tests drive their own. */
    using Clock = std::function<double()>;

    FlashProgress(FILE* out, bool terminal, Clock clock = {});

    void begin(const juce::String& phase, int totalPages, int pageSize);
    void pageDone();
    /** A line of its own that does not break the bar. */
    void note(const juce::String& text);
    /** Closes the pass with its totals. */
    void end();

    /** "120/480 pages, 1.2 KiB/s, 1:02 left" for the pass so far. */
    juce::String status() const;

    static juce::String formatRate(double bytesPerSecond);
    static juce::String formatDuration(double seconds);

private:
    void redraw(bool force);
    void clearBar();

    FILE* out;
    bool terminal;
    Clock clock;

    juce::String phase;
    int total = 0, done = 0, pageSize = 0;
    double started = 0, lastDrawn = -1;
    int lastTenth = 0;
    bool barShown = false;
};
