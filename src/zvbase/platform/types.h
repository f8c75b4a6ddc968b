// Opaque types of the system's objects, for public classes (extenders).
//
// Includes no system header.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ZvPlatform {

/// A kernel object: a mutex, semaphore, event, timer or thread. Null is never a valid handle.
using Handle = void *;

/// The number of a thread. It is unique among the running threads of the process. 0 is never one.
using ThreadNumber = std::uint32_t;

/// The result of a thread's function: 32 bits on every platform.
#ifdef _WIN32
using ThreadResult = unsigned long;
#else
using ThreadResult = std::uint32_t;
#endif

/// Memory for a critical section of any platform. It must not be copied or moved.
struct alignas(std::max_align_t) CriticalSection
{
    unsigned char storage[48]; ///< belongs to the system's functions
};

} // namespace ZvPlatform
