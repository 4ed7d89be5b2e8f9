// The emulated chassis, diskpack, remote control and transfer station boards
// answer their commands directly, without a pty: a board that accepted a
// malformed command would let the product's mistakes through unnoticed.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/EmulatedBoard.h"

using namespace boardsim;

using Emulated = EmulatedBoard;
using Lines = std::vector<std::string>;

TEST(EmulatedBoards, RefuseMalformedCommandsAndTakeWellFormedOnes)
{
    const struct {
        char letter;
        const char* version;
        Lines refused, accepted;
    } cases[] = {
        {'d', "V1.00",
         {"L7", "L072", "La5", "A2", "A", "X11", "Y0", "B1", "P18", "PFF", "Q18", "V0", "E2", "G20", "G04",
          "D" + std::string(41, 'x'), "W" + std::string(41, 'x'), "K"},
         {"D" + std::string(40, 'x'), "P17"}},
        {'c', "V2.5", {"V20", "V1", "R10", "L20", "A80", "BBF", "A4", "E", "H2", "H", "W1", "T0"}, {"F5B"}},
        // The firmware version decides the command set; V2.10 sorts before V2.5.
        {'c', "V1.00", {"F12", "P1", "S0", "H0"}, {}},
        {'c', "V2.10", {"H0"}, {"F12"}},
        {'x', "V1.00",
         {"W6", "W", "X20", "X02", "X1", "Y2", "D8", "D10", "L", "E4", "S4", "S", "S25000C5001234567",
          "S25000c50012345678", "R20", "I", "U", "P2"},
         {}},
        {'r', "V1.00", {"G", "G1", "G0g", "G0AF", "C10", "C", "E0", "Q2", "F1"}, {"G0AFF"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(1, c.letter) + " " + c.version);
        Emulated board(c.letter, c.version);
        for (const auto& line : c.refused)
            EXPECT_EQ(board.final(line), "N") << "'" << line << "'";
        for (const auto& line : c.accepted)
            EXPECT_EQ(board.final(line), "OK") << "'" << line << "'";
    }
}

TEST(EmulatedDiskpack, KeepsPagesAndReportsTheLed)
{
    Emulated d('d');
    EXPECT_EQ(d.final("P05"), "OK");
    EXPECT_EQ(d.final("Wfifth page"), "OK");
    EXPECT_EQ(d.final("P06"), "OK");
    EXPECT_EQ(d.final("R"), "R");
    EXPECT_EQ(d.final("P05"), "OK");
    EXPECT_EQ(d.final("R"), "Rfifth page");

    EXPECT_EQ(d.send("L30").events, Lines{"l1"});
    EXPECT_TRUE(d.send("LB0").events.empty()) << "still lit";
    EXPECT_EQ(d.send("L80").events, Lines{"l0"}) << "flash bits alone light nothing";

    d.control("temp", "-12");
    EXPECT_EQ(d.final("M"), "RF419");
    EXPECT_TRUE(d.control("temp", "30").events.empty()) << "temperature events are off";
    EXPECT_EQ(d.final("T1"), "OK");
    EXPECT_EQ(d.control("temp", "-1").events, Lines{"tFF"});
    EXPECT_EQ(d.send("!").events, (Lines{"l0", "tFF"}));
    d.control("temp", "200", false);
}

TEST(EmulatedChassis, ReportsBaysAndTheShuttle)
{
    Emulated c('c', "V2.5");
    EXPECT_EQ(c.final("H0"), "R1");
    EXPECT_EQ(c.final("H1"), "R0");

    EXPECT_EQ(c.send("B40").events, Lines{"b2"});
    EXPECT_TRUE(c.send("BC0").events.empty());
    EXPECT_EQ(c.control("insert", "1").events, Lines{"b3"});
    EXPECT_EQ(c.control("shuttle", "-2").events, Lines{"sFE"});
    c.control("insert", "4", false);
}

TEST(EmulatedTransfer, ReportsPackDoorAndLed)
{
    Emulated x('x');
    EXPECT_EQ(x.final("S25000C50012345678"), "OK");
    EXPECT_EQ(x.final("E2"), "R5000C50012345678");
    EXPECT_EQ(x.final("S2"), "OK");
    EXPECT_NE(x.final("E2"), "R5000C50012345678");
    EXPECT_EQ(x.send("!").events, (Lines{"d0", "i0", "l0"}));
    EXPECT_EQ(x.control("insert", "").events, Lines{"i1"});
    EXPECT_EQ(x.final("I"), "R3");
    EXPECT_EQ(x.send("L8").events, Lines{"l8"});
    EXPECT_TRUE(x.send("L8").events.empty());
    EXPECT_EQ(x.final("P1"), "OK");
    EXPECT_EQ(x.control("temp", "-16").events, Lines{"pF0"});
    EXPECT_EQ(x.final("X11"), "OK");
    EXPECT_EQ(x.final("Y1"), "R1");
    EXPECT_EQ(x.final("Y0"), "R0");
}

TEST(EmulatedRemote, BusyPollEncoderKeysAndTouch)
{
    Emulated r('r');
    EXPECT_EQ(r.final("@"), "R0");
    r.control("busy", "on");
    EXPECT_EQ(r.final("@"), "R1");
    r.control("busy", "off");
    EXPECT_EQ(r.final("@"), "R0");
    EXPECT_EQ(r.control("encoder", "-1").events, Lines{"eFF"});
    EXPECT_EQ(r.control("key", "102").events, Lines{"k0102"});

    Replier quiet;
    r.personality->tick(quiet);
    EXPECT_TRUE(quiet.items().empty()) << "touch events are off";
    EXPECT_EQ(r.final("Q1"), "OK");
    Replier touch;
    r.personality->tick(touch);
    ASSERT_EQ(touch.items().size(), 2u);
    EXPECT_EQ(touch.items()[0].bytes.size(), 41u);
    EXPECT_EQ(touch.items()[1].bytes, "f0200021002200230024002500260027002800290");
}
