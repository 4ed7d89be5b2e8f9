#include "support/BoardTestKit.h"

using namespace boardtest;
using Desktop = ScriptedBoardTest<Scripted<DesktopBoard>>;

namespace
{
juce::String hexOf(const unsigned char* p, int n) { return juce::String::toHexString(p, n, 0).toUpperCase(); }

/** Replies for programming serial 0: failAt fails, corruptAt's last byte reads back changed; read-backs lower case. */
void scriptProgramming(Scripted<DesktopBoard>& board, int failAt = -1, int corruptAt = -1)
{
    for (int at = 0; at <= 2 * DesktopBoard::eepromBlocks; ++at)
    {
        const auto block = hexOf(&board.getEepromImage()[(size_t) (at / 2 * 32)], 32).toLowerCase();
        if (at == failAt)
            board.willFail();
        else if (at % 2 == 0)
            board.willReply("OK");
        else
            board.willReply("R" + (at == corruptAt ? block.substring(0, 62) + "00" : block));
    }
}
} // namespace

TEST_F(Desktop, DiskpackBoardAndExpanderCommands)
{
    int v = -1;
    bool b = true;

    // The console's key rows send the plain calls; these are the signs, limits, failures and kept state.
    EXPECT_TRUE(replied(board, "R1", &DesktopBoard::getDiskpackWriteProtect));
    board.willReply("RF619");
    EXPECT_EQ(readPair(board, &DesktopBoard::getMinMaxTemperatures), std::make_pair(-10, 25));
    EXPECT_TRUE(board.setDiskpackPower(false) && board.setLedId(0x13)) << "the id is cut to one digit";
    // A reply of the wrong length, or a failure, leaves the result alone.
    board.willReply("R2A0");
    EXPECT_FALSE(board.getBatteryVoltage(v));
    EXPECT_EQ(v, -1);
    board.willFail();
    EXPECT_FALSE(board.getDiskpackWriteProtect(b));
    EXPECT_TRUE(b);

    // The LED state is sent only on a change, and kept even when sending it failed.
    // Any non-zero LED is LED 1, and a mode is not masked: 5 spills into LED 1's field.
    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedFlashSlow) && board.setDiskpackLed(7, diskpackLedFlashSlow)
                && board.setDiskpackLed(0, diskpackLedOn) && board.setDiskpackLed(0, (DiskpackLedMode) 5));
    board.willFail();
    EXPECT_FALSE(board.setDiskpackLed(1, diskpackLedOff));
    EXPECT_TRUE(board.setDiskpackLed(1, diskpackLedOff));
    EXPECT_EQ(board.sent, (juce::StringArray { "Y0", "M", "D0", "H3", "V", "Y0", "L8", "L9", "LD", "L1" }));
    EXPECT_EQ(board.getLedState(), 1);
    board.clearSent();

    int count = -1;
    juce::String addr = "old";
    EXPECT_EQ(replied(board, "RFFFFFFFF", &DesktopBoard::getPhyErrorCount, 0), -1) << "all 32 bits come through";
    board.willReply("R0000001");
    EXPECT_FALSE(board.getPhyErrorCount(3, count)) << "the register is always eight digits";
    EXPECT_FALSE(board.getPhyErrorCount(12, count) || board.getPhyErrorCount(-1, count));

    // A disk's address is read only when its PHY's status says "type 1, attached"; disk 0 is on the last PHY.
    for (auto status : { "R10000000", "R30000001", "R00000001" })
    {
        board.willReply(status);
        EXPECT_TRUE(board.sasGetDiskAddr(0, addr));
        EXPECT_EQ(addr, "0000000000000000") << status;
    }
    board.willReply("R1ABCDEF1");
    EXPECT_EQ(replied(board, "R5000C50012345678", &DesktopBoard::sasGetDiskAddr, 3), "5000C50012345678");
    board.willFail();
    EXPECT_FALSE(board.sasGetDiskAddr(1, addr)) << "no address read after a failed status";
    EXPECT_FALSE(board.sasGetDiskAddr(4, addr) || board.sasGetDiskAddr(-1, addr));
    EXPECT_EQ(board.sent, (juce::StringArray { "E03040318", "E03040F18", "E03042C44",
                                               "E03042C44", "E03042C44", "E03042044", "E05042078", "E03042844" }));
    board.clearSent();

    // Only the disk PHYs 8..11 take a rate or a reset, and this expander has no 6 Gbit/s.
    const auto slow = sasSpeed1G5;
    EXPECT_FALSE(board.setPhyMinMaxSpeed(7, slow, slow) || board.setPhyMinMaxSpeed(12, slow, slow)
                 || board.setPhyMinMaxSpeed(8, sasSpeed6G, sasSpeed6G) || board.setPhyMinMaxSpeed(8, slow, sasSpeed6G)
                 || board.setPhyMinMaxSpeed(8, (SasPhyConnectSpeed) 0, sasSpeed3G));
    EXPECT_FALSE(board.resetPhy(7) || board.resetPhy(12));
    board.willFail();
    EXPECT_FALSE(board.resetPhy(10)) << "no release after a failed hold";
    board.willReply("OK");
    board.willFail();
    EXPECT_FALSE(board.resetPhy(10));
    EXPECT_EQ(board.sent, (juce::StringArray { "E02042B1000000003", "E02042B1000000003", "E02042B1000000001" }));
}

// The emulator test checks the serial's place and the checksums the expander loads at reset.
TEST(DesktopEeprom, FactoryImageProgramsEveryBlockVerifiesResetsAndStopsAtAFailure)
{
    Scripted<DesktopBoard> board;
    const auto& image = board.getEepromImage();
    const auto before = image;
    EXPECT_EQ(juce::String((const char*) &image[73], 24), "LSILOGICSASx12 A.0      ");
    // The ends of each block that is copied in, the fill around them, and the checksums.
    const std::vector<std::pair<int, int>> bytes { { 0, 0x81 },   { 63, 0xFF }, { 64, 0x51 },   { 100, 0x1C },
                                                   { 165, 0x06 }, { 166, 0 },   { 191, 0 },     { 192, 0xB9 },
                                                   { 193, 0x10 }, { 250, 0 },   { 251, 0x56 },  { 252, 0xFF },
                                                   { 319, 0xFF } };
    for (const auto& [at, byte] : bytes)
        EXPECT_EQ(image[(size_t) at], byte) << at;
    EXPECT_EQ(board.sasProgramEeprom(4096), DesktopBoard::programBadSerial);
    EXPECT_EQ(board.sasProgramEeprom(-1), DesktopBoard::programBadSerial);
    EXPECT_EQ(image, before);

    scriptProgramming(board);
    EXPECT_EQ(board.sasProgramEeprom(0), DesktopBoard::programOk);
    ASSERT_EQ(board.sent.size(), 21);
    board.sent.removeRange(0, 18);
    EXPECT_EQ(board.sent, (juce::StringArray { "E0009" + hexOf(&image[288], 32), "E0109", "E06" }));

    // The top of the serial range; the image keeps it even though the write failed.
    board.willFail();
    EXPECT_EQ(board.sasProgramEeprom(4095), DesktopBoard::programWriteFailed);
    EXPECT_EQ(hexOf(&image[71], 2), "FFFF");

    // A failure stops at its block and reports its code.
    const std::tuple<int, int, int, int> cases[] = {
        { 6, -1, DesktopBoard::programWriteFailed, 7 },   // three blocks written and read, then the failed write
        { 1, -1, DesktopBoard::programReadFailed, 2 },
        { -1, 19, DesktopBoard::programVerifyFailed, 20 }, // no reset after a failed verify
        { 20, -1, DesktopBoard::programOk, 21 },           // the reset's result is not checked
    };
    for (const auto& [failAt, corruptAt, result, sent] : cases)
    {
        SCOPED_TRACE(sent);
        Scripted<DesktopBoard> fresh;
        scriptProgramming(fresh, failAt, corruptAt);
        EXPECT_EQ(fresh.sasProgramEeprom(0), result);
        EXPECT_EQ(fresh.sent.size(), sent);
    }
    // A read-back shorter than a block is a read failure, not a mismatch.
    board.willReply("OK");
    board.willReply("R0011");
    EXPECT_EQ(board.sasProgramEeprom(0), DesktopBoard::programReadFailed);
}

TEST_F(Desktop, EventsReachListenersByMask)
{
    // The console checks the decoding; here the masks, the debug text, and a foreign listener passed over safely.
    DesktopHeard some(DesktopBoardEventListener::diskpackTemperatureBit | DesktopBoardEventListener::diskpackBit
                      | DesktopBoardEventListener::debugBit);
    HardwareBoardEventListener foreign;
    board.registerListener(&foreign);
    board.registerListener(&some);

    feed({ "pF0", "v1", "i1", "l9", "dhello R world", "d", "t12", "b1" });

    EXPECT_EQ(some.calls(), (Calls { "temp -16", "present", "debug hello R world", "debug " }));
    EXPECT_EQ(log.lines(), unknownEvents("DesktopBoardEventListener", "tb"));
}
