#include "zvbase/lgRingMemory.private.h"

#include "zvbase/baseLock.private.h"
#include "zvbase/lgQueue.h"

#include <new>
#include <utility>

namespace Zv {

namespace {

constexpr std::size_t SIZE = LgQueue::CAPACITY; // of the blocks that are kept
constexpr std::size_t NB_BLOCKS = 8;            // that are allocated at once

struct Block
{
    Block *next;
};

constinit BaseLock lock;
constinit Block *returned ZV_GUARDED_BY(lock) = nullptr;
// Blocks that were never used. They are not linked, because the system provides their pages when
// they are used.
constinit char *fresh ZV_GUARDED_BY(lock) = nullptr;
constinit std::size_t nbFresh ZV_GUARDED_BY(lock) = 0;

} // namespace

LgRingMemory::Owned LgRingMemory::take(std::size_t size)
{
    if (size != SIZE)
        return Owned(new char[size], Return{size});
    BaseGuard const guard(lock);
    if (returned)
        return Owned(reinterpret_cast<char *>(std::exchange(returned, returned->next)),
                     Return{size});
    if (nbFresh == 0) {
        fresh = static_cast<char *>(::operator new(NB_BLOCKS *SIZE));
        nbFresh = NB_BLOCKS;
    }
    --nbFresh;
    return Owned(std::exchange(fresh, fresh + SIZE), Return{size});
}

void LgRingMemory::give(char *memory, std::size_t size) noexcept
{
    if (size != SIZE) {
        delete[] memory;
        return;
    }
    BaseGuard const guard(lock);
    returned = new (memory) Block{returned};
}

} // namespace Zv
