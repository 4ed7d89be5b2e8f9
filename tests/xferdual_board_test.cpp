#include "support/BoardTestKit.h"

using namespace boardtest;
using XferDual = ScriptedBoardTest<Scripted<XferDualBoard>>;

TEST_F(XferDual, BoardDiskpackAndEepromCommands)
{
    // The console's key rows send the plain calls; these are the off cases, auto (which ignores the speed),
    // colours clamped to 0..3 and the limits.
    EXPECT_TRUE(board.setDiskpackPower(0, false) && board.setDiskFanSpeed(1, true, 200)
                && board.setDiskpackLed(0, 7, -2, 9, false, true) && board.setDiskpackLed(1, 0, 3, 0, true, true));

    // Below 85 the fan stalls, so only off is allowed there; a negative speed goes without digits.
    EXPECT_FALSE(board.setFanSpeed(1) || board.setFanSpeed(84) || board.setFanSpeed(256));
    for (int speed : { 0, 85, 255, -1 })
        EXPECT_TRUE(board.setFanSpeed(speed)) << speed;
    EXPECT_TRUE(board.setFanAuto(false));

    const juce::StringArray expected { "D00", "J101", "L0B3", "L1CC", "F00", "F55", "FFF", "F", "F00" };
    EXPECT_EQ(board.sent, expected);
    board.clearSent();

    const unsigned char data[] = { 0xAA, 0x55 };
    unsigned char page[40] = {};
    EXPECT_TRUE(board.writeDiskpackEeprom(0, 0xF20, 0, data)) << "an empty write still carries its header";

    juce::String reply = "R";
    for (int i = 0; i < 32; ++i)
        reply += juce::String::toHexString(0xC0 + i);
    board.willReply("R0102");
    EXPECT_FALSE(board.readDiskpackEeprom(0, 0x1FFF, 32, page)) << "a short page is a failure";
    board.willReply(reply);
    EXPECT_TRUE(board.readDiskpackEeprom(17, 0, 32, page)) << "the diskpack field is four bits";
    EXPECT_FALSE(board.writeDiskpackEeprom(0, 0, 33, page) || board.writeDiskpackEeprom(0, 0, -1, page)
                 || board.readDiskpackEeprom(0, 0, 33, page) || board.readDiskpackEeprom(0, 0, -1, page));
    EXPECT_EQ(board.sent, (juce::StringArray { "W0F2000", "R0FFF20", "R100020" }));
}

TEST_F(XferDual, ExpanderAddressesCountersResetsAndLinkRate)
{
    juce::String addr;
    board.willReply("R5006050BCDA100");
    EXPECT_FALSE(board.sasGetExpanderAddr(addr)) << "seven bytes are not an address";

    // Only "type 1, attached" is a disk; no address is read after a failed status.
    EXPECT_EQ(replied(board, "R10000000", &XferDualBoard::sasGetDiskAddr, 0, 1), "0000000000000000");
    board.willFail();
    EXPECT_FALSE(board.sasGetDiskAddr(0, 0, addr));
    board.willReply("R10000001");
    board.willFail();
    EXPECT_FALSE(board.sasGetDiskAddr(1, 1, addr));
    EXPECT_FALSE(board.sasGetDiskAddr(2, 0, addr) || board.sasGetDiskAddr(0, 2, addr)
                 || board.sasGetDiskAddr(-1, 0, addr));

    int count = 0;
    EXPECT_FALSE(board.sasGetPhyErrorCount(36, count) || board.sasGetPhyErrorCount(-1, count));
    board.willFail();
    EXPECT_FALSE(board.sasResetPhy(0)) << "no release after a failed hold";
    EXPECT_FALSE(board.sasResetPhy(4) || board.sasResetPhy(-1));
    EXPECT_EQ(board.sent, (juce::StringArray { "E05C0066010", "E03C0040044", "E03C0041044", "E03C0042044",
                                               "E05C0042078", "E02C004071800000003" }));
    board.clearSent();
    for (int i = 0; i < 4; ++i)
        board.willReply("OK");
    board.willFail();
    EXPECT_FALSE(board.sasClearErrorCounts());
    EXPECT_EQ(board.sent.size(), 5) << "later PHYs are not cleared";
    board.clearSent();

    const std::tuple<int, SasPhyConnectSpeed, SasPhyConnectSpeed, const char*, const char*, const char*> cases[] = {
        { 0, sasSpeed6G, sasSpeed1G5, "R123457FF", "E03C0040704", "E02C00407041234578A" }, // min above max
        { 1, sasSpeed1G5, sasSpeed1G5, "R00000000", "E03C0041704", "E02C004170400000188" },
        { 3, sasSpeed1G5, sasSpeed6G, "R80000800", "E03C0043704", "E02C004370480000FA8" }, // bit 11 is kept
        { 3, sasSpeed3G, sasSpeed3G, "R00000000", "E03C0043704", "E02C004370400000299" }
    };
    for (const auto& [port, min, max, before, query, written] : cases)
    {
        board.clearSent();
        board.willReply(before);
        EXPECT_TRUE(board.sasSetPhyMinMaxSpeed(port, min, max));
        EXPECT_EQ(board.sent, (juce::StringArray { query, written })) << written;
        EXPECT_TRUE(board.expected[0] && !board.expected[1]);
    }

    board.clearSent();
    board.willFail();
    EXPECT_FALSE(board.sasSetPhyMinMaxSpeed(0, sasSpeed1G5, sasSpeed3G)
                 || board.sasSetPhyMinMaxSpeed(4, sasSpeed1G5, sasSpeed3G)
                 || board.sasSetPhyMinMaxSpeed(-1, sasSpeed1G5, sasSpeed3G)
                 || board.sasSetPhyMinMaxSpeed(0, (SasPhyConnectSpeed) 0, sasSpeed3G)
                 || board.sasSetPhyMinMaxSpeed(0, sasSpeed1G5, (SasPhyConnectSpeed) 4));
    EXPECT_EQ(board.sent.size(), 1) << "nothing written after a failed read, nor sent out of range";
}

TEST_F(XferDual, EventsAreSplitAndFilteredByMask)
{
    // The console's event lines check most of the decoding; here the masks, the signs and the debug text.
    using L = XferDualBoardEventListener;
    XferDualHeard packs(L::diskpackBit | L::ejectButtonBit),
        temps(L::systemTemperatureBit | L::diskpackTemperatureBit | L::debugBit);
    board.registerListener(&packs);
    board.registerListener(&temps);

    feed({ "t1EF6", "p1F0", "i13", "i02", "b11", "l10", "j1C8", "dfan stalled", "v1", "x00" });

    EXPECT_EQ(packs.calls(), (Calls { "pack 1 present fault", "pack 0 absent fault", "eject 1 down" }));
    EXPECT_EQ(temps.calls(), (Calls { "sys 30 -10", "temp 1 -16", "debug fan stalled" }));
    EXPECT_EQ(log.lines(), unknownEvents("XferDualBoardEventListener", "vx"));
}
