// Detector of data races: checks each access of a program to plain data.
//
// If the build has ZV_RACES, the programs, the libraries and the services above the simulated
// kernel are compiled with the calls that the thread sanitizer needs, but without its runtime.
// plainAccesses.cpp defines these calls, and tells this detector of each access. The scheduler and
// the simulated kernel are compiled without them.
//
// Two accesses to one byte by two threads, of which one is a write and one is not atomic, are a
// data race if neither happens before the other. What happens before what is known to the memory
// model. So a race is found also if the two accesses are far from each other in the schedule.
#pragma once

#include "platform/scheduler/weakMemory.h"

#include <cstddef>

namespace ZvPlatform::Simulated {

/// What an access does.
enum Access : std::uint8_t
{
    READ = 0,
    WRITE = 1,
    ATOMIC = 2, ///< with WRITE, or a load
    FREE = 4    ///< with WRITE: the memory is given back
};

#ifdef ZV_RACES

/// Keeps, for each eight bytes of memory, the latest accesses of each thread that a later access can
/// race with.
class PlainData
{
public:
    constexpr PlainData() = default;

    void reset();
    /// Ignores accesses while the sum of the changes is not 0.
    void ignore(int change) { _ignoring += change; }

    /// Checks an access of the calling thread, and keeps it. A race is a finding.
    void check(void const *address, std::size_t size, unsigned access, void const *caller);
    /// Checks an atomic operation, and keeps it. Returns whether it is that of a `Shared` word,
    /// which the memory model follows.
    bool checkAtomic(void const *word, std::size_t size, unsigned access, void const *caller);
    /// The next atomic operation on this word is that of a `Shared`.
    void expectShared(void const *word);

    /// Forgets the accesses to memory that becomes new memory.
    void forget(void const *address, std::size_t size);
    /// Forgets the accesses to the stack of the calling thread, which has just begun, and to its
    /// thread-local values.
    void forgetStack(std::size_t size);

private:
    /// Number of bytes that share their cells.
    static constexpr std::size_t GRANULE = 8;
    static constexpr unsigned CELLS = 4;
    static constexpr std::size_t BLOCK = std::size_t{1} << 26;
    static constexpr unsigned ADDRESS_BITS = 48;
    static constexpr std::size_t BLOCKS = (std::size_t{1} << ADDRESS_BITS) / BLOCK;

    /// An access to some of the bytes of a granule. There is none if the mask is 0.
    struct Cell
    {
        std::uint32_t event; ///< of the thread, see `WeakMemory::nextEvent`
        std::uint32_t step;
        std::uint32_t place;
        std::uint16_t serial; ///< of the task
        std::uint8_t mask;    ///< of the bytes
        std::uint8_t thread : 4;
        std::uint8_t access : 4;
    };
    struct Granule
    {
        Cell cells[CELLS];
    };
    static_assert(WeakMemory::THREADS <= 16);

    Granule *find(std::uintptr_t address, bool makes);
    void check(Granule &, std::uintptr_t base, Cell const &);
    [[noreturn]] void report(std::uintptr_t base, Cell const &earlier, Cell const &later);
    Cell newCell(unsigned access, void const *caller) const;
    void checkRange(std::uintptr_t address, std::size_t size, Cell const &);

    Granule *_blocks[BLOCKS] = {};
    int _ignoring = 0;
    void const *_shared = nullptr;
    std::uint32_t _sharedEvent = 0;
};

#else

/// Without ZV_RACES, plain data is not checked.
class PlainData
{
public:
    void reset() {}
    void ignore(int) {}
    void expectShared(void const *) {}
    void forgetStack(std::size_t) {}
};

#endif

extern constinit PlainData plainData;

} // namespace ZvPlatform::Simulated
