#pragma once

// Single-key console input. The terminal of standard output is the one
// configured; standard input is read.
bool kbhit();
/** Like kbhit, but waits up to timeoutMs for a key. Ctrl-C ends the wait at
    once (with false) after the handler of setControlCHandler has run, on
    whichever thread the signal arrived, so a caller sees its stop flag
    without polling for it. */
bool waitForKey(int timeoutMs);
int getch();
void resetTTY();
void setupTTY(bool singleKey);
void setControlCHandler(void (*handler)());
