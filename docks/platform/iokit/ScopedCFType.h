#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <utility>

/** Owns the one reference that a CoreFoundation Create or Copy call hands to
    its caller, and gives it back with CFRelease. What a Get call returns is
    borrowed from its owner and never goes into one of these. */
template <typename Ref>
class ScopedCFType
{
public:
    ScopedCFType() = default;
    explicit ScopedCFType(Ref owned) noexcept : ref(owned) {}
    ~ScopedCFType() { reset(); }

    ScopedCFType(ScopedCFType&& other) noexcept : ref(other.release()) {}
    ScopedCFType& operator=(ScopedCFType&& other) noexcept
    {
        if (this != &other)
        {
            reset();
            ref = other.release();
        }
        return *this;
    }
    ScopedCFType(const ScopedCFType&) = delete;
    ScopedCFType& operator=(const ScopedCFType&) = delete;

    Ref get() const noexcept { return ref; }
    explicit operator bool() const noexcept { return ref != nullptr; }

    /** Gives the reference up to whoever takes it over, such as a call that
        consumes one. */
    Ref release() noexcept { return std::exchange(ref, nullptr); }

    void reset() noexcept
    {
        if (ref != nullptr)
            CFRelease(ref);
        ref = nullptr;
    }

    /** For a Create call that hands its object out through a pointer. */
    Ref* receive() noexcept
    {
        reset();
        return &ref;
    }

private:
    Ref ref = nullptr;
};
