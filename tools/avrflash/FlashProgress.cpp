#include "FlashProgress.h"

namespace
{
constexpr int barWidth = 24;
constexpr double redrawInterval = 0.1;
}

FlashProgress::FlashProgress(FILE* output, bool isTerminal, Clock c)
    : out(output), terminal(isTerminal), clock(std::move(c))
{
    if (!clock)
        clock = [] { return juce::Time::getMillisecondCounterHiRes() / 1000.0; };
}

juce::String FlashProgress::formatRate(double bytesPerSecond)
{
    if (bytesPerSecond < 1024.0)
        return juce::String(juce::roundToInt(bytesPerSecond)) + " B/s";
    return juce::String(bytesPerSecond / 1024.0, 1) + " KiB/s";
}

juce::String FlashProgress::formatDuration(double seconds)
{
    const int s = juce::jmax(0, juce::roundToInt(seconds));
    if (s >= 3600)
        return juce::String::formatted("%d:%02d:%02d", s / 3600, (s / 60) % 60, s % 60);
    return juce::String::formatted("%d:%02d", s / 60, s % 60);
}

void FlashProgress::begin(const juce::String& name, int totalPages, int bytesPerPage)
{
    phase = name;
    total = totalPages;
    pageSize = bytesPerPage;
    done = 0;
    lastTenth = 0;
    started = clock();
    lastDrawn = -1;
    if (terminal)
        redraw(true);
}

juce::String FlashProgress::status() const
{
    const double elapsed = clock() - started;
    juce::String text = juce::String(done) + "/" + juce::String(total) + " pages";
    if (done == 0 || elapsed <= 0)
        return text + ", -- B/s, --:-- left";
    text << ", " << formatRate(done * (double) pageSize / elapsed);
    text << ", " << formatDuration(elapsed * (total - done) / done) << " left";
    return text;
}

void FlashProgress::pageDone()
{
    ++done;
    if (terminal)
    {
        redraw(done == total);
        return;
    }
    const int tenth = total > 0 ? done * 10 / total : 10;
    if (tenth > lastTenth && done < total)
    {
        lastTenth = tenth;
        std::fprintf(out, "%s: %s\n", phase.toRawUTF8(), status().toRawUTF8());
        std::fflush(out);
    }
}

void FlashProgress::note(const juce::String& text)
{
    clearBar();
    std::fprintf(out, "%s\n", text.toRawUTF8());
    if (terminal)
        redraw(true);
    std::fflush(out);
}

void FlashProgress::end()
{
    const double elapsed = clock() - started;
    clearBar();
    juce::String line = phase + ": " + juce::String(done) + "/" + juce::String(total) + " pages in "
                        + formatDuration(elapsed);
    if (done > 0 && elapsed > 0)
        line << ", " << formatRate(done * (double) pageSize / elapsed);
    std::fprintf(out, "%s\n", line.toRawUTF8());
    std::fflush(out);
}

void FlashProgress::redraw(bool force)
{
    const double now = clock();
    if (!force && lastDrawn >= 0 && now - lastDrawn < redrawInterval)
        return;
    lastDrawn = now;
    const int filled = total > 0 ? done * barWidth / total : barWidth;
    const juce::String bar = juce::String::repeatedString("#", filled) + juce::String::repeatedString(".", barWidth - filled);
    std::fprintf(out, "\r%-9s [%s] %s\x1b[K", phase.toRawUTF8(), bar.toRawUTF8(), status().toRawUTF8());
    std::fflush(out);
    barShown = true;
}

void FlashProgress::clearBar()
{
    if (barShown)
        std::fprintf(out, "\r\x1b[K");
    barShown = false;
}
