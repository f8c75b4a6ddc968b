// What can happen to a buffer.
#pragma once

#include <cstdint>

namespace Zv {

/// The events of a buffer. Each is a bit of its own, by which a buffer remembers what it puts off; of several, the
/// lowest bit comes first.
enum class MbEvent : std::uint32_t
{
    RDLOCK = 0x1,               ///< a read guard is made or copied
    WRLOCK = 0x2,               ///< a write guard is made
    WRDUP = 0x4,                ///< a write guard is copied
    PREFETCH = 0x8,             ///< `MbBuffer::prefetch`
    ASYNC_SYNC = 0x10,          ///< `MbBuffer::asyncSync`
    SYNC = 0x20,                ///< `MbBuffer::sync`
    UNLOCK = 0x40,              ///< a guard lets go
    UNLOAD = 0x80,              ///< a manager has chosen the buffer as its victim
    FREE = 0x100,               ///< `MbBuffer::free`
    DESTROY = 0x200,            ///< the last reference is gone
    ASYNC_OP_SUCCEEDED = 0x400, ///< an asynchronous operation has come to its end
    ASYNC_OP_FAILED = 0x800     ///< the same, on failure
};

} // namespace Zv
