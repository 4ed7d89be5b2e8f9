// The Thunderbolt docks (single and CD2): the driver entry that takes a
// command through the "sendCommand" property and publishes the answer under
// "HostComms"/"reply", the registry around it (disks, Thunderbolt path), and
// the dock firmware's command set.
//
// Commands are a letter and exactly as many upper-case hex digits as the
// command takes; anything else is answered "N". Answers are "OK", "N", or "R"
// and upper-case hex. Events wait in a queue that "&" empties one by one:
//   iHH  diskpack: bit 0 in, bit 1 fault      bH   eject button down (1) / up (0)
//   tHH  dock temperature (signed, after T1)  pHH  diskpack temperature (after P1)
//   lH   LED lit (single dock)                jHH  fan speed (CD2 dock)
// plus any text queued with the "event" control line.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

#include "docksim/dock.h"
#include "docksim/xboot2_loader.h"

namespace docksim {

class TbtDock : public Dock {
public:
    static constexpr const char* kDriverClass = "com_tarvoworks_driver_TbtDockDriver";
    static constexpr std::size_t kEepromSize = 4096;
    static constexpr std::size_t kMaxQueuedEvents = 64;

    TbtDock(int index, DockConfig config);

    bool cd2() const { return config().kind == 'n'; }
    std::string identity() const { return cd2() ? "Thunderbolt CD2 Dock" : "Thunderbolt Single Dock"; }
    int diskCount() const { return cd2() ? 4 : 2; }
    int64_t uid() const { return 0x00D1DC5E12340000LL + index(); }

    // Carries out one command string and returns the answer.
    std::string command(const std::string& text);

    std::string control(const std::string& verb, const std::string& arg) override;
    StateFields state() const override;
    const std::vector<uint8_t>* memory(const std::string& name) const override;

protected:
    std::vector<int> publish(Registry& registry) override;

private:
    using Handler = std::string (TbtDock::*)(const std::string& arg);
    struct Command {
        char letter;
        int digits;         // exact number of hex digits after the letter; -1: the handler checks
        Handler handler;
        bool needsDiskpack; // "N" while no diskpack is in
    };
    static const Command kCommands[];

    std::string identify(const std::string&);
    std::string answerId(const std::string&);
    std::string synchronise(const std::string&);
    std::string nextEvent(const std::string&);
    std::string resetEeprom(const std::string&);
    std::string getDiskpackId(const std::string&);
    std::string getGuid(const std::string&);
    std::string getRail(const std::string& arg);
    std::string setWriteProtect(const std::string& arg);
    std::string getWriteProtect(const std::string& arg);
    std::string enableDockTempEvents(const std::string& arg);
    std::string enablePackTempEvents(const std::string& arg);
    std::string getHours(const std::string&);
    std::string getMinMax(const std::string& arg);
    std::string setLed(const std::string& arg);
    std::string setPower(const std::string& arg);
    std::string readEeprom(const std::string& arg);
    std::string writeEeprom(const std::string& arg);
    std::string setTypeId(const std::string& arg);
    std::string setSerial(const std::string& arg);
    std::string getSerial(const std::string&);
    std::string setFan(const std::string& arg);
    std::string star(const std::string& arg);
    std::string enterBootloader(const std::string& arg);

    void queue(const std::string& event);
    std::string presenceEvent() const;
    std::string ledOrFanEvent() const;
    void setTemperature(int zone, int degrees);
    const std::vector<int>& railsMv() const { return cd2() ? cd2RailsMv_ : singleRailsMv_; }

    bool diskpackIn_ = true;
    bool diskpackFault_ = false;
    bool button_ = false;
    bool writeProtect_ = false;
    bool power_ = true;
    bool dockTempEvents_ = false;
    bool packTempEvents_ = false;
    std::array<int, 2> temperature_{{30, 35}}; // zone 0 diskpack, zone 1 dock
    std::array<int, 2> minTemp_{{22, 24}};
    std::array<int, 2> maxTemp_{{41, 48}};
    std::vector<int> singleRailsMv_{12034, 5012, 3297, 1049, 3301};
    std::vector<int> cd2RailsMv_{19512, 12034, 3301, 5012, 3297, 1802, 903};
    int hours_ = 1234;
    int diskpackId_ = 1;
    int typeId_;
    int serial_ = 0x04D2;
    int ledByte_ = 0;
    bool ledLit_ = false;
    int fan_ = 1;
    int resetPort_ = -1;
    std::array<uint8_t, 8> guid_{};
    std::vector<uint8_t> eeprom_ = std::vector<uint8_t>(kEepromSize, 0xFF);
    std::deque<std::string> events_;
    Xboot2Loader loader_;
};

} // namespace docksim
