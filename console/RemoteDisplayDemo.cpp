#include "console/RemoteDisplayDemo.h"

#include "console/ConsoleInput.h"
#include "link/ConsoleTerminal.h"

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

namespace
{
enum : unsigned char
{
    opClear = 1,
    opFill = 2,
    opText = 3
};

constexpr int meterTop = 17;    // the clip mark's row; bars grow up from meterBottom
constexpr int meterBottom = 39;
constexpr int meterPitch = 16;
constexpr int meterWidth = 10;
constexpr int countdownAStart = 23;
constexpr int countdownBStart = 21;
constexpr int maxEntryLength = 20;
const char* const optionNames[] = { "Contrast", "Ring", "Ambient" };
constexpr int numOptions = 3;

void softKeyBar(std::vector<unsigned char>& out, int y, int font, const char* left, const char* middle,
                const char* right)
{
    const int cell = font == 0 ? 6 : 4;
    const int rowHeight = font == 0 ? 8 : 6;
    RemoteDisplayDemo::fill(out, 0, y, RemoteDisplayDemo::width, rowHeight, true);
    RemoteDisplayDemo::text(out, 1, y, font, true, left);
    if (middle != nullptr)
        RemoteDisplayDemo::text(out, 52, y, font, true, middle);
    if (right != nullptr)
        RemoteDisplayDemo::text(out, RemoteDisplayDemo::width - 1 - cell * (int) strlen(right), y, font, true, right);
}

int wrap(int value, int count)
{
    value %= count;
    return value < 0 ? value + count : value;
}
} // namespace

void RemoteDisplayDemo::send(const std::vector<unsigned char>& bytes)
{
    if (board != nullptr && !bytes.empty())
        board->graphicsCommand((int) bytes.size(), bytes.data());
}

void RemoteDisplayDemo::drawTimecode(std::vector<unsigned char>& out)
{
    char tc[16];
    snprintf(tc, sizeof tc, "%02d:%02d:%02d:%02d", timecode.hours, timecode.minutes, timecode.seconds,
             timecode.frames);
    text(out, 0, 8, 0, false, tc);
}

void RemoteDisplayDemo::drawCountdowns(std::vector<unsigned char>& out)
{
    fill(out, 72, 9, width - 72, 6, false);
    fill(out, 72, 9, countdownA * 2, 2, true);
    fill(out, 72, 13, countdownB * 2, 2, true);
}

void RemoteDisplayDemo::drawMeters(std::vector<unsigned char>& out)
{
    for (int i = 0; i < numMeters; ++i)
    {
        const Meter& m = meters[i];
        const int x = i * meterPitch + 2;
        fill(out, x, meterTop, meterWidth, meterBottom - meterTop + 1, false);
        if (m.level > 0)
            fill(out, x, meterBottom + 1 - m.level, meterWidth, m.level, true);
        if (m.peak > 0 && m.peak != m.level)
            fill(out, x, meterBottom + 1 - m.peak, meterWidth, 1, true);
        fill(out, x + meterWidth + 1, meterTop, 2, 3, m.clip);
    }
}

void RemoteDisplayDemo::drawMainScreen()
{
    std::vector<unsigned char> out;
    clear(out);
    softKeyBar(out, 0, 0, "Back", "Play", "Storage");
    drawTimecode(out);
    drawCountdowns(out);
    send(out);

    out.clear();
    drawMeters(out);
    send(out);

    out.clear();
    text(out, 0, 40, 1, false, characterSet);
    softKeyBar(out, 58, 1, "Setup", "Back", "Options");
    send(out);
}

void RemoteDisplayDemo::drawEntryField()
{
    std::vector<unsigned char> out;
    fill(out, 0, 20, width, 12, true);
    fill(out, 1, 21, width - 2, 10, false);
    text(out, 3, 22, 0, false, entered.c_str());
    const char chosen[] = { 'C', 'h', 'a', 'r', ':', ' ', characterSet[chosenChar], 0 };
    fill(out, 0, 36, width, 8, false);
    text(out, 3, 36, 0, false, chosen);
    send(out);
}

void RemoteDisplayDemo::drawTextEntryScreen()
{
    std::vector<unsigned char> out;
    clear(out);
    softKeyBar(out, 0, 0, "Text entry", nullptr, nullptr);
    softKeyBar(out, 56, 0, "Back", nullptr, "Backspace");
    send(out);
    drawEntryField();
}

void RemoteDisplayDemo::drawOptionList(uint32_t rotor)
{
    std::vector<unsigned char> out;
    for (int i = 0; i < numOptions; ++i)
    {
        const int y = 11 + i * 10;
        const bool highlighted = i == chosenOption;
        fill(out, 0, y, width, 9, highlighted);
        text(out, 4, y, 0, highlighted, optionNames[i]);
    }
    fill(out, 0, 44, width, 4, false);
    fill(out, 0, 44, (int) (rotor & 0xFF) / 2, 4, true);
    send(out);
}

void RemoteDisplayDemo::drawOptionsScreen(uint32_t rotor)
{
    std::vector<unsigned char> out;
    clear(out);
    softKeyBar(out, 0, 0, "Options", nullptr, nullptr);
    softKeyBar(out, 56, 0, "Back", nullptr, "Options");
    send(out);
    drawOptionList(rotor);
}

void RemoteDisplayDemo::openScreen(Screen next, uint32_t rotor)
{
    screen = next;
    subScreen = next != Screen::main;
    if (next == Screen::textEntry)
        drawTextEntryScreen();
    else if (next == Screen::options)
        drawOptionsScreen(rotor);
    else
        drawMainScreen();
}

//==============================================================================
void RemoteDisplayDemo::Meter::update(int randomValue)
{
    const int step = randomValue & 7;
    if (step & 1)
        level = std::min(maxLevel, level + step);
    else
        level = std::max(0, level - step);

    if (level == maxLevel && step == 7)
        clip = true;
    else if (level == 0)
        clip = false;

    if (level > peak)
    {
        peak = level;
        held = 0;
    }
    else if (++held >= peakHoldUpdates)
    {
        peak = level;
        held = 0;
    }
}

void RemoteDisplayDemo::Timecode::advance()
{
    if (++frames < 24)
        return;
    frames = 0;
    if (++seconds < 60)
        return;
    seconds = 0;
    if (++minutes < 60)
        return;
    minutes = 0;
    hours = (hours + 1) % 24;
}

void RemoteDisplayDemo::clear(std::vector<unsigned char>& out)
{
    out.push_back(opClear);
}

void RemoteDisplayDemo::fill(std::vector<unsigned char>& out, int x, int y, int w, int h, bool on)
{
    out.insert(out.end(), { opFill, (unsigned char) x, (unsigned char) y, (unsigned char) std::max(0, w),
                            (unsigned char) std::max(0, h), (unsigned char) (on ? 1 : 0) });
}

void RemoteDisplayDemo::text(std::vector<unsigned char>& out, int x, int y, int font, bool inverted, const char* s)
{
    const size_t n = std::min<size_t>(strlen(s), 255);
    out.insert(out.end(), { opText, (unsigned char) x, (unsigned char) y, (unsigned char) font,
                            (unsigned char) (inverted ? 1 : 0), (unsigned char) n });
    out.insert(out.end(), s, s + n);
}

void RemoteDisplayDemo::begin(RemoteBoard& target)
{
    const juce::ScopedLock sl(displayLock);
    board = &target;
    screen = Screen::main;
    previousKeys = 0;
    entered.clear();
    chosenChar = 0;
    chosenOption = 0;
    for (auto& m : meters)
        m = Meter();
    timecode = Timecode();
    countdownA = countdownAStart;
    countdownB = countdownBStart;
    lastTimecode = lastMeters = lastCountdown = 0;
    subScreen = false;
    drawMainScreen();
    running = true;
}

void RemoteDisplayDemo::end()
{
    const juce::ScopedLock sl(displayLock);
    running = false;
    subScreen = false;
    std::vector<unsigned char> out;
    clear(out);
    send(out);
    board = nullptr;
}

void RemoteDisplayDemo::menuEvent(uint32_t keys, uint32_t rotor, int steps)
{
    const juce::ScopedLock sl(displayLock);
    if (!running || board == nullptr)
        return;

    // The remote repeats the held keys with every rotor event: only a key
    // going down counts as a press.
    const uint32_t pressed = keys & ~previousKeys;
    previousKeys = keys;

    switch (screen)
    {
        case Screen::main:
            if (pressed & keyTextEntry)
                openScreen(Screen::textEntry, rotor);
            else if (pressed & keyOptions)
                openScreen(Screen::options, rotor);
            break;

        case Screen::textEntry:
            if (pressed & keyBack)
            {
                openScreen(Screen::main, rotor);
                break;
            }
            chosenChar = wrap(chosenChar + steps, (int) strlen(characterSet));
            if ((pressed & keySelect) && (int) entered.size() < maxEntryLength)
                entered += characterSet[chosenChar];
            if ((pressed & keyBackspace) && !entered.empty())
                entered.pop_back();
            drawEntryField();
            break;

        case Screen::options:
            if (pressed & keyBack)
            {
                openScreen(Screen::main, rotor);
                break;
            }
            chosenOption = wrap(chosenOption + steps, numOptions);
            drawOptionList(rotor);
            break;
    }
}

void RemoteDisplayDemo::animate(int64_t now)
{
    const juce::ScopedLock sl(displayLock);
    if (!running)
        return;
    if (subScreen)
    {
        // Paused: pick up from here on return instead of catching up.
        lastTimecode = lastMeters = lastCountdown = now;
        return;
    }
    if (now - lastTimecode >= 4)
    {
        lastTimecode = now;
        timecode.advance();
        std::vector<unsigned char> out;
        drawTimecode(out);
        send(out);
    }
    if (now - lastMeters >= 8)
    {
        lastMeters = now;
        for (auto& m : meters)
            m.update(std::rand());
        std::vector<unsigned char> out;
        drawMeters(out);
        send(out);
    }
    if (now - lastCountdown >= 50)
    {
        lastCountdown = now;
        countdownA = countdownA == 0 ? countdownAStart : countdownA - 1;
        countdownB = countdownB == 0 ? countdownBStart : countdownB - 1;
        std::vector<unsigned char> out;
        drawCountdowns(out);
        send(out);
    }
}

void RemoteDisplayDemo::run(RemoteBoard& target)
{
    begin(target);

    const juce::int64 ticksPerHundredth = std::max<juce::int64>(1, juce::Time::getHighResolutionTicksPerSecond() / 100);
    const juce::int64 start = juce::Time::getHighResolutionTicks();
    while (stopFlag == 0 && !kbhit())
    {
        animate((juce::Time::getHighResolutionTicks() - start) / ticksPerHundredth);
        juce::Thread::sleep(1);
    }
    if (stopFlag == 0)
        getch();

    end();
}
