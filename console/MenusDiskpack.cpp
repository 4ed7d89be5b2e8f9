#include "console/Menus.h"
#include "console/ConsoleListeners.h"

using namespace ConsoleInput;
using Menus::reportFailure;

namespace
{
const char* const help =
    "\nL led, A disk activity, X set wp, Y get wp,\nD set display text, S scsi id, V get voltage,\nT enable temp, "
    "R read text, W write text,\nQ num text pages, O get op hours, M get temps,\nU get guid, C prepare "
    "closedown,\nI get scsi type, B set display brightness,\nE get SAS addr, Z reset EEPROM,\nG backplane voltage "
    "rail, x exit\n";

const MenuKey<DiskpackBoard> keys[] = {
    { 'A', [](DiskpackBoard& board) {
        reportFailure(board.monitorDiskActivity(askInt("Set monitor disk activity: ") != 0));
      } },
    { 'B', [](DiskpackBoard& board) {
        // The board class maps the level onto the display's drive range;
        // out-of-range levels are its business.
        reportFailure(board.setDisplayBrightness(askInt("Brightness (0-15): ")));
      } },
    { 'C', [](DiskpackBoard& board) { reportFailure(board.prepareClosedown()); } },
    { 'D', [](DiskpackBoard& board) {
        printf("Display text: ");
        const std::string text = readTextLine();
        reportFailure(board.setDisplayText(text.c_str()));
      } },
    { 'E', [](DiskpackBoard& board) { Menus::showSasAddress(board); } },
    { 'G', [](DiskpackBoard& board) {
        const int backplane = askInt("Which backplane: ");
        const int rail = askInt("Rail (0-3=12V,5V,3V3,1V2): ");
        int value = 0;
        if (board.getBackplaneVoltageRail(backplane, rail, value))
            printf("Voltage: %d mV\n", value);
        else
            puts("Failed");
      } },
    { 'I', [](DiskpackBoard& board) {
        bool parallel = false;
        if (board.getParallelScsiType(parallel))
            puts(parallel ? "Parallel SCSI" : "SAS");
        else
            puts("Failed");
      } },
    { 'L', [](DiskpackBoard& board) {
        int r, g, b, flash;
        ask("Set LED (r,g,b,flash): ", "%d %d %d %d", r, g, b, flash);
        reportFailure(board.setLed(r, g, b, flash));
      } },
    { 'M', [](DiskpackBoard& board) { Menus::showTemperatures(board, "Temperatures"); } },
    { 'O', [](DiskpackBoard& board) { Menus::showOperatingHours(board); } },
    { 'Q', [](DiskpackBoard& board) { reportFailure(board.setNumTextPages(askInt("Num text pages: "))); } },
    { 'R', [](DiskpackBoard& board) {
        const int page = askInt("Read text (page): ");
        juce::String text;
        if (board.readText(page, text))
            puts(text.toRawUTF8());
        else
            puts("Failed");
      } },
    { 'S', [](DiskpackBoard& board) { reportFailure(board.setScsiIdMsb(askInt("Scsi Id Msb: ") != 0)); } },
    { 'T', [](DiskpackBoard& board) {
        reportFailure(board.enableTemperatureEvents(askInt("Temperature check enable: ") != 0));
      } },
    { 'U', [](DiskpackBoard& board) { Menus::showGuid(board, &DiskpackBoard::getGuid); } },
    { 'V', [](DiskpackBoard& board) { Menus::showBatteryVoltage(board); } },
    { 'W', [](DiskpackBoard& board) {
        printf("Write text (page, text): ");
        int page = 0;
        std::string text;
        readNumberAndText(page, text);
        reportFailure(board.writeText(page, text.c_str()));
      } },
    { 'X', [](DiskpackBoard& board) { reportFailure(board.setWriteProtect(askInt("Write protect: ") != 0)); } },
    { 'Y', [](DiskpackBoard& board) {
        bool protectedNow = false;
        if (board.getWriteProtect(protectedNow))
            printf("%sWrite Protected\n", protectedNow ? "" : "Not ");
        else
            puts("Failed");
      } },
    { 'Z', [](DiskpackBoard& board) { Menus::resetWithConfirmation(board); } },
};
} // namespace

const BoardMenu diskpackMenu {
    help, BoardSession::start<DiskpackBoard, AVRDiskpackEventListener, runKeyTable<DiskpackBoard, keys>>
};
