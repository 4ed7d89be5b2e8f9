#include "boardsim/personality_sas.h"

#include <utility>

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

SasBoard::SasBoard(BoardInfo info, std::unique_ptr<SasExpander> expander)
    : LetterBoard(std::move(info)), expander_(std::move(expander))
{
}

bool SasBoard::control(const std::string& verb, const std::string& args, Replier& out, std::string& error)
{
    if (verb == "phyerrors") {
        const auto w = serial::words(args);
        long long phy = 0, count = 0;
        if (w.size() != 2 || !numberArg(w[0], 0, expander_->numPhys() - 1, phy) ||
            !numberArg(w[1], 0, 0xFFFFFFFFll, count))
            return fail(error, "phyerrors takes a PHY 0.." + std::to_string(expander_->numPhys() - 1) + " and a count");
        expander_->setErrorCount(static_cast<int>(phy), static_cast<std::uint32_t>(count));
        return true;
    }
    return LetterBoard::control(verb, args, out, error);
}

bool SasBoard::check(const std::string& args, std::string& error) const
{
    const auto w = serial::words(args);
    long long want = 0;
    if (w.size() != 2 || !parseNumber(w[1], want))
        return fail(error, "check takes KEY VALUE");
    std::vector<std::string> key;
    for (std::size_t from = 0;;) {
        const auto dot = w[0].find('.', from);
        key.push_back(w[0].substr(from, dot == std::string::npos ? std::string::npos : dot - from));
        if (dot == std::string::npos)
            break;
        from = dot + 1;
    }
    const std::string& name = key[0];
    long long have = 0, phy = 0;
    bool found = false;
    if (key.size() == 1 && name == "resets") {
        have = expander_->resetCount();
        found = true;
    } else if (key.size() == 2 && (name == "rate" || name == "errors" || name == "held")) {
        found = numberArg(key[1], 0, expander_->numPhys() - 1, phy);
        const int p = static_cast<int>(phy);
        if (found)
            have = name == "rate" ? expander_->rate(p) : name == "errors" ? expander_->errorCount(p) : expander_->inReset(p);
    } else {
        found = boardState(key, have);
    }
    if (!found)
        return fail(error, "no state '" + w[0] + "'");
    if (have != want)
        return fail(error, w[0] + " is " + std::to_string(have) + ", not " + std::to_string(want));
    return true;
}

} // namespace boardsim
