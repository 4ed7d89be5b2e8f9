#include "boardsim/wire.h"

#include <cstdio>

namespace boardsim {

std::vector<LineReader::Line> LineReader::feed(const char* data, std::size_t size)
{
    std::vector<Line> lines;
    for (std::size_t i = 0; i < size; ++i) {
        const char c = data[i];
        if (c == '\n') {
            lines.push_back({std::move(partial_), cut_});
            partial_.clear();
            cut_ = false;
        } else if (partial_.size() < maxLength_) {
            partial_.push_back(c);
        } else {
            cut_ = true;
        }
    }
    return lines;
}

void LineReader::reset()
{
    partial_.clear();
    cut_ = false;
}

std::string hexEncode(const std::string& bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(bytes.size() * 2);
    for (unsigned char b : bytes) {
        out.push_back(digits[b >> 4]);
        out.push_back(digits[b & 0x0f]);
    }
    return out;
}

static int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

bool hexDecode(const std::string& text, std::string& bytes)
{
    std::string out;
    int high = -1;
    for (char c : text) {
        if (c == ' ') {
            if (high >= 0)
                return false; // a space may not split a pair
            continue;
        }
        const int v = hexValue(c);
        if (v < 0)
            return false;
        if (high < 0) {
            high = v;
        } else {
            out.push_back(static_cast<char>((high << 4) | v));
            high = -1;
        }
    }
    if (high >= 0)
        return false;
    bytes = std::move(out);
    return true;
}

std::string escapeLine(const std::string& line)
{
    std::string out;
    out.reserve(line.size());
    for (unsigned char c : line) {
        if (c < 0x20 || c >= 0x7f || c == '\\') {
            char buf[5];
            std::snprintf(buf, sizeof buf, "\\x%02X", c);
            out += buf;
        } else {
            out.push_back(static_cast<char>(c));
        }
    }
    return out;
}

} // namespace boardsim
