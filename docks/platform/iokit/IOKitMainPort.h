#pragma once

#include <IOKit/IOKitLib.h>

/** The port through which a task first reaches the driver kit. */
class IOKitMainPort
{
public:
    static mach_port_t get();
};
