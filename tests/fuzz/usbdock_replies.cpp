// Every reply the USB dock class parses. Input: the operation (low bits; the top bit keeps the reply's
// first byte as it came instead of matching it to the command), then the reply bytes.
#include "FuzzSupport.h"

#include "console/dock/DockConsoleListeners.h"
#include "support/FakeUsbDockDriver.h"

namespace
{
struct Operation
{
    uint8_t subcode;
    void (*run)(XferDock& dock);
};

const Operation operations[] = {
    { 0x00, [](XferDock& d) { d.getStatusUpdate(); } },
    { 0x04, [](XferDock& d) { juce::String guid; d.getDiskpackGuid(guid); } },
    { 0x05, [](XferDock& d) { juce::String revision; d.getFirmwareRevision(revision); } },
    { 0x06, [](XferDock& d) { bool wp; d.getDiskpackWriteProtect(wp); } },
    { 0x0A, [](XferDock& d) { int degrees; d.getDiskpackTemp(degrees); } },
    { 0x0C, [](XferDock& d) { unsigned char page[XferDock::eepromPageSize]; d.readDiskpackEeprom(0, (int) sizeof page, page); } },
    { 0x0D, [](XferDock& d) { int id; d.getDiskpackId(id); } },
    { 0x0E, [](XferDock& d) { juce::String serial; d.getDiskSerialNumber(1, serial); } },
    { 0x0F, [](XferDock& d) { int mV; d.getVoltageRail(XferDockVoltageRail::diskpack3V3, mV); } },
};

struct OpenDock
{
    std::shared_ptr<FakeUsbDockDriver> driver = std::make_shared<FakeUsbDockDriver>();
    std::unique_ptr<XferDock> dock;
    AVRXferDockEventListener listener { 0xFFFFFFFFu };

    OpenDock()
    {
        driver->addDriverService(driver->addDevice(0x14100000, juce::String("FUZZ0001")));
        driver->answer(0x05, FakeUsbDockDriver::reply({ 0x05, 1, 2, 3 }));
        // No periodic poll: the fuzzer asks for each status itself.
        dock = std::make_unique<XferDock>(driver, 3600 * 1000);
        fuzz::check(dock->findAndOpen(0), "the scripted dock opens");
        dock->registerListener(&listener);
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::silenceOutput();
    static OpenDock open;
    if (size < 1)
        return 0;
    const auto& op = operations[(data[0] & 0x7F) % std::size(operations)];
    std::vector<uint8_t> reply(data + 1, data + size);
    if (!reply.empty() && (data[0] & 0x80) == 0)
        reply[0] = op.subcode;
    open.driver->answer(op.subcode, FakeUsbDockDriver::reply(reply));
    op.run(*open.dock);
    return 0;
}
