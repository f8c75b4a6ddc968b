// A budget on the heap.
#pragma once

#include "resmgt/memoryBuffers/mbPoolManager.h"

#include <cstdint>

namespace Zv {

/// Gives its buffers memory from the heap, up to a number of bytes. A buffer counts with its size and the greatest
/// distance that its alignment may take, `alignment.getRoundUpMax(1)`: with the default alignment, its size + 127.
///
/// A buffer that is larger than the whole budget throws `MbEx::ExNotEnoughMemory` at once, as does a heap that has no
/// more.
class ZVRESMGT_EXPORT MbHeapManager : public MbPoolManager
{
public:
    MbHeapManager(LiString const &name, std::uint64_t maximumBytes,
                  ObjPtr<MbUnloadStrategy> strategy);
    ~MbHeapManager() noexcept(false) override;

    std::uint64_t getMaximum() const noexcept { return _maximum; }
    /// Bytes that buffers have now.
    std::uint64_t getAllocated() const;

private:
    bool performAllocate(MbBufferImp *buffer) override ZV_REQUIRES(getMutex());
    void performDeallocate(MbBufferImp *buffer) override ZV_REQUIRES(getMutex());

    std::uint64_t _maximum;
    std::uint64_t _allocated ZV_GUARDED_BY(getMutex());
};

} // namespace Zv
