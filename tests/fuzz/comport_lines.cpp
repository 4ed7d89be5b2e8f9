// The serial line reader through a pseudo-terminal: input written to the far end, read back
// line by line as the board link reads, each result checked against a model of the line rules.
#include "FuzzSupport.h"

#include "link/ComPort.h"
#include "support/PtyPeer.h"

#include <string>
#include <vector>

namespace
{
// Stays below the terminal's input buffer, so the whole input fits before reading.
constexpr size_t maxInput = 3000;

struct Line
{
    int result;
    std::string text;
};

/** The lines readString must give for `bytes`: '\r' dropped, '\n' ends a line,
    a line is cut at the limit, a byte of 0x80 or above fails the read. */
std::vector<Line> expectedLines(const std::string& bytes)
{
    std::vector<Line> lines;
    Line current { 0, {} };
    for (const char c : bytes)
    {
        const bool high = (unsigned char) c >= 0x80;
        if (!high && c != '\n' && c != '\r')
        {
            current.text += c;
            ++current.result;
        }
        if (high || c == '\n' || current.result == ComPort::maxLineLength)
        {
            lines.push_back({ high ? -1 : current.result, current.text });
            current = { 0, {} };
        }
    }
    return lines;
}

struct OpenPort
{
    TempDevDir dir;
    PtyPeer peer { dir.path(), "ttyS0" };
    ComPort port;

    OpenPort()
    {
        fuzz::check(port.open(0, false) && port.set(19200, 8, ComPort::parityEven, 1, ComPort::flowNone),
                    "the pseudo-terminal opens as a port");
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    fuzz::silenceOutput();
    static OpenPort open;
    // A line end after the input lets the last read finish without waiting out a timeout.
    const std::string bytes = std::string((const char*) data, std::min(size, maxInput)) + "\n";
    open.peer.write(bytes);
    for (const auto& expected : expectedLines(bytes))
    {
        juce::String line;
        const int result = open.port.readString(line, ComPort::maxLineLength, 2000);
        fuzz::check(result == expected.result, "readString's count");
        // Text cannot hold a NUL: the line ends at one, though the count includes it.
        fuzz::check(line.toStdString() == expected.text.substr(0, expected.text.find('\0')), "readString's line");
    }
    fuzz::check(open.port.ready(0) == 0, "nothing left unread");
    return 0;
}
