#include "resmgt/memoryBuffers/mbArenaManager.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "zvbase/failures.h"

namespace Zv {

MbArenaManager::MbArenaManager(LiString const &name, ObjPtr<DaArenaPool> pool,
                               ObjPtr<MbUnloadStrategy> strategy)
    : MbPoolManager(name, strategy), _pool(pool)
{}

MbArenaManager::~MbArenaManager() noexcept(false) = default;

bool MbArenaManager::performAllocate(MbBufferImp *buffer)
{
    std::uint64_t const alignment = buffer->getAlignment().getAlignmentMask() + 1;
    std::uint64_t const size = static_cast<std::uint64_t>(buffer->getSize());
    std::uint64_t const total = size + buffer->getAlignment().getRoundUpMax(alignment);
    // A sum that has wrapped around is larger than any pool.
    if (total > _pool->getSize() || total < size)
        ZV_THROW(MbEx::ExNotEnoughMemory, "Buffer size larger then total arena pool size.");
    void * const memory = _pool->allocate(total, alignment);
    if (!memory)
        return false;
    buffer->setRegion(reinterpret_cast<std::uintptr_t>(memory), total);
    return true;
}

void MbArenaManager::performDeallocate(MbBufferImp *buffer)
{
    _pool->deallocate(reinterpret_cast<void *>(buffer->getRegionStart()));
    buffer->clearRegion();
}

} // namespace Zv
