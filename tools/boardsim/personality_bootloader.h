// The boards' bootloader: the page protocol that replaces a board's
// application firmware.
//
// The host enters it with the board command "%UP" (any personality answers
// "OK" and hands over) and leaves it with a single "#", after which the board
// runs its application again, restarted. Requests are not lines:
//   ":" PPPP DD..DD CC   write page PPPP (256 data bytes); CC makes the 8-bit
//                        sum of everything after ":" zero; answered "Y"
//                        (written) or "N" (refused), no line ending
//   "$" PPPP             read page PPPP; answered with its 256 bytes and a
//                        checksum byte as above, in hex, no line ending
//   "#"                  leave the bootloader
// all hex upper case. The identity request "?", the id request "@" and "%UP"
// still work as lines; the identity then reads "(bootloader) " followed by the
// board's own identity and version.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "boardsim/personality.h"

namespace boardsim {

// The flash of one board. Only the application section can be written; the
// bootloader above it refuses to overwrite itself.
struct BootloaderState {
    static constexpr std::size_t kPageSize = 256;
    static constexpr std::size_t kAppSectionSize = 0x1E000;
    static constexpr std::size_t kFlashSize = 0x20000;

    // Erased flash reads 0xFF.
    std::vector<unsigned char> flash = std::vector<unsigned char>(kFlashSize, 0xFF);
};

std::unique_ptr<Personality> makeBootloaderPersonality(const BoardInfo& info);

} // namespace boardsim
