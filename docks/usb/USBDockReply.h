#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

/** A dock's reply bytes, owned. Reading past the bytes the dock sent gives 0,
    so a short reply can never be read beyond its end. */
class USBDockReply
{
public:
    USBDockReply() = default;
    USBDockReply(std::unique_ptr<unsigned char[]> data, size_t length) : bytes(std::move(data)), length(length) {}

    bool isEmpty() const noexcept { return bytes == nullptr; }
    size_t size() const noexcept { return length; }
    uint8_t operator[](size_t index) const noexcept { return index < length ? bytes[index] : 0; }
    /** The dock's success mark in byte 1. */
    bool statusU() const noexcept { return (*this)[1] == 'U'; }
    /** 16 bits, low byte first, starting at `index`. */
    int littleEndian16(size_t index) const noexcept { return (*this)[index] | ((*this)[index + 1] << 8); }

private:
    std::unique_ptr<unsigned char[]> bytes;
    size_t length = 0;
};
