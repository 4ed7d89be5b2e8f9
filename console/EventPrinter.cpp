#include "console/EventPrinter.h"

#include <cstdarg>
#include <cstdio>

void printEvent(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vprintf(format, args);
    va_end(args);
    fflush(stdout);
}
