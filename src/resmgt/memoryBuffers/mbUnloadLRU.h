// The buffer that was used least recently goes first.
#pragma once

#include "resmgt/memoryBuffers/mbUnloadIndex.h"
#include "resmgt/memoryBuffers/mbUnloadStrategy.h"

namespace Zv {

/// Selects the buffer that has gone unused for the longest time. A buffer counts as used when it is unlocked, and when
/// it is prefetched while it is loaded.
///
/// A copy has the same buffers in the same order; each manager has a strategy of its own.
class ZVRESMGT_EXPORT MbUnloadLRU : public MbUnloadStrategy
{
public:
    /// The number has no effect.
    explicit MbUnloadLRU(int capacity);
    MbUnloadLRU(MbUnloadLRU const &other);
    MbUnloadLRU &operator=(MbUnloadLRU const &other);
    ~MbUnloadLRU() noexcept(false) override;

    /// "MbUnloadLRU"
    char const *getName() const override;
    void insertBuffer(MbBufferImp *buffer) override;
    void removeBuffer(MbBufferImp *buffer) override;
    MbBufferImp *selectVictim() const override;
    bool isEmpty() const override;
    void reserve(std::size_t nbBuffers) override;

private:
    using Queue = List<MbBufferImp *>;

    Queue _queue; // the oldest first
    MbUnloadIndex<Queue::iterator> _index;
    Queue _spares; // for those that come
};

} // namespace Zv
