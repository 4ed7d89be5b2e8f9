#pragma once

/** Prints one event's line and flushes it at once: the console thread may be
    waiting in a prompt with nothing else to flush. Listeners call it from the
    board's own thread. */
__attribute__((format(printf, 1, 2))) void printEvent(const char* format, ...);
