#include "resmgt/memoryBuffers/mbHeapManager.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "zvbase/failures.h"

#include <new>

namespace Zv {

MbHeapManager::MbHeapManager(LiString const &name, std::uint64_t maximumBytes,
                             ObjPtr<MbUnloadStrategy> strategy)
    : MbPoolManager(name, strategy), _maximum(maximumBytes), _allocated(0)
{}

MbHeapManager::~MbHeapManager() noexcept(false) = default;

std::uint64_t MbHeapManager::getAllocated() const
{
    LkGuard<LkMutex const> guard(getMutex());
    return _allocated;
}

bool MbHeapManager::performAllocate(MbBufferImp *buffer)
{
    std::uint64_t const size = static_cast<std::uint64_t>(buffer->getSize());
    std::uint64_t const total = size + buffer->getAlignment().getRoundUpMax(1);
    // A sum that has wrapped around is larger than any budget.
    if (total > _maximum || total < size)
        ZV_THROW(MbEx::ExNotEnoughMemory, "Buffer size larger then maximum allocated bytes.");
    if (total > _maximum - _allocated)
        return false;
    char * const memory = new (std::nothrow) char[total];
    if (!memory)
        ZV_THROW(MbEx::ExNotEnoughMemory, "Unable to allocate memory.");
    _allocated += total;
    buffer->setRegion(reinterpret_cast<std::uintptr_t>(memory), total);
    return true;
}

void MbHeapManager::performDeallocate(MbBufferImp *buffer)
{
    _allocated -= buffer->getRegionEnd() - buffer->getRegionStart();
    delete[] reinterpret_cast<char *>(buffer->getRegionStart());
    buffer->clearRegion();
}

} // namespace Zv
