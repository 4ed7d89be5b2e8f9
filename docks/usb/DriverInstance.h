#pragma once

#include "docks/platform/DockPlatform.h"

/** One matched dock driver service: the physical device behind it is known by
    its USB location, which stays put while the dock is plugged in. */
struct DriverInstance
{
    DockPlatform::Entry service = 0; // holds one reference until the list releases it
    int32_t locationID = 0;
    juce::String serialNumber;
};
