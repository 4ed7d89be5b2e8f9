// The USB 3.0 transfer dock: its driver's service in the registry, and the
// firmware that answers the 16-byte command blocks the user client passes on.
//
// Opcode 0xDE carries the dock's commands (subcode in byte 1, arguments from
// byte 2); every reply starts with the subcode, and most carry 'U' in byte 1
// when carried out ('N' otherwise). Opcode 0xE4 subcode 0 with 0x40 0xC0
// starts a firmware upgrade. The reply layouts are listed in docs/docksim.md.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "docksim/dock.h"

namespace docksim {

class UsbDock : public Dock {
public:
    static constexpr const char* kDriverName = "com_tarvoworks_driver_usbDockDriver";
    static constexpr std::size_t kEepromSize = 512;
    static constexpr std::size_t kEepromPage = 32;
    static constexpr uint8_t kOk = 'U';
    static constexpr uint8_t kRefused = 'N';

    UsbDock(int index, DockConfig config);

    // The reply to one command block, before the driver cuts it to the
    // caller's buffer. False for an opcode the dock does not know, which the
    // driver fails.
    bool execute(const uint8_t cdb[16], std::vector<uint8_t>& reply);

    int32_t locationId() const { return 0x14200000 + index() * 0x10000; }
    std::string serialNumber() const { return "XD" + std::to_string(100000 + index() * 10 + config().id); }

    std::string control(const std::string& verb, const std::string& arg) override;
    StateFields state() const override;
    const std::vector<uint8_t>* memory(const std::string& name) const override;

protected:
    std::vector<int> publish(Registry& registry) override;

private:
    using Handler = void (UsbDock::*)(const uint8_t* cdb, std::vector<uint8_t>& reply);
    struct Command {
        uint8_t subcode;
        Handler handler;
        std::size_t length; // of the whole reply
        bool needsDiskpack; // refused with 'N' in byte 1 while no diskpack is in
    };
    static const Command kCommands[];

    void status(const uint8_t*, std::vector<uint8_t>& r);
    void setPower(const uint8_t* cdb, std::vector<uint8_t>& r);
    void setDiskpackLed(const uint8_t* cdb, std::vector<uint8_t>& r);
    void getDiskpackLed(const uint8_t*, std::vector<uint8_t>& r);
    void getGuid(const uint8_t*, std::vector<uint8_t>& r);
    void getFirmware(const uint8_t*, std::vector<uint8_t>& r);
    void getWriteProtect(const uint8_t*, std::vector<uint8_t>& r);
    void setWriteProtect(const uint8_t* cdb, std::vector<uint8_t>& r);
    void getTemperature(const uint8_t*, std::vector<uint8_t>& r);
    void writeEeprom(const uint8_t* cdb, std::vector<uint8_t>& r);
    void readEeprom(const uint8_t* cdb, std::vector<uint8_t>& r);
    void getDiskpackId(const uint8_t*, std::vector<uint8_t>& r);
    void getDiskSerial(const uint8_t* cdb, std::vector<uint8_t>& r);
    void getRail(const uint8_t* cdb, std::vector<uint8_t>& r);
    void setDockLed(const uint8_t* cdb, std::vector<uint8_t>& r);

    bool diskpackIn_ = true;
    bool writeProtect_ = false;
    bool button_ = false;
    bool power_ = true;
    int diskpackTemp_ = 30;
    std::array<uint8_t, 5> led_{};     // r, g, b, flash, activity as last set
    bool ledLit_ = false;
    std::array<uint8_t, 5> dockLed_{}; // auto, r, g, b, flash
    std::array<int, 2> railsMv_{{12034, 3297}}; // 12 V, disk 3.3 V
    uint8_t diskpackId_ = 1;
    std::array<uint8_t, 8> guid_{};
    unsigned char version_[3] = {0, 0, 0};
    int upgrades_ = 0;
    std::vector<uint8_t> eeprom_ = std::vector<uint8_t>(kEepromSize, 0xFF);
};

} // namespace docksim
