// Misbehaviour a dock can be told to show, so the product's error handling
// can be exercised without a flaky dock. Each fault is pending for a number
// of uses (once by default) or until cleared, and is used up by the next
// request of the kind it spoils.
#pragma once

#include <array>
#include <string>

namespace docksim {

enum class Fault {
    NoReply,      // USB: no completion; Thunderbolt: the reply property is left as it was
    WrongSubcode, // USB: the reply's first byte is not the command's subcode
    Late,         // USB: the completion comes 1500 ms later
    NotAttached,  // USB: the completion's result is "not attached"
    IoError,      // USB: the completion's result is "error"
    InvalidDest,  // USB: the async call itself fails as sent to a dead port
    Nack,         // Thunderbolt: the command is answered "N" without being carried out
    PropertyRead, // Thunderbolt: reading the driver entry's properties fails
    NoHostComms,  // Thunderbolt: the driver entry's properties lack "HostComms"
    EepromFlip,   // the next diskpack EEPROM read answers its first byte inverted
    EepromReadFail, // the next diskpack EEPROM read fails
    Count
};

class Faults {
public:
    // Applies one FAULT setting ("late", "nack=3", "no-reply=always",
    // "clear"). `usb` says which kind of dock it is for; a fault of the other
    // kind is refused. False with `error` set leaves the faults unchanged.
    bool apply(const std::string& setting, bool usb, std::string& error);
    // True when `fault` is pending; uses one of its counts up.
    bool take(Fault fault);
    bool pending(Fault fault) const { return left_[static_cast<int>(fault)] != 0; }

    static std::string help();

private:
    static constexpr int kUntilCleared = -1;
    std::array<int, static_cast<int>(Fault::Count)> left_{};
};

} // namespace docksim
