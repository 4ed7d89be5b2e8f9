// The Thunderbolt docks' bootloader, reached through the board command "*".
//
// After "%UP" the dock takes requests "*" + R + DATA + CRC: R one request
// character, DATA its bytes in lower-case hex, CRC eight lower-case hex
// digits of the CRC-32 of R and the DATA bytes (not of their hex text), most
// significant first. A request whose CRC, length or hex is wrong is answered
// "N", and so is any request before "%UP".
//   ":" PPPP + 512 bytes   write page PPPP of the application section, "OK"
//   "$" PPPP               read page PPPP: "R" + its bytes + their CRC-32
//   "~"                    erase the application section (0xFF), "OK"
//   "#" S                  end of the update with status S (0..2), "OK"
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace docksim {

class Xboot2Loader {
public:
    static constexpr std::size_t kPageSize = 512;
    static constexpr std::size_t kAppSectionSize = 0x20000;

    void enter() { active_ = true; }
    bool active() const { return active_; }
    // Answers one request: `text` is what followed "*".
    std::string request(const std::string& text);

    const std::vector<uint8_t>& flash() const { return flash_; }
    int endStatus() const { return endStatus_; }
    int pagesWritten() const { return pagesWritten_; }

    static uint32_t crc32Of(const uint8_t* data, std::size_t size, uint32_t crc = 0);

private:
    bool active_ = false;
    int endStatus_ = -1;
    int pagesWritten_ = 0;
    std::vector<uint8_t> flash_ = std::vector<uint8_t>(kAppSectionSize, 0xFF);
};

} // namespace docksim
