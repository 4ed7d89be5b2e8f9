#pragma once

// Single-key console input. The terminal of standard output is the one
// configured; standard input is read.
bool kbhit();
int getch();
void resetTTY();
void setupTTY(bool singleKey);
void setControlCHandler(void (*handler)());
