#include "support/BoardTestKit.h"

#include <climits>
#include <string>

using namespace boardtest;
using Diskpack = ScriptedBoardTest<Scripted<DiskpackBoard>>;

TEST_F(Diskpack, CommandsPutTheirArgumentOnTheWireAndDecodeTheReply)
{
    // The console's key rows send the plain calls; these are the clamps, limits and failures it cannot reach.
    EXPECT_TRUE(board.setLed(5, -1, 2, 1) // red 3, green 0, blue 2, flash 1
                && board.setLed(3, 3, 3, 9) && board.enableTemperatureEvents(false) && board.setNumTextPages(23));
    // Brightness spreads over drive 144..200; a negative level is not clamped, and below zero sends no digits.
    for (int level : { 0, 7, 15, 16, 99, -1, -40, INT_MIN })
        board.setDisplayBrightness(level);
    const std::string forty(40, 'y'), fortyOne(41, 'x');
    EXPECT_TRUE(board.writeText(23, forty.c_str()));

    const juce::StringArray expected { "L72", "LFF", "T0", "Q17", "B90", "BAA", "BC8",
                                       "BC8", "BC8", "B8D", "B",  "B",   "P17", "W" + forty };
    EXPECT_EQ(board.sent, expected);
    EXPECT_FALSE(board.expected.contains(true));
    board.clearSent();

    juce::String text;
    EXPECT_FALSE(board.setDisplayText(fortyOne.c_str()) || board.writeText(3, fortyOne.c_str()));
    for (int page : { 24, -1 })
        EXPECT_FALSE(board.writeText(page, "a") || board.readText(page, text) || board.setNumTextPages(page)) << page;

    // None of those is sent; a failed page select must not write over whatever page is selected now.
    board.willFail();
    EXPECT_FALSE(board.writeText(5, "lost"));
    board.willFail();
    EXPECT_FALSE(board.readText(5, text));
    EXPECT_EQ(board.sent, (juce::StringArray { "P05", "P05" }));
    board.clearSent();

    board.willReply("R7F80");
    EXPECT_EQ(readPair(board, &DiskpackBoard::getMinMaxTemperatures), std::make_pair(127, -128));
    // Yes/no replies above one are failures, and every failure leaves the result alone.
    bool on = true;
    int a = 11, b = 22;
    board.willReply("R2");
    EXPECT_FALSE(board.getWriteProtect(on));
    board.willReply("RF");
    EXPECT_FALSE(board.getParallelScsiType(on));
    board.willFail();
    EXPECT_FALSE(board.getWriteProtect(on));
    EXPECT_TRUE(on);
    board.willFail();
    EXPECT_FALSE(board.getBatteryVoltage(a));
    board.willReply("R123"); // three digits where four are due
    EXPECT_FALSE(board.getMinMaxTemperatures(a, b));
    EXPECT_EQ(std::make_pair(a, b), std::make_pair(11, 22));
    EXPECT_EQ(board.sent, (juce::StringArray { "M", "Y", "I", "Y", "V", "M" }));
}

TEST_F(Diskpack, EventsReachListenersByMask)
{
    // The console's event lines check the decoding; here the masks, the letters' case and the edge values.
    using L = DiskpackBoardEventListener;
    DiskpackHeard buttons(L::buttonEventBit), temps(L::temperatureEventBit);
    board.registerListener(&buttons);
    board.registerListener(&temps);

    // A temperature wider than a byte still has only 256 taken off.
    feed({ "tF0", "bF0", "l1", "b", "x12", "B1", "t80000080" });

    EXPECT_EQ(buttons.calls(), (Calls { "button 240", "button 0" }));
    EXPECT_EQ(temps.calls(), (Calls { "temp -16", "temp 2147483520" }));
    EXPECT_EQ(log.lines(), unknownEvents("DiskpackBoardEventListener", "xB"));
}
