// Line framing and byte helpers for the emulated boards.
//
// Deliberately independent of the product's own codec: if both sides shared
// one, a framing bug in it would be invisible in every test.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace boardsim {

// A board keeps at most this many characters of a received line; the rest of
// an over-long line is discarded up to its "\n".
constexpr std::size_t kMaxLineLength = 1080;

// Splits a byte stream into lines ended by "\n". Nothing else is stripped: a
// host that sends "\r\n" gets its "\r" kept, so the board refuses the line as
// a real one would rather than hiding the host's mistake.
class LineReader {
public:
    struct Line {
        std::string text; // without the "\n"
        bool cut;         // characters past the limit were discarded
    };

    explicit LineReader(std::size_t maxLength = kMaxLineLength) : maxLength_(maxLength) {}

    // Appends bytes; returns the lines completed by them.
    std::vector<Line> feed(const char* data, std::size_t size);
    // Forgets a partly received line.
    void reset();

private:
    std::size_t maxLength_;
    std::string partial_;
    bool cut_ = false;
};

// What a board puts on the wire for one line of its own.
inline std::string boardLine(const std::string& text) { return text + "\r\n"; }

// Upper-case hex pairs, no separators.
std::string hexEncode(const std::string& bytes);

// Hex pairs of either case; spaces between pairs are allowed. False on an odd
// number of digits or any other character.
bool hexDecode(const std::string& text, std::string& bytes);

// A received line made safe for one line of text: control characters, DEL,
// bytes >= 0x80 and the backslash itself become \xHH.
std::string escapeLine(const std::string& line);

} // namespace boardsim
