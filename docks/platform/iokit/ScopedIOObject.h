#pragma once

#include <IOKit/IOKitLib.h>

/** Owns one reference to a driver kit object handle (an iterator, a registry
    entry, a service) and gives it back with IOObjectRelease. */
class ScopedIOObject
{
public:
    ScopedIOObject() = default;
    explicit ScopedIOObject(io_object_t owned) noexcept;
    ~ScopedIOObject();

    ScopedIOObject(ScopedIOObject&& other) noexcept;
    ScopedIOObject& operator=(ScopedIOObject&& other) noexcept;
    ScopedIOObject(const ScopedIOObject&) = delete;
    ScopedIOObject& operator=(const ScopedIOObject&) = delete;

    io_object_t get() const noexcept { return object; }
    explicit operator bool() const noexcept { return object != 0; }

    /** Gives the reference up to whoever takes it over. */
    io_object_t release() noexcept;
    void reset() noexcept;
    /** For a call that hands its object out through a pointer. */
    io_object_t* receive() noexcept;

private:
    io_object_t object = 0;
};
