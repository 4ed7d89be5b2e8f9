#include "docksim/xboot2_loader.h"

#include <algorithm>
#include <zlib.h>

#include "docksim/dock.h"

namespace docksim {

namespace {

constexpr std::size_t kCrcDigits = 8;
constexpr std::size_t kPages = Xboot2Loader::kAppSectionSize / Xboot2Loader::kPageSize;

int lowerHexDigit(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return -1; // upper case too: the host writes these requests in lower case
}

bool lowerHexBytes(const std::string& text, std::vector<uint8_t>& out)
{
    if (text.size() % 2)
        return false;
    for (std::size_t i = 0; i < text.size(); i += 2) {
        const int hi = lowerHexDigit(text[i]), lo = lowerHexDigit(text[i + 1]);
        if (hi < 0 || lo < 0)
            return false;
        out.push_back(static_cast<uint8_t>(hi * 16 + lo));
    }
    return true;
}

} // namespace

uint32_t Xboot2Loader::crc32Of(const uint8_t* data, std::size_t size, uint32_t crc)
{
    return static_cast<uint32_t>(::crc32(crc, data, static_cast<uInt>(size)));
}

std::string Xboot2Loader::request(const std::string& text)
{
    static const std::string kRefused = "N", kDone = "OK";
    if (!active_ || text.size() < 1 + kCrcDigits)
        return kRefused;
    std::vector<uint8_t> bytes{static_cast<uint8_t>(text[0])};
    std::vector<uint8_t> crcBytes;
    if (!lowerHexBytes(text.substr(1, text.size() - 1 - kCrcDigits), bytes) ||
        !lowerHexBytes(text.substr(text.size() - kCrcDigits), crcBytes))
        return kRefused;
    const uint32_t sent = (uint32_t(crcBytes[0]) << 24) | (crcBytes[1] << 16) | (crcBytes[2] << 8) | crcBytes[3];
    if (crc32Of(bytes.data(), bytes.size()) != sent)
        return kRefused;

    const std::size_t dataSize = bytes.size() - 1;
    const std::size_t page = dataSize >= 2 ? (bytes[1] << 8) | bytes[2] : 0;
    uint8_t* pageStart = flash_.data() + (page % kPages) * kPageSize;
    switch (bytes[0]) {
    case ':':
        if (dataSize != 2 + kPageSize || page >= kPages)
            return kRefused;
        std::copy(bytes.begin() + 3, bytes.end(), pageStart);
        ++pagesWritten_;
        return kDone;
    case '$': {
        if (dataSize != 2 || page >= kPages)
            return kRefused;
        const uint32_t crc = crc32Of(pageStart, kPageSize);
        return "R" + hexBytes(pageStart, kPageSize) + hexDigits(crc, 8);
    }
    case '~':
        if (dataSize != 0)
            return kRefused;
        std::fill(flash_.begin(), flash_.end(), 0xFF);
        return kDone;
    case '#':
        if (dataSize != 1 || bytes[1] > 2)
            return kRefused;
        endStatus_ = bytes[1];
        active_ = false;
        return kDone;
    default:
        return kRefused;
    }
}

} // namespace docksim
