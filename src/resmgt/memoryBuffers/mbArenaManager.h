// A budget in one piece.
#pragma once

#include "resmgt/dynamicAllocation/daArenaPool.h"
#include "resmgt/memoryBuffers/mbPoolManager.h"

namespace Zv {

/// Gives its buffers memory from an arena pool. A buffer takes its size, in multiples of 8, from an address that meets
/// its alignment mask; only an offset costs more. Where the free memory is in pieces that are too small, buffers are
/// unloaded as if there were none.
///
/// A buffer that is larger than the pool throws `MbEx::ExNotEnoughMemory` at once. One that fits the pool's size but,
/// for its alignment, no place in it, waits for ever: leave the pool some room.
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
