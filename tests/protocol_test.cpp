#include "support/PtyPeer.h"
#include "support/TestBoard.h"

#include "boards/DiskpackBoard.h"
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

struct Recorder : HardwareBoardEventListener
{
    using HardwareBoardEventListener::HardwareBoardEventListener;
};
using Reached = std::vector<HardwareBoardEventListener*>;
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
    for (bool e : board.expected)
        EXPECT_FALSE(e) << "plain senders want no response";
}

TEST_F(Protocol, HexHelpers)
{
    EXPECT_EQ(HardwareBoard::encodeHexChar(0x1C), 'C');
    EXPECT_EQ(HardwareBoard::encodeHexChar(9), '9');
    EXPECT_EQ(HardwareBoard::decodeHexChar('f'), 15);
    EXPECT_EQ(HardwareBoard::decodeHexChar('A'), 10);
    EXPECT_EQ(HardwareBoard::decodeHexChar('G'), 0);
    EXPECT_EQ(HardwareBoard::decodeHexChar(' '), 0);
    EXPECT_EQ(HardwareBoard::decodeHexByte("a5"), 0xA5);
    EXPECT_EQ(HardwareBoard::decodeHexByte("A"), -1);
    EXPECT_EQ(HardwareBoard::decodeHexByte(""), -1);

    juce::String s("x");
    HardwareBoard::appendHexByte(0x1FE, s);
    HardwareBoard::appendHexByte(7, s);
    EXPECT_EQ(s, "xFE07");

    EXPECT_EQ(HardwareBoard::decodeHexResponse(""), 0u);
    EXPECT_EQ(HardwareBoard::decodeHexResponse("R"), 0u);
    EXPECT_EQ(HardwareBoard::decodeHexResponse("RdeadBEEF"), 0xDEADBEEFu);
    EXPECT_EQ(HardwareBoard::decodeHexResponse("R123456789"), 0x23456789u) << "wraps modulo 2^32";
}

TEST_F(Protocol, IntegerReplies)
{
    int result = -7;
    board.willReply("R00ff");
    EXPECT_TRUE(board.sendCommandGetIntResponse('O', 4, result));
    EXPECT_EQ(result, 255);
    EXPECT_EQ(board.lastSent(), "O");
    EXPECT_TRUE(board.expected.getLast());

    board.willReply("R0G1F");
    EXPECT_TRUE(board.sendCommandGetIntResponse('O', 4, result, 3, 2));
    EXPECT_EQ(result, 0x1F);
    EXPECT_EQ(board.lastSent(), "O03");

    result = -7;
    board.willReply("R1234");
    EXPECT_FALSE(board.sendCommandGetIntResponse('T', 2, result, 1, 1));
    EXPECT_EQ(result, -7);
    EXPECT_EQ(log.lines(), juce::StringArray { "HardwareBoard::sendCommandGetIntResponse 'T1' received 5 digits" });

    // A transport failure has already been reported by the transport.
    log.clear();
    board.willFail();
    EXPECT_FALSE(board.sendCommandGetIntResponse('T', 2, result));
    EXPECT_EQ(result, -7);
    EXPECT_TRUE(log.lines().isEmpty());

    const unsigned char data[] = { 0x12, 0x34 };
    board.willReply("R7");
    EXPECT_TRUE(board.sendCommandGetIntResponse('E', data, 2, result, 1));
    EXPECT_EQ(result, 7);
    EXPECT_EQ(board.lastSent(), "E1234");
}

TEST_F(Protocol, QuietSuppressesDiagnostics)
{
    int result = 0;
    board.setQuiet(true);
    board.willReply("R1");
    EXPECT_FALSE(board.sendCommandGetIntResponse('T', 2, result));
    EXPECT_TRUE(log.lines().isEmpty());
    board.setQuiet(false);
    board.willReply("R1");
    EXPECT_FALSE(board.sendCommandGetIntResponse('T', 2, result));
    EXPECT_EQ(log.lines().size(), 1);
}

TEST_F(Protocol, StringReplies)
{
    juce::String out("old");
    board.willReply("R");
    EXPECT_TRUE(board.sendCommandGetStringResponse('G', out));
    EXPECT_EQ(out, "");
    EXPECT_EQ(board.lastSent(), "G");

    board.willReply("RHello R2");
    EXPECT_TRUE(board.sendCommandGetStringResponse('P', 2, 1, out));
    EXPECT_EQ(out, "Hello R2");
    EXPECT_EQ(board.lastSent(), "P2");

    out = "kept";
    board.willFail();
    EXPECT_FALSE(board.sendCommandGetStringResponse('G', out));
    EXPECT_EQ(out, "kept");
}

TEST_F(Protocol, ArrayReplies)
{
    unsigned char out[4] = { 0xEE, 0xEE, 0xEE, 0xEE };
    board.willReply("RA1B");
    EXPECT_FALSE(board.sendCommandGetArrayResponse('S', 5, 2, out, 3));
    EXPECT_EQ(out[0], 0xA1);
    EXPECT_EQ(out[1], 0xEE) << "a half byte is not stored";
    EXPECT_EQ(board.lastSent(), "S05");

    board.willReply("R0102030405");
    EXPECT_TRUE(board.sendCommandGetArrayResponse('S', "ab", out, 3)) << "a longer reply is accepted";
    EXPECT_EQ(out[0], 1);
    EXPECT_EQ(out[2], 3);
    EXPECT_EQ(out[3], 0xEE);
    EXPECT_EQ(board.lastSent(), "Sab");

    const unsigned char data[] = { 0xC0 };
    board.willReply("Rzz");
    EXPECT_TRUE(board.sendCommandGetArrayResponse('S', data, 1, out, 1));
    EXPECT_EQ(out[0], 0) << "invalid hex counts as zero";
    EXPECT_EQ(board.lastSent(), "SC0");

    board.willReply("R");
    EXPECT_TRUE(board.sendCommandGetArrayResponse('S', -1, 0, out, 0)) << "nothing asked, nothing checked";

    board.willFail();
    EXPECT_FALSE(board.sendCommandGetArrayResponse('S', -1, 0, out, 0));
}

TEST_F(Protocol, WordReplies)
{
    unsigned short words[4] = { 9, 9, 9, 9 };
    EXPECT_EQ(HardwareBoard::decodeWordResponse("R00010002000", words, 4), 0);
    EXPECT_EQ(words[0], 1);
    EXPECT_EQ(words[1], 2);
    EXPECT_EQ(words[2], 9) << "the incomplete group is ignored";

    EXPECT_EQ(HardwareBoard::decodeWordResponse("RFFFF0010abcd", words, 1), 2);
    EXPECT_EQ(words[0], 0xFFFF);
    EXPECT_EQ(words[1], 2);

    EXPECT_EQ(HardwareBoard::decodeWordResponse("RFFFF0010abcd", words, 0), 0);
    EXPECT_EQ(words[2], 0xABCD);

    EXPECT_EQ(HardwareBoard::decodeWordResponse("R", words, 4), 0);
    EXPECT_EQ(HardwareBoard::decodeWordResponse("", words, 4), 0);
}

TEST_F(Protocol, ListenersKeepOrderWithoutDuplicates)
{
    Recorder a(0x3), b(0x1), c(0x2), stranger;
    board.registerListener(&a);
    board.registerListener(&b);
    board.registerListener(&a);
    board.registerListener(&c);
    EXPECT_EQ(board.listenersFor(0xFF), (Reached { &a, &b, &c }));
    EXPECT_EQ(board.listenersFor(0x2), (Reached { &a, &c })) << "the mask decides who hears an event";
    EXPECT_EQ(board.listenersFor(0x4), Reached {});

    board.deregisterListener(&stranger);
    EXPECT_EQ(board.getNumListeners(), 3);

    board.deregisterListener(&a);
    EXPECT_EQ(board.listenersFor(0xFF), (Reached { &b, &c }));
}

TEST_F(Protocol, DefaultsOfTheBoardLink)
{
    EXPECT_EQ(board.getMcuVariant(), 0);
    std::unique_ptr<HardwareBoardFWUpdater> updater(board.getFWUpdater());
    EXPECT_NE(dynamic_cast<XBootFWUpdater*>(updater.get()), nullptr);
    EXPECT_EQ(updater->getFlashPageSize(), 256);
    EXPECT_EQ(board.isUsb(), true);
    EXPECT_EQ(board.firstSearchPort(), 0);
    EXPECT_EQ(board.numSearchPorts(), 9);
    EXPECT_FALSE(board.boardIsOpen());
}

//==============================================================================
namespace
{
// Typed text as terminals encode it: UTF-8, Latin-1, and forty bytes that
// make twenty UTF-8 characters.
const std::string utf8 = "caf\xC3\xA9", latin1 = "caf\xE9";
const std::string fortyBytes = [] {
    std::string s;
    while (s.size() < 40)
        s += "\xC3\xA9";
    return s;
}();
}

TEST(ProtocolText, ReachesTheWireAsItsBytesAndLimitsCountBytes)
{
    TempDevDir dev;
    PtyPeer peer(dev.path(), "ttyUSB0");
    peer.serve([](const std::string& line) -> std::vector<std::string> {
        return { line == "?" ? "Diskpack board V1.00" : line == "@" ? "R0" : "OK" };
    });
    DiskpackBoard board;
    ASSERT_TRUE(board.findAndOpen(-1));

    // 'D' sets the display's text, 'W' writes at position 3; a refusal sends nothing.
    const struct
    {
        char command;
        std::string text;
        std::vector<std::string> wire;
    } cases[] = {
        { 'D', utf8, { "D" + utf8 } },
        { 'D', latin1, { "D" + latin1 } },
        { 'D', fortyBytes, { "D" + fortyBytes } },
        { 'D', fortyBytes + "x", {} },
        { 'W', latin1, { "P03", "W" + latin1 } },
        { 'W', fortyBytes, { "P03", "W" + fortyBytes } },
        { 'W', latin1 + fortyBytes, {} },
    };
    auto expected = peer.received();
    for (auto& c : cases)
    {
        const bool accepted = c.command == 'D' ? board.setDisplayText(c.text.c_str())
                                               : board.writeText(3, c.text.c_str());
        EXPECT_EQ(!c.wire.empty(), accepted) << c.command << " " << c.text;
        expected.insert(expected.end(), c.wire.begin(), c.wire.end());
    }
    ASSERT_TRUE(peer.waitForReceived(expected.size()));
    EXPECT_EQ(expected, peer.received());
}
