#include "boardsim/personality_serial.h"

namespace boardsim {

std::string serialBoardControlHelp()
{
    return "Control lines of the chassis (c):\n"
           "  insert B BAY / eject B BAY    a pack comes into or leaves bay 0..3 (bay event)\n"
           "  dvd B                         the DVD eject button (e)\n"
           "  volume B N, brightness B N    the knobs turned to N (v, r)\n"
           "  shuttle B N                   the shuttle at N, -128..127 (s)\n"
           "  button B HEX                  a button code (t)\n"
           "  connect B BAY 0|1             whether bay 0..1 answers as connected to H\n"
           "Control lines of the diskpack (d):\n"
           "  button B HEX                  a button code (b)\n"
           "  temp B DEGREES                the temperature; t event while T1 is in force\n"
           "  hours B N                     the operating hours counter\n"
           "Control lines of the transfer station (x):\n"
           "  insert B / eject B            the diskpack comes or goes (i)\n"
           "  door B open|closed            the door (d)\n"
           "  temp B DEGREES                the pack's temperature; p event while P1 is in\n"
           "                                force and a pack is in\n"
           "Control lines of the remote control (r):\n"
           "  key B HEX, rotor B HEX        keys and rotor (k, r)\n"
           "  encoder B STEPS               encoder steps, -128..127 (e)\n"
           "  debug B TEXT                  a debug line (d)\n"
           "  busy B on|off                 answer the \"@\" poll with R1 while on\n"
           "  With Q1 the remote sends a q and an f line of touch values every 250 ms.\n"
           "All four: check B FIELD VALUE succeeds when the board's FIELD reads VALUE;\n"
           "  a wrong FIELD lists the fields.\n";
}

} // namespace boardsim
