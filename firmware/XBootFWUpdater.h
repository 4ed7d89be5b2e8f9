#pragma once

#include "firmware/HardwareBoardFWUpdater.h"

/** The XBoot page protocol, spoken directly on a ControlBoard's serial port. */
class XBootFWUpdater : public HardwareBoardFWUpdater
{
public:
    using HardwareBoardFWUpdater::HardwareBoardFWUpdater;

    bool startFirmwareUpdate() override;
    bool endFirmwareUpdate(FirmwareStatus status) override;
    bool eraseApplicationSection() override;
    bool programApplicationPage(const void* data, int page, juce::String& message) override;
    bool readApplicationPage(void* data, int page, juce::String& message) override;
};
