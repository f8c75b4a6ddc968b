// Memory of the rings of log queues.
#pragma once

#include <cstddef>
#include <memory>

namespace Zv {

/// Gives memory to log queues, and keeps what they give back for the next ones. Every thread has
/// such a queue. Without this, the start of a thread would make the allocator ask the system for
/// memory, and its end would make the allocator give it back.
///
/// **Threads**: thread-safe.
class LgRingMemory
{
public:
    struct Return
    {
        std::size_t size;

        void operator()(char *memory) const noexcept { give(memory, size); }
    };
    using Owned = std::unique_ptr<char[], Return>;

    /// Returns uninitialised memory of `size` bytes. Throws `std::bad_alloc`.
    static Owned take(std::size_t size);

private:
    static void give(char *memory, std::size_t size) noexcept;
};

} // namespace Zv
