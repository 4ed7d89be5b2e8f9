#include "console/Menus.h"
#include "console/ConsoleListeners.h"

using namespace ConsoleInput;
using Menus::reportFailure;

namespace
{
// What the board reports when it has no battery gauge fitted.
constexpr int capacityNotAvailable = 255;
constexpr int currentNotAvailable = 65535;

void enterSasAddress(TransferBoard& board)
{
    const int expander = askInt("Which expander: ");
    // The answer's line end went with the answer, so the address starts with
    // the next key. No length limit here: the board class refuses anything but
    // an empty or a full-length address, and a cut-off typo must not pass.
    const std::string addr = readRawLine("Address (return to reset): ", std::string::npos);
    reportFailure(board.setSasAddr(expander, HardwareBoard::wireText(addr.c_str())));
}

/** A battery gauge reading: `notAvailable` from the board means no gauge. */
void showGaugeReading(TransferBoard& board, bool (TransferBoard::*read)(int&), int notAvailable, const char* format,
                      const char* notAvailableLine)
{
    int value = 0;
    if (!(board.*read)(value))
        puts("Failed");
    else if (value == notAvailable)
        puts(notAvailableLine);
    else
        printf(format, value);
}

const char* const help =
    "\nZ reset EEPROM, I get diskpack ID, O get op hours,\nV get voltage, B get capacity, C get current,\nF set "
    "fan speed, W set fan pwm, M get temps\nP diskpack temp, U get guid, L set leds,\nD diskpack power, X set "
    "write protect, Y get write protect,\nH internal disk power, T tape drive power,\nN get optional devices "
    "fitted, R set optional devices fitted,\nE get SAS addr, S set manual SAS addr,\nx exit\n";

const MenuKey<TransferBoard> keys[] = {
    { 'B', [](TransferBoard& board) {
        showGaugeReading(board, &TransferBoard::getBatteryCapacity, capacityNotAvailable,
                         "Battery Capacity: %d%%\n", "Battery Capacity: not available");
      } },
    { 'C', [](TransferBoard& board) {
        showGaugeReading(board, &TransferBoard::getBatteryCurrent, currentNotAvailable,
                         "Battery Current: %d mA\n", "Battery Current: not available");
      } },
    { 'E', [](TransferBoard& board) { Menus::showSasAddress(board); } },
    { 'F', [](TransferBoard& board) { reportFailure(board.setFanSpeed(askInt("Fan speed: "))); } },
    { 'H', [](TransferBoard& board) {
        reportFailure(board.setInternalDiskPower(askInt("Internal drive power: ") != 0));
      } },
    { 'N', [](TransferBoard& board) {
        const int disks = board.getNumInternalDisks();
        const bool tape = board.getTapeDriveFitted();
        printf("%d internal disks, %stape drive\n", disks, tape ? "" : "no ");
      } },
    { 'R', [](TransferBoard& board) {
        int disks, tape;
        ask("Num disks, tape drive: ", "%d %d", disks, tape);
        reportFailure(board.setDevicesFitted(disks, tape != 0));
      } },
    { 'S', [](TransferBoard& board) { enterSasAddress(board); } },
    { 'T', [](TransferBoard& board) { reportFailure(board.setTapeDrivePower(askInt("Tape drive power: ") != 0)); } },
    { 'W', [](TransferBoard& board) {
        reportFailure(board.setFanPwmFreq(askInt("Fan freq (0 - 5 = 904, 226, 113, 56(default), 28, 7): ")));
      } },
    { 'X', [](TransferBoard& board) {
        int which, enable;
        ask("Set write protect (0 = pack, 1 = internal): ", "%d %d", which, enable);
        reportFailure(which == 0 ? board.setDiskpackWriteProtect(enable != 0)
                                 : board.setInternalDisksWriteProtect(enable != 0));
      } },
    { 'Y', [](TransferBoard& board) {
        const int which = askInt("Get write protect (0 = pack, 1 = internal): ");
        bool protectedNow = false;
        if (which == 0 ? !board.getDiskpackWriteProtect(protectedNow)
                       : !board.getInternalDisksWriteProtect(protectedNow))
            puts("Failed");
        else if (which == 0)
            printf("Diskpack is %swrite protected\n", protectedNow ? "" : "not ");
        else
            printf("Internal disks are %swrite protected\n", protectedNow ? "" : "not ");
      } },
    { 'Z', [](TransferBoard& board) { Menus::resetWithConfirmation(board); } },
};

bool runKey(TransferBoard& board, int key)
{
    return runMenuKey(keys, board, key) || Menus::diskpackSlotMenu(board, key);
}
} // namespace

const BoardMenu transferMenu { help, BoardSession::start<TransferBoard, AVRTransferEventListener, runKey> };
