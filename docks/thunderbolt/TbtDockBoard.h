#pragma once

#include "docks/thunderbolt/MarvellCommsBoard.h"
#include "link/EventTable.h"

/** The events both Thunderbolt docks report. Each dock's listener adds its
    sixth operation after these five: the docks call them by position. */
class TbtDockEventListener : public HardwareBoardEventListener
{
public:
    static constexpr uint32_t debugEventBit = 1;
    static constexpr uint32_t dockTemperatureEventBit = 2;
    static constexpr uint32_t diskpackTemperatureEventBit = 4;
    static constexpr uint32_t diskpackEventBit = 8;
    static constexpr uint32_t ejectButtonEventBit = 16;
    static constexpr uint32_t sixthEventBit = 32;
    static constexpr uint32_t allEvents = 63;

    explicit TbtDockEventListener(uint32_t mask = allEvents) : HardwareBoardEventListener(mask) {}

    virtual void debugText(const juce::String& text) = 0;
    /** Signed degrees Celsius. */
    virtual void dockTemperature(int degrees) = 0;
    virtual void diskpackTemperature(int degrees) = 0;
    virtual void diskpackChanged(bool present, bool fault) = 0;
    virtual void ejectButton(bool down) = 0;
};

/** The five event rows both docks share, for a dock's own listener type, so
    its table holds only the sixth row besides them. */
template <class Listener>
struct TbtDockEventRows
{
    static constexpr EventRow<Listener> debug { 'd', Listener::debugEventBit, EventDecoding::text,
                                                [](Listener& l, const EventValue& v) { l.debugText(v.text); } };
    static constexpr EventRow<Listener> dockTemperature {
        't', Listener::dockTemperatureEventBit, EventDecoding::signedNumber,
        [](Listener& l, const EventValue& v) { l.dockTemperature(v.number); } };
    static constexpr EventRow<Listener> diskpackTemperature {
        'p', Listener::diskpackTemperatureEventBit, EventDecoding::signedNumber,
        [](Listener& l, const EventValue& v) { l.diskpackTemperature(v.number); } };
    static constexpr EventRow<Listener> diskpack {
        'i', Listener::diskpackEventBit, EventDecoding::number,
        [](Listener& l, const EventValue& v) { l.diskpackChanged((v.raw & 1) != 0, (v.raw & 2) != 0); } };
    static constexpr EventRow<Listener> ejectButton { 'b', Listener::ejectButtonEventBit, EventDecoding::number,
                                                      [](Listener& l, const EventValue& v) { l.ejectButton(v.raw != 0); } };
};

/** What the two Thunderbolt docks have in common: the driver they sit behind,
    their bootloader, the command set of their firmware, the registry walks to
    the disks and the Thunderbolt port, and the decoding of their events by a
    table of event kinds. */
class TbtDockBoard : public MarvellCommsBoard
{
public:
    /** The most diskpack EEPROM bytes one command moves. */
    static constexpr int maxEepromTransfer = 32;

    using MarvellCommsBoard::MarvellCommsBoard;

    const char* serviceNameString() const override { return "com_tarvoworks_driver_TbtDockDriver"; }
    int getMcuVariant() const override { return 1; }
    /** The docks' bootloader takes its requests through the board link. */
    HardwareBoardFWUpdater* getFWUpdater() override;

    bool resetEeprom();
    bool getDiskpackId(int& id);
    bool getDiskpackGuid(juce::String& guid);
    /** The rail's reading, signed. */
    bool getVoltageRail(int rail, int& value);
    bool setDiskpackWriteProtect(bool on);
    bool getDiskpackWriteProtect(bool& on);
    bool enableDockTemperatureEvents(bool on);
    bool enableDiskpackTemperatureEvents(bool on);
    bool getOperatingHours(int& hours);
    bool getMinMaxTemperatures(int zone, int& minDegrees, int& maxDegrees);
    bool setDiskpackPower(bool on);
    /** Refuses a count above 32 (or below 0). The dock always answers with
        32 bytes, which land in `data` whatever the count: it must hold 32. */
    bool readDiskpackEeprom(int address, int count, unsigned char* data);
    /** Refuses a count above 32 (or below 0). */
    bool writeDiskpackEeprom(int address, int count, unsigned char* data);
    bool setDiskpackTypeId(int typeId);
    bool setSerialNumber(int serial);
    bool getSerialNumber(int& serial);

    /** The serial number of disk `index` behind the dock, read from the
        registry. True in every case; `serial` stays empty where the disk or
        its serial number is not found. */
    bool getDiskSerialNumber(int index, juce::String& serial);
    /** The unique id of the Thunderbolt port the dock hangs on, as 16 hex digits. */
    bool getUID(juce::String& uid);

protected:
    /** Each colour is clamped to 0..3; flash is bit 6, activity bit 7. */
    bool sendDiskpackLed(int red, int green, int blue, bool flash, bool activity);

private:
    JUCE_DECLARE_NON_COPYABLE(TbtDockBoard)
};
