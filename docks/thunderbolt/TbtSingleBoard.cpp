#include "docks/thunderbolt/TbtSingleBoard.h"

namespace
{
using L = TbtSingleBoardEventListener;

using Shared = TbtDockEventRows<L>;

const EventRow<L> events[] = {
    Shared::debug, Shared::dockTemperature, Shared::diskpackTemperature, Shared::diskpack, Shared::ejectButton,
    { 'l', L::diskpackLedEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.diskpackLed(v.raw != 0); } },
};
} // namespace

TbtSingleBoard::TbtSingleBoard(std::shared_ptr<DockPlatform> platform) : TbtDockBoard(std::move(platform)) {}

TbtSingleBoard::~TbtSingleBoard()
{
    // Stop the poll thread while eventReceived still belongs to this class.
    closeBoard(false);
}

bool TbtSingleBoard::setDiskpackLed(int red, int green, int blue, bool flash, bool activity)
{
    return sendDiskpackLed(red, green, blue, flash, activity);
}

void TbtSingleBoard::eventReceived(const juce::String& text)
{
    dispatchEvent(text, "TbtSingleBoardEventListener", events);
}
