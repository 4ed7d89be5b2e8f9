#include "console/Menus.h"
#include "console/ConsoleListeners.h"

using namespace ConsoleInput;
using Menus::reportFailure;

namespace
{
constexpr int eepromTestPages = 16;
constexpr int eepromPageSize = XferDualBoard::maxEepromTransfer;

/** Writes a known pattern over the first 16 pages of a diskpack's EEPROM and
    reads it back. A read that fails ends the reading but not the verdict:
    only a page that came back different fails the test. */
void eepromWriteReadTest(XferDualBoard& board)
{
    const int which = askInt("Test diskpack EEPROM (which): ");

    for (int page = 0; page < eepromTestPages; ++page)
    {
        unsigned char data[eepromPageSize];
        for (int i = 0; i < eepromPageSize; ++i)
            data[i] = Menus::eepromTestPattern(page * eepromPageSize + i);
        if (!board.writeDiskpackEeprom(which, page * eepromPageSize, eepromPageSize, data))
        {
            printf("Failed writing page %d\n", page);
            return;
        }
    }

    bool passed = true;
    for (int page = 0; page < eepromTestPages; ++page)
    {
        unsigned char buffer[eepromPageSize] = {};
        if (!board.readDiskpackEeprom(which, page * eepromPageSize, eepromPageSize, buffer))
        {
            printf("Failed reading page %d\n", page);
            break;
        }
        for (int i = 0; i < eepromPageSize; ++i)
        {
            const unsigned char expected = Menus::eepromTestPattern(page * eepromPageSize + i);
            if (buffer[i] != expected)
            {
                printf("Compare fail page %d byte %02x exp %02x act %02x\n", page, i, expected, buffer[i]);
                passed = false;
                break;
            }
        }
    }
    puts(passed ? "Passed" : "Failed");
}

const char* const help =
    "\nZ reset EEPROM, G get voltage rail, O get op hours,\nM get temps, T sys temp, F expander fan speed, H set "
    "id leds,\nI get diskpack ID, U get guid, P diskpack temp, J disk fan speed\nL set diskpack leds, D "
    "diskpack power,\nX set write protect, Y get write protect,\nE get SAS addr, A get disk addr, R reset "
    "SAS,\nC clear phy errors, B get phy errors, N set phy min/max speed,\nV reset PHY, W diskpack EEPROM "
    "write/read test,\nx exit\n";

const MenuKey<XferDualBoard> keys[] = {
    { 'A', [](XferDualBoard& board) {
        int which, disk;
        ask("Get disk SAS address (which, disk): ", "%d %d", which, disk);
        juce::String addr;
        if (board.sasGetDiskAddr(which, disk, addr))
            printf("Diskpack %d disk %d address: %s\n", which, disk, addr.toRawUTF8());
        else
            puts("Failed");
      } },
    { 'B', [](XferDualBoard& board) { Menus::showPhyErrors(board, &XferDualBoard::sasGetPhyErrorCount); } },
    { 'C', [](XferDualBoard& board) { puts(board.sasClearErrorCounts() ? "Error counts cleared" : "Failed"); } },
    { 'D', [](XferDualBoard& board) {
        int which, on;
        ask("Diskpack power (which, on): ", "%d %d", which, on);
        reportFailure(board.setDiskpackPower(which, on != 0));
      } },
    { 'E', [](XferDualBoard& board) { Menus::showExpanderAddress(board); } },
    { 'F', [](XferDualBoard& board) {
        char prompt[64];
        snprintf(prompt, sizeof prompt, "Fan speed (1 for auto, min %d): ", XferDualBoard::minFanSpeed);
        const int speed = askInt(prompt);
        reportFailure(speed == 1 ? board.setFanAuto(true) : board.setFanSpeed(speed));
      } },
    { 'G', [](XferDualBoard& board) {
        const int rail = askInt("Rail (0-4=1V0,1V8,3V3,5V,12V): ");
        int value = 0;
        if (board.getVoltageRail(rail, value))
            printf("Voltage: %d mV\n", value);
        else
            puts("Failed");
      } },
    { 'H', [](XferDualBoard& board) { reportFailure(board.setLedId(askInt("Id: "))); } },
    { 'I', [](XferDualBoard& board) {
        Menus::printReadingOf(board, "Get diskpack ID (which): ", &XferDualBoard::getDiskpackId,
                              "Diskpack %d ID: %x\n");
      } },
    { 'J', [](XferDualBoard& board) {
        char prompt[80];
        snprintf(prompt, sizeof prompt, "Disk fan speed (which, speed)(1 for auto, min %d): ",
                 XferDualBoard::minFanSpeed);
        int which, speed;
        ask(prompt, "%d %d", which, speed);
        reportFailure(speed == 1 ? board.setDiskFanSpeed(which, true, 0) : board.setDiskFanSpeed(which, false, speed));
      } },
    { 'L', [](XferDualBoard& board) {
        int which, r, g, b, flash, activity;
        ask("Set Diskpack LED (which,r,g,b,flash,activity): ", "%d %d %d %d %d %d", which, r, g, b, flash,
            activity);
        reportFailure(board.setDiskpackLed(which, r, g, b, flash != 0, activity != 0));
      } },
    { 'M', [](XferDualBoard& board) {
        const int zone = askInt("Which zone (0-1 = diskpacks, 2 = system): ");
        int min = 0, max = 0;
        if (board.getMinMaxTemperatures(zone, min, max))
            printf("%s temperature Min: %d Max: %d\n", Menus::xferDualZoneName(zone), min, max);
        else
            puts("Failed");
      } },
    { 'N', [](XferDualBoard& board) {
        int phy, min, max;
        ask("Phy, Min, Max (0=1.5,1=3,2=6): ", "%d %d %d", phy, min, max);
        reportFailure(
            board.sasSetPhyMinMaxSpeed(phy, Menus::xferDualPhySpeed(min), Menus::xferDualPhySpeed(max)));
      } },
    { 'O', [](XferDualBoard& board) { Menus::showOperatingHours(board); } },
    { 'P', [](XferDualBoard& board) {
        int which, enable;
        ask("Diskpack temperature check (which, enable): ", "%d %d", which, enable);
        reportFailure(board.enableDiskpackTemperatureEvents(which, enable != 0));
      } },
    { 'R', [](XferDualBoard& board) {
        puts(board.sasReset(askInt("Enable UART: ") != 0) ? "SAS expander reset" : "Failed");
      } },
    { 'T', [](XferDualBoard& board) {
        reportFailure(board.enableSysTemperatureEvents(askInt("System temperature check enable: ") != 0));
      } },
    { 'U', [](XferDualBoard& board) {
        Menus::printReadingOf(board, "Get diskpack Guid (which): ", &XferDualBoard::getDiskpackGuid,
                              "Diskpack %d Guid: %s\n");
      } },
    { 'V', [](XferDualBoard& board) { reportFailure(board.sasResetPhy(askInt("Phy: "))); } },
    { 'W', [](XferDualBoard& board) { eepromWriteReadTest(board); } },
    { 'X', [](XferDualBoard& board) {
        int which, protect;
        ask("Set write protect (which, enable): ", "%d %d", which, protect);
        reportFailure(board.setDiskpackWriteProtect(which, protect != 0));
      } },
    { 'Y', [](XferDualBoard& board) {
        const int which = askInt("Get write protect (which): ");
        bool protectedNow = false;
        if (board.getDiskpackWriteProtect(which, protectedNow))
            printf("Diskpack %d is %swrite protected\n", which, protectedNow ? "" : "not ");
        else
            puts("Failed");
      } },
    { 'Z', [](XferDualBoard& board) { Menus::resetWithConfirmation(board); } },
};
} // namespace

const BoardMenu xferDualMenu {
    help, BoardSession::start<XferDualBoard, AVRXferDualEventListener, runKeyTable<XferDualBoard, keys>>
};
