#include "support/PtyPeer.h"
#include "support/TestBoard.h"

#include "firmware/XBootFWUpdater.h"

#include <gtest/gtest.h>

#include <memory>

namespace
{
struct Protocol : ::testing::Test
{
    ScriptedTestBoard board;
    LogCapture log;
};
}

TEST_F(Protocol, SendersBuildTheCommandLine)
{
    EXPECT_TRUE(board.sendCommand('!', -1, 2));
    EXPECT_TRUE(board.sendCommand('L', 0x1A5, 2));
    EXPECT_TRUE(board.sendCommand('x', true));
    EXPECT_TRUE(board.sendCommand('x', false));
    EXPECT_TRUE(board.sendCommand('V', 0xBEEF, 6));
    EXPECT_TRUE(board.sendCommand('Z', 0, 0));
    const unsigned char bytes[] = { 0x0A, 0xFF, 0x00 };
    EXPECT_TRUE(board.sendCommand('W', bytes, 3));
    EXPECT_TRUE(board.sendCommand('W', bytes, 0));
    EXPECT_TRUE(board.sendCommand('W', bytes, -4));
    EXPECT_TRUE(board.sendCommand('T', "Hello world"));
    const juce::StringArray expected { "!", "LA5", "x1", "x0", "V00BEEF", "Z", "W0AFF00", "W", "W", "THello world" };
    EXPECT_EQ(board.sent, expected);
    EXPECT_FALSE(board.expected.contains(true)) << "plain senders want no response";
}

TEST_F(Protocol, RepliesAreDecodedByKind)
{
    EXPECT_EQ(HardwareBoard::decodeHexByte("a5"), 0xA5);
    EXPECT_EQ(HardwareBoard::decodeHexByte("A"), -1);
    EXPECT_EQ(HardwareBoard::decodeHexResponse("R"), 0u);
    EXPECT_EQ(HardwareBoard::decodeHexResponse("RdeadBEEF"), 0xDEADBEEFu);
    EXPECT_EQ(HardwareBoard::decodeHexResponse("R123456789"), 0x23456789u) << "wraps modulo 2^32";

    unsigned short words[4] = { 9, 9, 9, 9 };
    EXPECT_EQ(HardwareBoard::decodeWordResponse("R00010002000", words, 4), 0);
    EXPECT_EQ(words[2], 9) << "an incomplete group is ignored";
    EXPECT_EQ(HardwareBoard::decodeWordResponse("RFFFF0010abcd", words, 1), 2) << "words beyond the room are counted";
    EXPECT_EQ(HardwareBoard::decodeWordResponse("RFFFF0010abcd", words + 1, 0), 0) << "no limit";
    EXPECT_EQ(std::vector<int>(words, words + 4), (std::vector<int> { 0xFFFF, 0xFFFF, 0x10, 0xABCD }));

    int result = -7;
    board.willReply("R0G1F");
    EXPECT_TRUE(board.sendCommandGetIntResponse('O', 4, result, 3, 2));
    EXPECT_EQ(result, 0x1F);
    const unsigned char data[] = { 0x12, 0x34 };
    board.willReply("R7");
    EXPECT_TRUE(board.sendCommandGetIntResponse('E', data, 2, result, 1));
    EXPECT_EQ(result, 7);

    // A wrong length is reported unless the board is quiet; a transport
    // failure has already been reported by the transport.
    result = -7;
    board.willReply("R1234");
    EXPECT_FALSE(board.sendCommandGetIntResponse('T', 2, result, 1, 1));
    EXPECT_EQ(log.lines(), juce::StringArray { "HardwareBoard::sendCommandGetIntResponse 'T1' received 5 digits" });
    log.clear();
    board.setQuiet(true);
    board.willReply("R1");
    EXPECT_FALSE(board.sendCommandGetIntResponse('T', 2, result));
    board.setQuiet(false);
    board.willFail();
    EXPECT_FALSE(board.sendCommandGetIntResponse('T', 2, result));
    EXPECT_EQ(result, -7);
    EXPECT_TRUE(log.lines().isEmpty());

    juce::String out("old");
    board.willReply("R");
    EXPECT_TRUE(board.sendCommandGetStringResponse('G', out));
    EXPECT_EQ(out, "");
    board.willReply("RHello R2");
    EXPECT_TRUE(board.sendCommandGetStringResponse('P', 2, 1, out));
    EXPECT_EQ(out, "Hello R2");
    board.willFail();
    EXPECT_FALSE(board.sendCommandGetStringResponse('G', out));
    EXPECT_EQ(out, "Hello R2");

    unsigned char bytes[4] = { 0xEE, 0xEE, 0xEE, 0xEE };
    board.willReply("RA1B");
    EXPECT_FALSE(board.sendCommandGetArrayResponse('S', 5, 2, bytes, 3));
    EXPECT_EQ(bytes[0], 0xA1);
    EXPECT_EQ(bytes[1], 0xEE) << "a half byte is not stored";
    board.willReply("R0102030405");
    EXPECT_TRUE(board.sendCommandGetArrayResponse('S', "ab", bytes, 3)) << "a longer reply is accepted";
    EXPECT_EQ(std::vector<int>(bytes, bytes + 4), (std::vector<int> { 1, 2, 3, 0xEE }));
    board.willReply("Rzz");
    EXPECT_TRUE(board.sendCommandGetArrayResponse('S', data, 1, bytes, 1)) << "invalid hex counts as zero";
    EXPECT_EQ(bytes[0], 0);
    EXPECT_TRUE(board.expected.getLast());
    board.willFail();
    EXPECT_FALSE(board.sendCommandGetArrayResponse('S', -1, 0, bytes, 0));
    EXPECT_EQ(board.sent, (juce::StringArray { "O03", "E1234", "T1", "T", "T", "G", "P2", "G", "S05", "Sab", "S12",
                                               "S" }));
}

TEST_F(Protocol, ListenersKeepOrderWithoutDuplicatesAndDefaults)
{
    using Reached = std::vector<HardwareBoardEventListener*>;
    HardwareBoardEventListener a(0x3), b(0x1), c(0x2), stranger;
    for (auto* l : { &a, &b, &a, &c })
        board.registerListener(l);
    EXPECT_EQ(board.listenersFor(0xFF), (Reached { &a, &b, &c }));
    EXPECT_EQ(board.listenersFor(0x2), (Reached { &a, &c })) << "the mask decides who hears an event";
    EXPECT_EQ(board.listenersFor(0x4), Reached {});
    board.deregisterListener(&stranger);
    board.deregisterListener(&a);
    EXPECT_EQ(board.listenersFor(0xFF), (Reached { &b, &c }));

    // A serial board without its own updater or search range.
    std::unique_ptr<HardwareBoardFWUpdater> updater(board.getFWUpdater());
    EXPECT_NE(dynamic_cast<XBootFWUpdater*>(updater.get()), nullptr);
    EXPECT_EQ(board.getMcuVariant(), 0);
    EXPECT_EQ(board.firstSearchPort(), 0);
    EXPECT_EQ(board.numSearchPorts(), 9);
}
