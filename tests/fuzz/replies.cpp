// The board link's reply decoders. Input: one parameter byte (digits, byte or
// word count), then the reply line as the transport delivers it.
#include "FuzzSupport.h"

#include "link/HardwareBoard.h"

#include <cstring>
#include <vector>

namespace
{
/** Answers every command with the reply under test. */
struct ReplyBoard : HardwareBoard
{
    explicit ReplyBoard(const juce::String& r) : reply(r) {}
    void run() override {}
    bool findAndOpen(int) override { return false; }
    bool syncState() override { return false; }
    void closeBoard(bool) override {}
    const char* boardIdString() const override { return "Fuzz board"; }
    bool sendCommandInternal(const juce::String&, juce::String& out, bool) override
    {
        out = reply;
        return true;
    }
    juce::String reply;
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::silenceOutput();
    juce::String reply;
    if (size < 1 || !fuzz::textOf(data + 1, size - 1, reply))
        return 0;
    const int parameter = data[0];
    const int length = reply.length();
    const auto payload = reply.substring(1);
    ReplyBoard board(reply);

    // Integers: exactly the digits asked for, read as hex; a refusal leaves the result alone.
    const int digits = parameter % 9;
    int value = -7;
    const bool intOk = board.sendCommandGetIntResponse('O', digits, value, -1, 0);
    fuzz::check(intOk == (length == digits + 1), "integer reply accepted iff it has the digits asked for");
    if (!intOk)
        fuzz::check(value == -7, "a refused integer reply leaves the result untouched");
    else if (payload.containsOnly("0123456789abcdefABCDEF") && digits > 0)
        fuzz::check((uint32_t) value == (uint32_t) std::strtoul(payload.toRawUTF8(), nullptr, 16),
                    "an integer reply decodes as hex");

    juce::String text;
    fuzz::check(board.sendCommandGetStringResponse('U', text) && text == payload, "a string reply is its payload");

    // Bytes: into a buffer of exactly the count, so a write past it shows.
    const int count = parameter;
    std::vector<unsigned char> bytes((size_t) count);
    const bool arrayOk = board.sendCommandGetArrayResponse('R', 0x1A5, 6, bytes.data(), count);
    fuzz::check(arrayOk == (count == 0 || length >= 1 + 2 * count), "a byte reply is accepted iff it is long enough");

    // Words: a bounded buffer, or one sized by the reply when every group is asked for.
    const int groups = length > 1 ? (length - 1) / 4 : 0;
    const int maxWords = parameter % 12;
    std::vector<unsigned short> words((size_t) (maxWords > 0 ? maxWords : groups));
    const int left = HardwareBoard::decodeWordResponse(reply, words.data(), maxWords);
    fuzz::check(left == (maxWords > 0 ? juce::jmax(0, groups - maxWords) : 0), "undecoded word groups counted");
    return 0;
}
