#include "boardsim/personality_sas.h"

namespace boardsim {

std::string sasBoardControlHelp()
{
    return "Control lines of the desktop transfer station (t):\n"
           "  insert B [DISKS] / eject B    a pack with 0..4 disks (default 4) comes or\n"
           "                                goes (i); its disks reach the expander while\n"
           "                                it is powered (D1)\n"
           "  lever B open|closed           the lever (v)\n"
           "  temp B DEGREES                the pack's temperature; p event while P1 is in\n"
           "                                force and a pack is in\n"
           "  phyerrors B PHY N             an expander PHY's error counter, PHY 0..11\n"
           "  check B KEY VALUE             keys: led, power, wp, ledid, tempevents,\n"
           "                                resets, rate.PHY, errors.PHY, held.PHY\n"
           "Control lines of the xfer drive dual (u):\n"
           "  insert B W [fault] / eject B W  a pack comes into or leaves slot 0..1 (i)\n"
           "  button B W down|up            the slot's eject button (b)\n"
           "  temp B W DEGREES              the pack's temperature; p event while enabled\n"
           "  systemp B BOARD SAS           the system temperatures; t event while T1\n"
           "  phyerrors B PHY N             an expander PHY's error counter, PHY 0..35\n"
           "  check B KEY VALUE             keys: fan, ledid, sysevents, uart, resets,\n"
           "                                led.W, power.W, wp.W, tempevents.W, diskfan.W,\n"
           "                                eeprom.W.ADDR, rate.PHY, errors.PHY, held.PHY\n"
           "Both: check succeeds when the board's KEY reads VALUE; numbers are decimal\n"
           "  or 0x hex. Enabled temperature events also repeat every 2 s.\n";
}

} // namespace boardsim
