// What every emulated dock has: its place on the command line, its registry
// entries while plugged in, its faults and its control lines.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "docksim/faults.h"
#include "docksim/options.h"
#include "docksim/registry.h"
#include "simcore/simcore.h"

namespace docksim {

// Field name and value as text, for "check".
using StateFields = std::vector<std::pair<std::string, std::string>>;

class Dock {
public:
    Dock(int index, DockConfig config);
    virtual ~Dock() = default;
    Dock(const Dock&) = delete;
    Dock& operator=(const Dock&) = delete;

    int index() const { return index_; }
    const DockConfig& config() const { return config_; }
    bool usb() const { return config_.kind == 's'; }
    bool plugged() const { return !topEntries_.empty(); }
    Faults& faults() { return faults_; }

    // Publishes the dock's entries (plug) or removes them (unplug). Entries
    // published again get new numbers, as a device plugged in anew does.
    void plug(Registry& registry);
    void unplug(Registry& registry);

    // A dock's own control line (events, temperatures, ...): "" when done,
    // else why not. "unknown" means the verb is not one of this dock's.
    virtual std::string control(const std::string& verb, const std::string& arg) = 0;
    virtual StateFields state() const = 0;
    // A memory "check" can compare ("eeprom", "flash"), or null.
    virtual const std::vector<uint8_t>* memory(const std::string& name) const = 0;

    // The serial number of disk `disk` behind the dock.
    std::string diskSerial(int disk) const;

protected:
    // Adds the dock's entries; returns the top ones, which unplug removes.
    virtual std::vector<int> publish(Registry& registry) = 0;

private:
    int index_;
    DockConfig config_;
    Faults faults_;
    std::vector<int> topEntries_;
};

// Shared argument readers for the control lines; false when `text` is not one.
using simcore::parseDecimal;
bool parseOnOff(const std::string& text, const char* on, const char* off, bool& value);
// Upper-case hex of `value` in exactly `digits` digits.
std::string hexDigits(unsigned value, int digits);
std::string hexBytes(const uint8_t* data, std::size_t size);
// Hex text (either case, whole bytes) to bytes; false when `text` is not that.
bool parseHexBytes(const std::string& text, std::vector<uint8_t>& out);

} // namespace docksim
