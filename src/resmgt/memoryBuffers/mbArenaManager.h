// A budget in one piece.
#pragma once

#include "resmgt/dynamicAllocation/daArenaPool.h"
#include "resmgt/memoryBuffers/mbPoolManager.h"

namespace Zv {

/// Gives its buffers memory from an arena pool. A buffer takes its size, in multiples of 8, from an address that meets
/// its alignment mask; only an offset costs more. Where the free memory is in pieces that are too small, buffers are
/// unloaded as if there were none.
///
/// A buffer that is larger than the pool throws `MbEx::ExNotEnoughMemory` at once. The pool's size is rounded down to a
/// multiple of 8, and its first address need not meet an alignment, so a buffer of the pool's size may fit nowhere. Such a
/// buffer throws `MbEx::ExNotEnoughMemory` when all others have given their memory back: leave the pool some room.
class ZVRESMGT_EXPORT MbArenaManager : public MbPoolManager
{
public:
    MbArenaManager(LiString const &name, ObjPtr<DaArenaPool> pool,
                   ObjPtr<MbUnloadStrategy> strategy);
    ~MbArenaManager() noexcept(false) override;

private:
    bool performAllocate(MbBufferImp *buffer) override ZV_REQUIRES(getMutex());
    void performDeallocate(MbBufferImp *buffer) override ZV_REQUIRES(getMutex());

    ObjPtr<DaArenaPool> _pool ZV_PT_GUARDED_BY(getMutex());
};

} // namespace Zv
