#include "docks/platform/iokit/ScopedIOObject.h"

#include <utility>

ScopedIOObject::ScopedIOObject(io_object_t owned) noexcept : object(owned) {}

ScopedIOObject::~ScopedIOObject()
{
    reset();
}

ScopedIOObject::ScopedIOObject(ScopedIOObject&& other) noexcept : object(other.release()) {}

ScopedIOObject& ScopedIOObject::operator=(ScopedIOObject&& other) noexcept
{
    if (this != &other)
    {
        reset();
        object = other.release();
    }
    return *this;
}

io_object_t ScopedIOObject::release() noexcept
{
    return std::exchange(object, 0u);
}

void ScopedIOObject::reset() noexcept
{
    if (object != 0)
        IOObjectRelease(object);
    object = 0;
}

io_object_t* ScopedIOObject::receive() noexcept
{
    reset();
    return &object;
}
