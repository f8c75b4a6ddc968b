// The buffer that was used least recently goes first.
#pragma once

#include "resmgt/memoryBuffers/mbUnloadStrategy.h"
#include "zvbase/containers.h"

#include <cstddef>

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

private:
    struct Hash
    {
        std::size_t operator()(MbBufferImp const *buffer) const noexcept;
    };
    using Queue = List<MbBufferImp *>;
    using Index = HashMap<MbBufferImp *, Queue::iterator, Hash>;

    Queue _queue; // the oldest first
    Index _index;
    // What a buffer leaves behind that is locked: it comes back without allocating, and so without failing.
    Queue _spareNodes;
    Vector<Index::node_type> _spareEntries;
};

} // namespace Zv
