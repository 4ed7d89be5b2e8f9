#include "support/BoardTestKit.h"

#include <map>

using namespace boardtest;
using Desktop = ScriptedBoardTest<Scripted<DesktopBoard>>;

namespace
{
/** Sum of image bytes [from, to] modulo 256. */
unsigned imageSum(const DesktopBoard::EepromImage& image, int from, int to)
{
    unsigned sum = 0;
    for (int i = from; i <= to; ++i)
        sum += image[(size_t) i];
    return sum & 0xFF;
}

juce::String hexOf(const unsigned char* p, int n)
{
    return juce::String::toHexString(p, n, 0).toUpperCase();
}

/** A desktop board whose expander keeps the EEPROM blocks written to it and
    answers read-backs from them; single operations can be made to fail. */
struct EepromBoard : Scripted<DesktopBoard>
{
    std::map<int, juce::String> blocks;  // block number -> 64 hex digits as written
    int failWriteOf = -1, failReadOf = -1, corruptReadOf = -1;
    bool failReset = false;

    bool sendCommandInternal(const juce::String& command, juce::String& reply, bool expectResponse) override
    {
        sent.add(command);
        expected.add(expectResponse);
        if (command.startsWith("E00"))
        {
            const int b = command.substring(3, 5).getHexValue32();
            blocks[b] = command.substring(5);
            reply = "OK";
            return b != failWriteOf;
        }
        if (command.startsWith("E01"))
        {
            const int b = command.substring(3, 5).getHexValue32();
            if (b == failReadOf)
                return false;
            juce::String data = blocks[b];
            if (b == corruptReadOf)
                data = data.substring(0, 63) + (data.endsWith("0") ? "1" : "0");
            reply = "R" + data.toLowerCase();  // the board's case must not matter
            return true;
        }
        reply = "OK";
        return !(command == "E06" && failReset);
    }
};
} // namespace

TEST_F(Desktop, DiskpackAndBoardCommands)
{
    int v = -1;
    bool b = true;

    EXPECT_TRUE(board.resetEeprom());
    EXPECT_EQ(replied(board, "R2A", &DesktopBoard::getBatteryVoltage), 4200) << "battery steps are 100 mV";
    EXPECT_EQ(replied(board, "Rb", &DesktopBoard::getDiskpackId), 11);
    EXPECT_EQ(replied(board, "R0123-abc", &DesktopBoard::getDiskpackGuid), "0123-abc");
    EXPECT_TRUE(board.setDiskpackWriteProtect(true));
    EXPECT_TRUE(replied(board, "R1", &DesktopBoard::getDiskpackWriteProtect));
    EXPECT_TRUE(board.enableDiskpackTemperatureEvents(true));
    EXPECT_EQ(replied(board, "R01F4", &DesktopBoard::getOperatingHours), 500);
    EXPECT_EQ(repliedPair(board, "RF619", &DesktopBoard::getMinMaxTemperatures), std::make_pair(-10, 25));
    EXPECT_TRUE(board.setDiskpackPower(false));
    EXPECT_TRUE(board.setLedId(0x13)) << "the id is cut to one digit";

    const juce::StringArray expected { "Z", "V", "I", "U", "X1", "Y0", "P1", "O", "M", "D0", "H3" };
    EXPECT_EQ(board.sent, expected);

    // A reply of the wrong length leaves the result alone.
    board.willReply("R2A0");
    EXPECT_FALSE(board.getBatteryVoltage(v));
    EXPECT_EQ(v, -1);
    board.willFail();
    EXPECT_FALSE(board.getDiskpackWriteProtect(b));
    EXPECT_TRUE(b);
}

TEST_F(Desktop, LedStateIsSentOnlyOnChange)
{
    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow));
    EXPECT_TRUE(board.setDiskpackLed(7, diskpackLedFlashSlow)) << "any non-zero LED is LED 1";
    EXPECT_TRUE(board.setDiskpackLed(0, diskpackLedOn));
    EXPECT_EQ(board.sent, (juce::StringArray { "L8", "L9" }));

    // An out-of-range mode is not masked and spills into LED 1's field.
    board.clearSent();
    EXPECT_TRUE(board.setDiskpackLed(0, (DiskpackLedMode) 5));
    EXPECT_EQ(board.sent, juce::StringArray { "LD" });

    // The state is kept even when sending it failed, so a retry sends nothing.
    board.clearSent();
    board.willFail();
    EXPECT_FALSE(board.setDiskpackLed(1, diskpackLedOff));
    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedOff));
    EXPECT_EQ(board.sent, juce::StringArray { "L1" });
    EXPECT_EQ(board.getLedState(), 1);
}

TEST_F(Desktop, ExpanderReads)
{
    int count = -1;
    EXPECT_EQ(replied(board, "R5006050BCDA1000F", &DesktopBoard::sasGetExpanderAddr), "5006050BCDA1000F");
    EXPECT_EQ(replied(board, "R0000002a", &DesktopBoard::getPhyErrorCount, 11), 42);
    EXPECT_EQ(replied(board, "RFFFFFFFF", &DesktopBoard::getPhyErrorCount, 0), -1) << "all 32 bits come through";
    EXPECT_EQ(board.sent, (juce::StringArray { "E05000000", "E03042F18", "E03040318" }));
    for (bool e : board.expected)
        EXPECT_TRUE(e);

    board.clearSent();
    EXPECT_FALSE(board.getPhyErrorCount(12, count));
    EXPECT_FALSE(board.getPhyErrorCount(-1, count));
    EXPECT_TRUE(board.sent.isEmpty());

    board.willReply("R0000001");
    EXPECT_FALSE(board.getPhyErrorCount(3, count)) << "the register is always eight digits";
}

TEST_F(Desktop, DiskAddressReadsStatusFirst)
{
    juce::String addr = "old";

    // Disk 0 is on the last PHY. Only "type 1, attached" counts as a device.
    for (auto status : { "R10000000", "R30000001", "R00000001" })
    {
        board.clearSent();
        board.willReply(status);
        EXPECT_TRUE(board.sasGetDiskAddr(0, addr));
        EXPECT_EQ(addr, "0000000000000000") << status;
        EXPECT_EQ(board.sent, juce::StringArray { "E03042C44" });
    }

    board.clearSent();
    board.willReply("R1ABCDEF1");
    EXPECT_EQ(replied(board, "R5000C50012345678", &DesktopBoard::sasGetDiskAddr, 3), "5000C50012345678");
    EXPECT_EQ(board.sent, (juce::StringArray { "E03042044", "E05042078" }));

    board.clearSent();
    board.willFail();
    EXPECT_FALSE(board.sasGetDiskAddr(1, addr));
    EXPECT_EQ(board.sent, juce::StringArray { "E03042844" }) << "no address read after a failed status";

    board.clearSent();
    EXPECT_FALSE(board.sasGetDiskAddr(4, addr));
    EXPECT_FALSE(board.sasGetDiskAddr(-1, addr));
    EXPECT_TRUE(board.sent.isEmpty());
}

TEST_F(Desktop, PhyControlFrames)
{
    EXPECT_TRUE(board.clearErrorCounts());
    ASSERT_EQ(board.sent.size(), 12);
    EXPECT_EQ(board.sent[0], "E0204031000000005");
    EXPECT_EQ(board.sent[1], "E0204071000000005");
    EXPECT_EQ(board.sent[11], "E02042F1000000005");

    board.clearSent();
    board.willReply("OK");
    board.willReply("OK");
    board.willFail();
    EXPECT_FALSE(board.clearErrorCounts());
    EXPECT_EQ(board.sent.size(), 3) << "later PHYs are not cleared";

    board.clearSent();
    EXPECT_TRUE(board.setPhyMinMaxSpeed(9, sasSpeed1G5, sasSpeed3G));
    EXPECT_TRUE(board.setPhyMinMaxSpeed(11, sasSpeed3G, sasSpeed1G5));
    EXPECT_EQ(board.sent, (juce::StringArray { "E020424A080900000", "E02042CA090800000" }));

    board.clearSent();
    EXPECT_FALSE(board.setPhyMinMaxSpeed(7, sasSpeed1G5, sasSpeed1G5));
    EXPECT_FALSE(board.setPhyMinMaxSpeed(12, sasSpeed1G5, sasSpeed1G5));
    EXPECT_FALSE(board.setPhyMinMaxSpeed(8, sasSpeed6G, sasSpeed6G));
    EXPECT_FALSE(board.setPhyMinMaxSpeed(8, sasSpeed1G5, sasSpeed6G));
    EXPECT_FALSE(board.setPhyMinMaxSpeed(8, (SasPhyConnectSpeed) 0, sasSpeed3G));
    EXPECT_FALSE(board.resetPhy(7));
    EXPECT_FALSE(board.resetPhy(12));
    EXPECT_TRUE(board.sent.isEmpty());

    EXPECT_TRUE(board.resetPhy(8));
    EXPECT_EQ(board.sent, (juce::StringArray { "E0204231000000003", "E0204231000000001" }));

    board.clearSent();
    board.willFail();
    EXPECT_FALSE(board.resetPhy(10));
    EXPECT_EQ(board.sent, juce::StringArray { "E02042B1000000003" }) << "no release after a failed hold";
    board.willReply("OK");
    board.willFail();
    EXPECT_FALSE(board.resetPhy(10));

    board.clearSent();
    EXPECT_TRUE(board.sasReset());
    EXPECT_EQ(board.sent, juce::StringArray { "E06" });
}

TEST(DesktopEeprom, FactoryImageLayout)
{
    const DesktopBoard board;
    const auto& image = board.getEepromImage();
    EXPECT_EQ(image[0], 0x81);
    EXPECT_EQ(image[63], 0xFF);
    EXPECT_EQ(hexOf(&image[64], 7), "51500605BCDA10");
    EXPECT_EQ(juce::String((const char*) &image[73], 24), "LSILOGICSASx12 A.0      ");
    EXPECT_EQ(image[100], 0x1C);
    EXPECT_EQ(image[165], 0x06);
    EXPECT_EQ(image[166], 0x00);
    EXPECT_EQ(image[191], 0x00);
    EXPECT_EQ(image[193], 0x10);
    EXPECT_EQ(image[250], 0x00);
    EXPECT_EQ(image[252], 0xFF);
    EXPECT_EQ(image[319], 0xFF);
    EXPECT_EQ(imageSum(image, 64, 192), 0u) << "checksums hold before any programming";
    EXPECT_EQ(imageSum(image, 193, 251), 0u);
}

TEST(DesktopEeprom, SerialOutOfRangeSendsNothing)
{
    EepromBoard board;
    const auto before = board.getEepromImage();
    EXPECT_EQ(board.sasProgramEeprom(4096), DesktopBoard::programBadSerial);
    EXPECT_EQ(board.sasProgramEeprom(-1), DesktopBoard::programBadSerial);
    EXPECT_TRUE(board.sent.isEmpty());
    EXPECT_EQ(board.getEepromImage(), before);
}

TEST(DesktopEeprom, ProgramsEveryBlockVerifiesAndResets)
{
    EepromBoard board;
    EXPECT_EQ(board.sasProgramEeprom(0x123), DesktopBoard::programOk);

    const auto& image = board.getEepromImage();
    EXPECT_EQ(image[71], 0x12);
    EXPECT_EQ(image[72], 0x3F);
    EXPECT_EQ(imageSum(image, 64, 192), 0u);
    EXPECT_EQ(imageSum(image, 193, 251), 0u);

    ASSERT_EQ(board.sent.size(), 21);
    for (int b = 0; b < 10; ++b)
    {
        const auto write = board.sent[2 * b];
        EXPECT_EQ(write, "E00" + juce::String::toHexString(b).paddedLeft('0', 2)
                             + hexOf(&image[(size_t) (b * 32)], 32));
        EXPECT_FALSE(board.expected[2 * b]);
        EXPECT_EQ(board.sent[2 * b + 1], "E010" + juce::String(b));
        EXPECT_TRUE(board.expected[2 * b + 1]);
    }
    EXPECT_EQ(board.sent[20], "E06");

    // The extremes of the serial range, and the image keeps the last one.
    EXPECT_EQ(board.sasProgramEeprom(4095), DesktopBoard::programOk);
    EXPECT_EQ(image[71], 0xFF);
    EXPECT_EQ(image[72], 0xFF);
    EXPECT_EQ(imageSum(image, 64, 192), 0u);
    EXPECT_EQ(board.sasProgramEeprom(0), DesktopBoard::programOk);
    EXPECT_EQ(image[71], 0x00);
    EXPECT_EQ(image[72], 0x0F);
}

TEST(DesktopEeprom, FailuresStopAtTheBlockAndReportTheirCode)
{
    {
        EepromBoard board;
        board.failWriteOf = 3;
        EXPECT_EQ(board.sasProgramEeprom(7), DesktopBoard::programWriteFailed);
        EXPECT_EQ(board.sent.size(), 7) << "three blocks written and read, then the failed write";
        EXPECT_EQ(board.getEepromImage()[72], 0x7F) << "the image keeps the serial anyway";
    }
    {
        EepromBoard board;
        board.failReadOf = 0;
        EXPECT_EQ(board.sasProgramEeprom(7), DesktopBoard::programReadFailed);
        EXPECT_EQ(board.sent.size(), 2);
    }
    {
        EepromBoard board;
        board.corruptReadOf = 9;
        EXPECT_EQ(board.sasProgramEeprom(7), DesktopBoard::programVerifyFailed);
        EXPECT_EQ(board.sent.size(), 20) << "no reset after a failed verify";
    }
    {
        EepromBoard board;
        board.failReset = true;
        EXPECT_EQ(board.sasProgramEeprom(7), DesktopBoard::programOk) << "the reset's result is not checked";
        EXPECT_EQ(board.lastSent(), "E06");
    }
    {
        // A read-back shorter than a block is a read failure, not a mismatch.
        Scripted<DesktopBoard> board;
        board.willReply("OK");
        board.willReply("R0011");
        EXPECT_EQ(board.sasProgramEeprom(7), DesktopBoard::programReadFailed);
    }
}

TEST_F(Desktop, EventsReachListenersByMask)
{
    DesktopHeard all, tempAndPresence(DesktopBoardEventListener::diskpackTemperatureBit | DesktopBoardEventListener::diskpackBit);
    HardwareBoardEventListener foreign;  // not a desktop listener: must be skipped safely
    board.registerListener(&foreign);
    board.registerListener(&all);
    board.registerListener(&tempAndPresence);

    feed(board, { "pF0", "p19", "v1", "v0", "i1", "i0", "l9", "dhello R world", "d", "t12", "b1" });

    EXPECT_EQ(all.calls(), (Calls { "temp -16", "temp 25", "lever open", "lever closed", "present", "absent",
                                    "led 9", "debug hello R world", "debug " }));
    EXPECT_EQ(tempAndPresence.calls(), (Calls { "temp -16", "temp 25", "present", "absent" }));
    EXPECT_EQ(log.lines(), unknownEvents("DesktopBoardEventListener", "tb"));
}
