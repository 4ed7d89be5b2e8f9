#pragma once

#include <cstdint>

/** One command block for the USB dock driver: byte 0 the opcode, byte 1 the
    subcode (echoed as the first byte of the reply, which is how a reply is
    matched to its command), the rest arguments. Unused bytes must be zero,
    so every block starts zeroed. */
struct CDB16
{
    static constexpr uint8_t dockCommandOpcode = 0xDE;
    static constexpr uint8_t firmwareUpgradeOpcode = 0xE4;

    uint8_t bytes[16] = {};

    uint8_t opcode() const noexcept { return bytes[0]; }
    uint8_t subcode() const noexcept { return bytes[1]; }
};

static_assert(sizeof(CDB16) == 16, "the driver takes the block as a 16-byte structure");
