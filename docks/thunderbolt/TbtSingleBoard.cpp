#include "docks/thunderbolt/TbtSingleBoard.h"

namespace
{
using L = TbtSingleBoardEventListener;

const EventRow<L> events[] = {
    { 'd', L::debugEventBit, EventDecoding::text, [](L& l, const EventValue& v) { l.debugText(v.text); } },
    { 't', L::dockTemperatureEventBit, EventDecoding::signedNumber,
      [](L& l, const EventValue& v) { l.dockTemperature(v.number); } },
    { 'p', L::diskpackTemperatureEventBit, EventDecoding::signedNumber,
      [](L& l, const EventValue& v) { l.diskpackTemperature(v.number); } },
    { 'i', L::diskpackEventBit, EventDecoding::number,
      [](L& l, const EventValue& v) { l.diskpackChanged((v.raw & 1) != 0, (v.raw & 2) != 0); } },
    { 'b', L::ejectButtonEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.ejectButton(v.raw != 0); } },
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
