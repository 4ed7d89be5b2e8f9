#pragma once

// Single-key console input. The terminal of standard output is the one
// configured; standard input is read.
bool kbhit();
/** Like kbhit, but waits up to timeoutMs for a key; a signal ends the wait
    early (with false) so that the caller sees its stop flag at once. */
bool waitForKey(int timeoutMs);
int getch();
void resetTTY();
void setupTTY(bool singleKey);
void setControlCHandler(void (*handler)());
