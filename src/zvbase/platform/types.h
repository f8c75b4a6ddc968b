// Opaque forms of the system objects that public classes hold. No system header stands behind this one.
#pragma once

#include <cstddef>
#include <cstdint>

namespace ZvPlatform {

/// A kernel object: mutex, semaphore, event, timer or thread. Null is never a good handle.
using Handle = void *;

/// A thread's number, unique among the running threads of the process; 0 is no thread.
using ThreadNumber = std::uint32_t;

/// What a thread's function returns: 32 bits on every platform.
#ifdef _WIN32
using ThreadResult = unsigned long;
#else
using ThreadResult = std::uint32_t;
#endif

/// Room for a critical section of any platform. Used in place: it is neither copied nor moved.
struct alignas(std::max_align_t) CriticalSection
{
    unsigned char storage[48];
};

} // namespace ZvPlatform
