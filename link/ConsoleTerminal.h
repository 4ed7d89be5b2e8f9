#pragma once

// Single-key console input. The terminal of standard output is the one
// configured; standard input is read.
bool kbhit();
/** Like kbhit, but waits up to timeoutMs for a key. Ctrl-C ends the wait at
    once (with false) after the handler of setControlCHandler has run, on
    whichever thread the signal arrived, so a caller sees its stop flag
    without polling for it. */
bool waitForKey(int timeoutMs);
/** The limit the keystroke loops give waitForKey: only a safety net, since a
    key or Ctrl-C ends the wait at once and nothing the user does waits for it. */
constexpr int keyWaitBackstopMs = 1000;
int getch();
void resetTTY();
void setupTTY(bool singleKey);
void setControlCHandler(void (*handler)());
