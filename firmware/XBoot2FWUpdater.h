#pragma once

#include "firmware/HardwareBoardFWUpdater.h"

/** The XBoot2 protocol: every bootloader request travels, with a CRC-32, as the
    argument of board command '*', so it works over any transport. */
class XBoot2FWUpdater : public HardwareBoardFWUpdater
{
public:
    using HardwareBoardFWUpdater::HardwareBoardFWUpdater;

    bool startFirmwareUpdate() override;
    bool endFirmwareUpdate(FirmwareStatus status) override;
    bool eraseApplicationSection() override;
    bool programApplicationPage(const void* data, int page, juce::String& message) override;
    bool readApplicationPage(void* data, int page, juce::String& message) override;
};
