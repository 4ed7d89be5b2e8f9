#pragma once

#include <juce_core/juce_core.h>

class HardwareBoard;

/** How an update ended. Only the values 1 and 2 reach a bootloader that takes
    the outcome; every other value is reported to it as 0. The underlying type
    is fixed so that any int a caller passes is a value of the type. */
enum FirmwareStatus : int
{
    firmwareStatusUnknown = 0,
    firmwareStatusSucceeded = 1,
    firmwareStatusVerifyFailed = 2,
    firmwareStatusAborted = 3
};

/** Drives a board's bootloader page by page. The board is not owned. */
class HardwareBoardFWUpdater
{
public:
    explicit HardwareBoardFWUpdater(HardwareBoard* boardToUpdate) : board(boardToUpdate) {}
    virtual ~HardwareBoardFWUpdater() = default;

    virtual bool startFirmwareUpdate() = 0;
    virtual bool endFirmwareUpdate(FirmwareStatus status) = 0;
    virtual bool eraseApplicationSection() = 0;
    virtual bool programApplicationPage(const void* data, int page, juce::String& message) = 0;
    virtual bool readApplicationPage(void* data, int page, juce::String& message) = 0;
    virtual int getFlashPageSize() const;
    virtual int getAppSectionSize() const;
    virtual int getTotalProgramSize() const;

protected:
    HardwareBoard* board;

    JUCE_DECLARE_NON_COPYABLE(HardwareBoardFWUpdater)
};
