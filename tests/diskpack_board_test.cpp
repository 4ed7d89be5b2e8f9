#include "support/PtyPeer.h"
#include "support/TestBoard.h"

#include "boards/DiskpackBoard.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>
#include <vector>

namespace
{
struct Recorder : DiskpackBoardEventListener
{
    using DiskpackBoardEventListener::DiskpackBoardEventListener;
    void diskpackTemperatureEvent(int degrees) override { calls.push_back("temp " + std::to_string(degrees)); }
    void diskpackButtonEvent(int code) override { calls.push_back("button " + std::to_string(code)); }
    void diskpackLedEvent(bool on) override { calls.push_back(on ? "led on" : "led off"); }
    std::vector<std::string> calls;
};

using Calls = std::vector<std::string>;

struct Diskpack : ::testing::Test
{
    Scripted<DiskpackBoard> board;
    LogCapture log;
};
} // namespace

TEST_F(Diskpack, SettersPutTheirArgumentOnTheWire)
{
    EXPECT_TRUE(board.setLed(5, -1, 2, 1)); // red 3, green 0, blue 2, flash 1
    EXPECT_TRUE(board.setLed(3, 3, 3, 9));
    EXPECT_TRUE(board.monitorDiskActivity(true));
    EXPECT_TRUE(board.setWriteProtect(false));
    EXPECT_TRUE(board.setScsiIdMsb(true));
    EXPECT_TRUE(board.enableTemperatureEvents(false));
    EXPECT_TRUE(board.prepareClosedown());
    EXPECT_TRUE(board.resetEeprom());
    EXPECT_TRUE(board.setNumTextPages(23));

    const juce::StringArray expected { "L72", "LFF", "A1", "X0", "S1", "T0", "C", "Z", "Q17" };
    EXPECT_EQ(board.sent, expected);
    for (bool e : board.expected)
        EXPECT_FALSE(e);
}

TEST_F(Diskpack, DisplayBrightnessScalesIntoTheDriveRange)
{
    board.setDisplayBrightness(0);
    board.setDisplayBrightness(7);
    board.setDisplayBrightness(15);
    board.setDisplayBrightness(16);
    board.setDisplayBrightness(99);
    board.setDisplayBrightness(-1); // not clamped: 144 - 56/15 truncated toward zero
    board.setDisplayBrightness(-40); // below zero: no digits
    board.setDisplayBrightness(INT_MIN);
    EXPECT_EQ(board.sent, (juce::StringArray { "B90", "BAA", "BC8", "BC8", "BC8", "B8D", "B", "B" }));
}

TEST_F(Diskpack, TextLimitsRefuseWithoutSending)
{
    const std::string forty(40, 'x'), fortyOne(41, 'x');

    EXPECT_TRUE(board.setDisplayText(forty.c_str()));
    EXPECT_EQ(board.lastSent(), juce::String("D") + forty);
    board.clearSent();

    EXPECT_FALSE(board.setDisplayText(fortyOne.c_str()));
    EXPECT_FALSE(board.writeText(3, fortyOne.c_str()));
    EXPECT_FALSE(board.writeText(24, "a"));
    EXPECT_FALSE(board.writeText(-1, "a"));
    juce::String text;
    EXPECT_FALSE(board.readText(24, text));
    EXPECT_FALSE(board.readText(-1, text));
    EXPECT_FALSE(board.setNumTextPages(24));
    EXPECT_FALSE(board.setNumTextPages(-1));
    EXPECT_TRUE(board.sent.isEmpty()) << board.sent.joinIntoString("|");
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Diskpack, TextPagesSelectThePageFirst)
{
    const std::string forty(40, 'y');
    EXPECT_TRUE(board.writeText(23, forty.c_str()));
    EXPECT_EQ(board.sent, (juce::StringArray { "P17", juce::String("W") + forty }));
    board.clearSent();

    board.willReply("OK");
    board.willReply("RHello page");
    juce::String text;
    EXPECT_TRUE(board.readText(0, text));
    EXPECT_EQ(board.sent, (juce::StringArray { "P00", "R" }));
    EXPECT_EQ(text, "Hello page");
    EXPECT_TRUE(board.expected[1]);
    board.clearSent();

    // A failed page select must not write over whatever page is selected now.
    board.willFail();
    EXPECT_FALSE(board.writeText(5, "lost"));
    board.willFail();
    EXPECT_FALSE(board.readText(5, text));
    EXPECT_EQ(board.sent, (juce::StringArray { "P05", "P05" }));
}

TEST_F(Diskpack, RepliesAreDecoded)
{
    int a = 0, b = 0;
    board.willReply("RF619");
    EXPECT_TRUE(board.getMinMaxTemperatures(a, b));
    EXPECT_EQ(a, -10);
    EXPECT_EQ(b, 25);
    board.willReply("R7F80");
    EXPECT_TRUE(board.getMinMaxTemperatures(a, b));
    EXPECT_EQ(a, 127);
    EXPECT_EQ(b, -128);

    board.willReply("R96");
    EXPECT_TRUE(board.getBatteryVoltage(a));
    EXPECT_EQ(a, 3000);

    board.willReply("R1234");
    EXPECT_TRUE(board.getOperatingHours(a));
    EXPECT_EQ(a, 0x1234);

    board.willReply("R0ABC");
    EXPECT_TRUE(board.getBackplaneVoltageRail(2, 5, a));
    EXPECT_EQ(a, 0xABC);
    EXPECT_EQ(board.lastSent(), "G25");

    juce::String s;
    board.willReply("R5000C50012345678");
    EXPECT_TRUE(board.getSasAddr(1, s));
    EXPECT_EQ(s, "5000C50012345678");
    EXPECT_EQ(board.lastSent(), "E1");
    board.willReply("R{guid-text}");
    EXPECT_TRUE(board.getGuid(s));
    EXPECT_EQ(s, "{guid-text}");
}

TEST_F(Diskpack, FlagRepliesAboveOneAreFailures)
{
    bool on = true;
    board.willReply("R2");
    EXPECT_FALSE(board.getWriteProtect(on));
    EXPECT_TRUE(on) << "left untouched";
    board.willReply("R0");
    EXPECT_TRUE(board.getWriteProtect(on));
    EXPECT_FALSE(on);
    board.willReply("R1");
    EXPECT_TRUE(board.getParallelScsiType(on));
    EXPECT_TRUE(on);
    board.willReply("RF");
    EXPECT_FALSE(board.getParallelScsiType(on));
    board.willFail();
    EXPECT_FALSE(board.getWriteProtect(on));
    EXPECT_EQ(board.sent, (juce::StringArray { "Y", "Y", "I", "I", "Y" }));
}

TEST_F(Diskpack, TransportFailuresLeaveResultsAlone)
{
    int a = 11, b = 22;
    board.willFail();
    EXPECT_FALSE(board.getBatteryVoltage(a));
    board.willReply("R123"); // three digits where four are due
    EXPECT_FALSE(board.getMinMaxTemperatures(a, b));
    EXPECT_EQ(a, 11);
    EXPECT_EQ(b, 22);
}

TEST_F(Diskpack, EventsReachListenersByMask)
{
    Recorder all, buttonsOnly(DiskpackBoardEventListener::buttonEventBit), nothing(0);
    board.registerListener(&all);
    board.registerListener(&buttonsOnly);
    board.registerListener(&nothing);

    board.eventReceived("tF0");
    board.eventReceived("bF0");
    board.eventReceived("t19");
    board.eventReceived("l1");
    board.eventReceived("l0");
    board.eventReceived("b");

    EXPECT_EQ(all.calls, (Calls { "temp -16", "button 240", "temp 25", "led on", "led off", "button 0" }));
    EXPECT_EQ(buttonsOnly.calls, (Calls { "button 240", "button 0" }));
    EXPECT_TRUE(nothing.calls.empty());
    EXPECT_TRUE(log.lines().isEmpty());
}

TEST_F(Diskpack, UnknownEventsAreLoggedAndDropped)
{
    Recorder all;
    board.registerListener(&all);
    board.eventReceived("x12");
    board.eventReceived("B1"); // letters are case sensitive
    EXPECT_TRUE(all.calls.empty());
    EXPECT_EQ(log.lines(), (juce::StringArray { "DiskpackBoardEventListener: received unknown event 'x'",
                                                "DiskpackBoardEventListener: received unknown event 'B'" }));
}
