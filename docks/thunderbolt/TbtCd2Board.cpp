#include "docks/thunderbolt/TbtCd2Board.h"

namespace
{
using L = TbtCd2BoardEventListener;

using Shared = TbtDockEventRows<L>;

const EventRow<L> events[] = {
    Shared::debug, Shared::dockTemperature, Shared::diskpackTemperature, Shared::diskpack, Shared::ejectButton,
    { 'j', L::fanSpeedEventBit, EventDecoding::number, [](L& l, const EventValue& v) { l.fanSpeed(v.number); } },
};
} // namespace

TbtCd2Board::TbtCd2Board(std::shared_ptr<DockPlatform> platform) : TbtDockBoard(std::move(platform)) {}

TbtCd2Board::~TbtCd2Board()
{
    // Stop the poll thread while eventReceived still belongs to this class.
    closeBoard(false);
}

bool TbtCd2Board::setDiskpackLed(int red, int green, int blue, bool flash)
{
    return sendDiskpackLed(red, green, blue, flash, false);
}

bool TbtCd2Board::setFanSpeed(int speed)
{
    return sendCommand('F', speed, 2);
}

bool TbtCd2Board::resetPort(int port)
{
    // The port travels as one character after '0', not as a hex digit; only
    // a one-digit port has such a character.
    if (port < 0 || port > 9)
        return false;
    const char text[] = { 'R', (char) ('0' + port), 0 };
    return sendCommand('*', text);
}

void TbtCd2Board::eventReceived(const juce::String& text)
{
    dispatchEvent(text, "TbtCd2BoardEventListener", events);
}
