#include "boardsim/faults.h"

#include <cerrno>
#include <cstdlib>

#include "boardsim/wire.h"

namespace boardsim {

bool Faults::any() const
{
    return nackEvery || dropEvery || junkBefore || highbitBefore || delayMs || nackIdentify || baud ||
           refuseWrites || corruptReads || stallReads || randomPercent || eventPercent || babble;
}

static bool parseUnsigned(const std::string& text, unsigned long max, unsigned& value)
{
    if (text.empty() || text.size() > 10)
        return false;
    for (char c : text)
        if (c < '0' || c > '9')
            return false;
    const unsigned long v = std::strtoul(text.c_str(), nullptr, 10);
    if (v > max)
        return false;
    value = static_cast<unsigned>(v);
    return true;
}

bool applyFaultSetting(Faults& faults, const std::string& setting, std::string& error)
{
    const auto eq = setting.find('=');
    const std::string key = setting.substr(0, eq);
    const bool hasValue = eq != std::string::npos;
    const std::string value = hasValue ? setting.substr(eq + 1) : std::string();

    auto number = [&](unsigned min, unsigned long max, unsigned& out) {
        unsigned v = 0;
        if (!hasValue || !parseUnsigned(value, max, v) || v < min) {
            error = "fault '" + key + "' needs a whole number from " + std::to_string(min) + " to " +
                    std::to_string(max);
            return false;
        }
        out = v;
        return true;
    };

    Faults next = faults;
    if (key == "clear" && !hasValue) {
        next = Faults();
    } else if (key == "nack-every") {
        if (!number(1, 1000000, next.nackEvery))
            return false;
    } else if (key == "drop-every") {
        if (!number(1, 1000000, next.dropEvery))
            return false;
    } else if (key == "junk-before") {
        if (!hasValue) {
            error = "fault 'junk-before' needs a line, e.g. junk-before=HELLO";
            return false;
        }
        next.junkBefore = value;
    } else if (key == "highbit-before") {
        unsigned char byte = 0xA5;
        if (hasValue) {
            std::string decoded;
            if (!hexDecode(value, decoded) || decoded.size() != 1 ||
                static_cast<unsigned char>(decoded[0]) < 0x80) {
                error = "fault 'highbit-before' takes one hex byte from 80 to FF";
                return false;
            }
            byte = static_cast<unsigned char>(decoded[0]);
        }
        next.highbitBefore = byte;
    } else if (key == "delay-ms") {
        if (!number(0, 600000, next.delayMs))
            return false;
    } else if (key == "nack-identify") {
        if (!number(0, 1000000, next.nackIdentify))
            return false;
    } else if (key == "baud") {
        if (!number(50, 10000000, next.baud))
            return false;
    } else if (key == "refuse-writes") {
        if (!number(1, 1000000, next.refuseWrites))
            return false;
    } else if (key == "random") {
        const auto colon = value.find(':');
        unsigned seed = 0;
        if (colon == std::string::npos || !parseUnsigned(value.substr(0, colon), 4294967295UL, seed) ||
            !parseUnsigned(value.substr(colon + 1), 100, next.randomPercent)) {
            error = "fault 'random' needs SEED:PERCENT, e.g. random=7:10";
            return false;
        }
        next.rng.seed(seed);
    } else if (key == "events") {
        if (!number(0, 100, next.eventPercent))
            return false;
    } else if (key == "babble" && !hasValue) {
        next.babble = true;
    } else if (key == "corrupt-read" || key == "stall-read") {
        unsigned& count = key == "corrupt-read" ? next.corruptReads : next.stallReads;
        if (!hasValue)
            count = 1;
        else if (!number(1, 1000000, count))
            return false;
    } else {
        error = "unknown fault '" + setting + "'";
        return false;
    }
    faults = std::move(next);
    return true;
}

const char* faultSettingHelp()
{
    return "                  nack-every=N        answer every Nth command with \"N\" (not carried out)\n"
           "                  drop-every=N        answer every Nth command with nothing (not carried out)\n"
           "                  junk-before=TEXT    send the line TEXT before each reply\n"
           "                  highbit-before[=HH] send byte HH (80..FF, default A5) and \"\\r\\n\"\n"
           "                                      before each reply\n"
           "                  delay-ms=N          wait N ms before each reply (events are not held back)\n"
           "                  nack-identify=N     answer the next N \"?\" requests with \"N\"\n"
           "                  baud=RATE           pace everything the board sends at RATE baud,\n"
           "                                      11 bits a character\n"
           "                  refuse-writes=N     bootloader: refuse the next N page writes (\"N\")\n"
           "                  corrupt-read[=N]    bootloader: answer the next N page reads (default 1)\n"
           "                                      with a wrong checksum\n"
           "                  stall-read[=N]      bootloader: break the next N page reads (default 1)\n"
           "                                      off mid-page with a NUL, then say nothing more\n"
           "                  random=SEED:PERCENT give about PERCENT% of the commands one fault,\n"
           "                                      drawn from a generator seeded with SEED: NACK\n"
           "                                      (not carried out), no reply (not carried out),\n"
           "                                      the line JUNK before the reply, byte A5 and\n"
           "                                      \"\\r\\n\" before the reply, or the reply 700 ms late;\n"
           "                                      one SEED always picks the same commands and faults\n"
           "                  events=PERCENT      before about PERCENT% of the replies send a\n"
           "                                      numbered event e1, e2, ...; after about PERCENT%\n"
           "                                      send another (same generator as random=)\n"
           "                  babble              send the line \"babble\" back to back, paced at\n"
           "                                      19200 baud, until 'clear'\n"
           "                  clear               remove the faults given before it\n"
           "                Every Nth counts all command lines the board has received since it\n"
           "                started. Where faults meet on one command, drop wins over\n"
           "                nack-identify, which wins over nack-every.\n";
}

} // namespace boardsim
