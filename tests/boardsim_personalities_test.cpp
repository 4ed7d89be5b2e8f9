// The emulated chassis, diskpack, remote control and transfer station boards
// answer their commands directly, without a pty: a board that accepted a
// malformed command would let the product's mistakes through unnoticed.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "boardsim/personality.h"

using namespace boardsim;

using Lines = std::vector<std::string>;

// A command with its closing line and the events sent with it; ">verb args" is a control line
// answered "ok" or "error", "~" a tick.
struct Step {
    std::string line, final;
    Lines events = {};
};

TEST(EmulatedBoards, RefuseMalformedCommandsAndKeepTheirState)
{
    const std::string wwn = "5000C50012345678";
    const struct {
        char letter;
        const char* version;
        Lines refused, accepted;
        std::vector<Step> steps;
    } cases[] = {
        {'d', "V1.00",
         {"L7", "L072", "La5", "A2", "A", "X11", "Y0", "B1", "P18", "PFF", "Q18", "V0", "E2", "G20", "G04",
          "D" + std::string(41, 'x'), "W" + std::string(41, 'x'), "K"},
         {"D" + std::string(40, 'x'), "P17"},
         {{"P05", "OK"}, {"Wfifth page", "OK"}, {"P06", "OK"}, {"R", "R"}, {"P05", "OK"}, {"R", "Rfifth page"},
          {"L30", "OK", {"l1"}}, {"LB0", "OK"}, {"L80", "OK", {"l0"}}, // flash bits alone light nothing
          {">temp -12", "ok"}, {"M", "RF419"}, {">temp 30", "ok"}, {"T1", "OK"}, {">temp -1", "ok", {"tFF"}},
          {"!", "OK", {"l0", "tFF"}}, {">temp 200", "error"}}},
        {'c', "V2.5", {"V20", "V1", "R10", "L20", "A80", "BBF", "A4", "E", "H2", "H", "W1", "T0"}, {"F5B"},
         {{"H0", "R1"}, {"H1", "R0"}, {"B40", "OK", {"b2"}}, {"BC0", "OK"}, {">insert 1", "ok", {"b3"}},
          {">shuttle -2", "ok", {"sFE"}}, {">insert 4", "error"}}},
        // The firmware version decides the command set; V2.10 sorts before V2.5.
        {'c', "V1.00", {"F12", "P1", "S0", "H0"}, {}, {}},
        {'c', "V2.10", {"H0"}, {"F12"}, {}},
        {'x', "V1.00",
         {"W6", "W", "X20", "X02", "X1", "Y2", "D8", "D10", "L", "E4", "S4", "S", "S25000C5001234567",
          "S25000c50012345678", "R20", "I", "U", "P2"},
         {},
         {{"S2" + wwn, "OK"}, {"E2", "R" + wwn}, {"S2", "OK"}, {"E2", "R5000C50012340008"},
          {"!", "OK", {"d0", "i0", "l0"}}, {">insert", "ok", {"i1"}}, {"I", "R3"}, {"L8", "OK", {"l8"}},
          {"L8", "OK"}, {"P1", "OK"}, {">temp -16", "ok", {"pF0"}}, {"X11", "OK"}, {"Y1", "R1"}, {"Y0", "R0"}}},
        {'r', "V1.00", {"G", "G1", "G0g", "G0AF", "C10", "C", "E0", "Q2", "F1"}, {"G0AFF"},
         {{"@", "R0"}, {">busy on", "ok"}, {"@", "R1"}, {">busy off", "ok"}, {"@", "R0"},
          {">encoder -1", "ok", {"eFF"}}, {">key 102", "ok", {"k0102"}}, {"~", ""}, // touch events are off
          {"Q1", "OK"},
          {"~", "", {"q0201021202230234024502560267027002810292", "f0200021002200230024002500260027002800290"}}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(std::string(1, c.letter) + " " + c.version);
        const auto personality = makePersonality(BoardInfo(c.letter, 0, c.version));
        const auto check = [&](const Step& s) {
            SCOPED_TRACE(s.line);
            Replier r;
            std::string error;
            if (s.line == "~")
                personality->tick(r);
            else if (s.line[0] != '>')
                personality->handle(s.line, r);
            else if (const auto sp = s.line.find(' '); !personality->control(
                         s.line.substr(1, sp - 1), sp == std::string::npos ? "" : s.line.substr(sp + 1), r, error))
                EXPECT_EQ(s.final, "error");
            else
                EXPECT_EQ(s.final, "ok");
            std::string final; // two closing lines show as one joined line
            Lines events;
            for (const auto& item : r.items())
                if (item.kind == Replier::Kind::Final)
                    final += item.bytes;
                else
                    events.push_back(item.bytes);
            EXPECT_EQ(events, s.events);
            if (s.line[0] != '>')
                EXPECT_EQ(final, s.final);
        };
        for (const auto& line : c.refused)
            check({line, "N"});
        for (const auto& line : c.accepted)
            check({line, "OK"});
        for (const auto& s : c.steps)
            check(s);
    }
}
