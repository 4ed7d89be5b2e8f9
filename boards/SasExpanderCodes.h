#pragma once

#include <cstdint>

/** What the desktop station and the dual transfer board say to their SAS
    expanders through the pass-through command E: the function code that
    leads each request, the per-PHY registers both expanders place alike, and
    the values written to a PHY's control register. Where the two expanders
    differ (the PHY window's base and size, the other offsets) each board
    keeps its own map. */
namespace SasExpander
{
    // Function codes, the first byte of a request.
    constexpr unsigned char fnWriteEepromBlock = 0x00;
    constexpr unsigned char fnReadEepromBlock = 0x01;
    constexpr unsigned char fnWrite = 0x02;
    constexpr unsigned char fnRead = 0x03;
    constexpr unsigned char fnReadAddress = 0x05;
    constexpr unsigned char fnResetExpander = 0x06;

    // Offsets in a PHY's register window.
    constexpr uint32_t phyStatusOffset = 0x044;       // attached-device status
    constexpr uint32_t phyAttachedAddrOffset = 0x078;

    // An attached device shows as "type 1" in the top nibble with bit 0 set.
    constexpr uint32_t statusAttachedMask = 0xF0000001u;
    constexpr uint32_t statusAttached = 0x10000001u;

    // Values written to a PHY's control register.
    constexpr uint32_t controlClearCounters = 5;
    constexpr uint32_t controlHoldReset = 3;
    constexpr uint32_t controlReleaseReset = 1;
}
