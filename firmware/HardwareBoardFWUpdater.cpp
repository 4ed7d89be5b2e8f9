#include "firmware/HardwareBoardFWUpdater.h"
#include "link/HardwareBoard.h"

namespace
{
struct FlashGeometry
{
    int pageSize, appSectionSize, totalProgramSize;
};

FlashGeometry geometryOf(const HardwareBoard* board)
{
    switch (board->getMcuVariant())
    {
        case 0: return { 256, 0x1E000, 0x20000 };
        case 1: return { 512, 0x20000, 0x22000 };
        default: break;
    }
    // A variant we have no layout for would have us write over the bootloader.
    juce::Logger::writeToLog("HardwareBoardFWUpdater: unknown MCU variant " + juce::String(board->getMcuVariant()));
    std::abort();
}
}

int HardwareBoardFWUpdater::getFlashPageSize() const { return geometryOf(board).pageSize; }
int HardwareBoardFWUpdater::getAppSectionSize() const { return geometryOf(board).appSectionSize; }
int HardwareBoardFWUpdater::getTotalProgramSize() const { return geometryOf(board).totalProgramSize; }
