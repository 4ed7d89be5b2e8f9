#pragma once

#include "boards/RemoteBoard.h"

#include <atomic>
#include <cstdint>
#include <string>
#include <vector>

/** The remote's display demonstration (key G of the remote menu).

    Drawing protocol. The display is 128 x 64 pixels, one bit each, origin top
    left. A graphics command carries one or more primitives back to back:

      01                        clear the whole display
      02 x y w h c              fill a rectangle with colour c (0 off, 1 on)
      03 x y f a n c1 .. cn     n characters in font f (0: 6 x 8 cells,
                                1: 4 x 6 cells), a = 1 draws them inverted;
                                text reaching the right edge wraps to the
                                next row of the same font

    Main screen: a top soft-key bar (Back, Play, Storage), the timecode, two
    count-down bars beside it, eight level meters with peak markers and clip
    marks, the character set (wrapping over three small rows) and a bottom
    soft-key bar (Setup, Back, Options).

    Keys (bit codes as the remote reports them) act when they go down: 16 opens
    the text-entry screen, 32 the options screen, 4 goes back to the main
    screen from either. In text entry the encoder moves through the character
    set, key 2 appends the chosen character and key 8 (Backspace) removes the
    last one. In the options screen the encoder moves the highlight and the
    rotor position is shown as a bar. The animation pauses while a sub-screen
    is open.

    One demonstration belongs to the remote's console session: the keystroke
    loop runs it, the session's listener feeds it the board's events. */
class RemoteDisplayDemo
{
public:
    static constexpr int width = 128;
    static constexpr int height = 64;

    static constexpr uint32_t keySelect = 2;
    static constexpr uint32_t keyBack = 4;
    static constexpr uint32_t keyBackspace = 8;
    static constexpr uint32_t keyTextEntry = 16;
    static constexpr uint32_t keyOptions = 32;

    static constexpr const char* characterSet =
        "!\"#$%&'()*+,-./:;<=>?@[\\]^_`{|}~ 0123456789abcdefghijklmnopqrstuvwxyz";

    /** One level meter: levels 0..23, driven by one random value per update. */
    struct Meter
    {
        static constexpr int maxLevel = 23;
        static constexpr int peakHoldUpdates = 13;

        int level = 0;
        int peak = 0;
        int held = 0;
        bool clip = false;

        void update(int randomValue);
    };

    /** Hours, minutes, seconds and frames at 24 frames a second. */
    struct Timecode
    {
        int hours = 0, minutes = 0, seconds = 0, frames = 0;
        void advance();
    };

    /** Builders of the primitives above. */
    static void clear(std::vector<unsigned char>& out);
    static void fill(std::vector<unsigned char>& out, int x, int y, int w, int h, bool on);
    static void text(std::vector<unsigned char>& out, int x, int y, int font, bool inverted, const char* s);

    /** Runs until a key is pressed (the key is consumed) or the stop flag
        is raised. */
    void run(RemoteBoard& board);

    /** True while run() is going: the remote's listener then feeds it. */
    bool isRunning() const { return running; }
    /** True while a sub-screen is open. */
    bool subScreenOpen() const { return subScreen; }

    /** The menu's reaction to the remote's key state, rotor position and
        encoder steps. Called on the board's event thread. */
    void menuEvent(uint32_t keys, uint32_t rotor, int steps);

    /** What run() does around its loop, and one turn of the loop at `now`
        hundredths of a second after begin(): exposed so that the menu and
        the animation can be driven without a keyboard or a clock. */
    void begin(RemoteBoard& board);
    void animate(int64_t now);
    void end();

private:
    enum class Screen
    {
        main,
        textEntry,
        options
    };

    static constexpr int numMeters = 8;

    void send(const std::vector<unsigned char>& bytes);
    void drawTimecode(std::vector<unsigned char>& out);
    void drawCountdowns(std::vector<unsigned char>& out);
    void drawMeters(std::vector<unsigned char>& out);
    void drawMainScreen();
    void drawEntryField();
    void drawTextEntryScreen();
    void drawOptionList(uint32_t rotor);
    void drawOptionsScreen(uint32_t rotor);
    void openScreen(Screen next, uint32_t rotor);

    // Every drawing call to the board is made under this lock: the animation
    // on the console thread and the menu on the board's event thread share
    // the display. It is always taken before the board's own lock.
    juce::CriticalSection displayLock;
    std::atomic<bool> running { false };
    std::atomic<bool> subScreen { false };

    // Guarded by displayLock.
    RemoteBoard* board = nullptr;
    Screen screen = Screen::main;
    uint32_t previousKeys = 0;
    std::string entered;
    int chosenChar = 0;
    int chosenOption = 0;
    Meter meters[numMeters];
    Timecode timecode;
    int countdownA = 0;
    int countdownB = 0;
    int64_t lastTimecode = 0, lastMeters = 0, lastCountdown = 0;
};
