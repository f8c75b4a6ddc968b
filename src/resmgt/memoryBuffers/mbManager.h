// Managers of the memory of buffers, on the heap and in an arena (applications).
#pragma once

#include "resmgt/dynamicAllocation/daArenaPool.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/memoryBuffers/mbUnloadStrategy.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"
#include "zvbase/testAccess.h"

#include <cstddef>
#include <cstdint>
#include <iosfwd>

namespace Zv {

class MbBufferImp;
class MbUntoldUses;

/// The memory of a group of buffers. An application makes a manager, passes it to the factories of
/// its buffers and may `dump` it. All other operations are for buffers. Buffers share their
/// manager.
///
/// **Threads**: thread-safe. A buffer calls the four operations on itself while it holds its mutex.
class ZVRESMGT_EXPORT MbManager : public RCBase<LkCounter<long>>
{
public:
    ~MbManager() noexcept(false) override;

    virtual LiString const &getName() const = 0;
    /// Gives the buffer its region by `MbBufferImp::setRegion`. May block until other buffers have
    /// given memory back. The buffer's mutex is free meanwhile. Throws `MbEx::ExNotEnoughMemory` if
    /// waiting cannot help. If another buffer is evicted and its protocol throws, that exception
    /// leaves this operation.
    virtual void allocateRegion(MbBufferImp *buffer) = 0;
    /// Takes the region back. Must do nothing if the buffer has none, because an asynchronous
    /// operation may fail twice.
    virtual void deallocateRegion(MbBufferImp *buffer) = 0;
    /// Called when the buffer gets locked or loses its memory.
    virtual void bufferNotUnloadable(MbBufferImp *buffer) = 0;
    /// Called when the buffer is loaded and no guard holds it, so that it may be evicted.
    virtual void bufferUnloadable(MbBufferImp *buffer) = 0;
    /// Writes a description for debugging.
    virtual void dump(std::ostream &stream) const = 0;

protected:
    MbManager();
};

/// A manager with a budget. A derived class supplies the memory.
///
/// If the budget is used up, the thread that needs memory evicts the buffers that the strategy
/// selects, one after the other, until there is room. If no buffer can be evicted, the thread waits
/// without a limit until one can be, or until memory is given back. So a request for more memory
/// than the locked buffers leave blocks until they are unlocked. If there is no room although no
/// buffer has memory, the request throws `MbEx::ExNotEnoughMemory`. The mutex of the buffer that
/// needs the memory is free while its thread waits or evicts another buffer.
///
/// If the protocol of an evicted buffer throws, the exception goes to the thread that needed the
/// memory, and its load fails. The other buffer stays loaded.
///
/// A buffer that gets memory also gets its place in the strategy. If there is no memory for that,
/// the load throws `std::bad_alloc`. An unlock cannot fail for that reason.
///
/// **Threads**: thread-safe.
///
/// **Owns** its strategy.
class ZVRESMGT_EXPORT MbPoolManager : public MbManager
{
public:
    /// `strategy` selects the buffers to evict.
    MbPoolManager(LiString const &name, ObjPtr<MbUnloadStrategy> strategy);
    ~MbPoolManager() noexcept(false) override;

    LiString const &getName() const override;
    void allocateRegion(MbBufferImp *buffer) override;
    void deallocateRegion(MbBufferImp *buffer) override;
    void bufferNotUnloadable(MbBufferImp *buffer) override;
    void bufferUnloadable(MbBufferImp *buffer) override;
    /// Writes "Name = " and the name, then "Unload strategy = " and the `dump` of the strategy.
    void dump(std::ostream &stream) const override;

protected:
    /// Returns the mutex that guards the budget and the strategy. The manager never calls a
    /// protocol under it. A thread that needs a buffer's mutex as well must take that one first.
    LkMutex const &getMutex() const ZV_RETURN_CAPABILITY(_mutex) { return _mutex; }

private:
    friend struct TestAccess<MbPoolManager>;
    friend class MbBufferImp;

    /// Gives the buffer its region by `MbBufferImp::setRegion` and returns true. Returns false if
    /// the budget is used up. Throws if evicting other buffers cannot help. The region must not
    /// begin at address 0, or an assertion fails. Called under the mutex.
    [[nodiscard]] virtual bool performAllocate(MbBufferImp *buffer) ZV_REQUIRES(getMutex()) = 0;
    /// Takes the region back and calls `MbBufferImp::clearRegion`. Must not throw. Called under the
    /// mutex.
    virtual void performDeallocate(MbBufferImp *buffer) ZV_REQUIRES(getMutex()) = 0;

    /// Begins to load an unloaded buffer without its mutex, and gives it memory. Returns false if
    /// the state of the buffer must do it. `mode` is the mode of its word while it is loaded.
    [[nodiscard]] bool allocateOpen(MbBufferImp &buffer, std::uint64_t mode);
    /// Ends the unlock of a buffer that the strategy does not have, without its mutex. Returns the
    /// word of the buffer, or 0 if its state must do it. The reference of the guard is released.
    [[nodiscard]] std::uint64_t insertOpen(MbBufferImp &buffer);

    bool mayBeToldLater(MbBufferImp const &buffer) const ZV_REQUIRES(_mutex);
    bool tryAllocate(MbBufferImp *buffer) ZV_REQUIRES(_mutex);
    template <class LetGo>
    void makeRoom(LkGuard<LkMutex const> &guard, LetGo letGo) ZV_REQUIRES(_mutex);
    void unloadVictim(LkGuard<LkMutex const> &guard) ZV_REQUIRES(_mutex);
    void unloadOpen(MbBufferImp &victim, LkGuard<LkMutex const> &guard) ZV_REQUIRES(_mutex);
    template <class Operation>
    static void releaseAfter(MbBufferImp &buffer, Operation operation);
    void releaseRegion(MbBufferImp &buffer) ZV_REQUIRES(_mutex);
    void waitForMemory(LkGuard<LkMutex const> const &guard) ZV_REQUIRES(_mutex);
    void announceMemory() ZV_REQUIRES(_mutex);

    LkMutex _mutex;
    LkPulse _pulse;
    LiString _name;
    ObjPtr<MbUnloadStrategy> _strategy ZV_PT_GUARDED_BY(_mutex);
    ObjPtr<MbUntoldUses> _untoldUses;
    int _waiters ZV_GUARDED_BY(_mutex);
    /// The number of buffers that have memory.
    std::size_t _nbRegions ZV_GUARDED_BY(_mutex);
};

/// Gives buffers memory from the heap, up to a number of bytes. A buffer takes its size plus the
/// greatest distance by which its alignment may move it, `alignment.getRoundUpMax(1)`. With the
/// default alignment that is its size plus 127.
///
///     RCShdPtr<MbManager> const manager(
///         new MbHeapManager("frames", 64 << 20, ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0))));
///
/// A load throws `MbEx::ExNotEnoughMemory` at once if the buffer is larger than the whole budget,
/// and if the heap has no memory left.
class ZVRESMGT_EXPORT MbHeapManager : public MbPoolManager
{
public:
    /// Makes a manager for at most `maximumBytes` bytes.
    MbHeapManager(LiString const &name, std::uint64_t maximumBytes,
                  ObjPtr<MbUnloadStrategy> strategy);
    ~MbHeapManager() noexcept(false) override;

    std::uint64_t getMaximum() const noexcept { return _maximum; }
    /// Returns the number of bytes that buffers have now.
    std::uint64_t getAllocated() const;

private:
    bool performAllocate(MbBufferImp *buffer) override ZV_REQUIRES(getMutex());
    void performDeallocate(MbBufferImp *buffer) override ZV_REQUIRES(getMutex());

    std::uint64_t _maximum;
    std::uint64_t _allocated ZV_GUARDED_BY(getMutex());
};

/// Gives buffers memory from an arena. A buffer takes its size, rounded up to a multiple of 8, from
/// an address that meets its alignment mask. A buffer with an offset mask takes more. If the free
/// memory is in pieces that are too small, buffers are evicted as if there were none.
///
///     #include <resmgt/dynamicAllocation.h>
///
///     ObjPtr<DaArenaPool> pool(DaArenaPool::create(DaMallocAllocator::create(), 64 << 20));
///     RCShdPtr<MbManager> const manager(
///         new MbArenaManager("frames", pool, ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0))));
///
/// A load throws `MbEx::ExNotEnoughMemory` at once if the buffer is larger than the arena. The size
/// of the arena is rounded down to a multiple of 8, and its first address may not meet an
/// alignment. So a buffer of the size of the arena may fit nowhere. Its load throws
/// `MbEx::ExNotEnoughMemory` after all other buffers have given their memory back. Make the arena a
/// little larger than its largest buffer.
///
/// **Owns** its arena.
class ZVRESMGT_EXPORT MbArenaManager : public MbPoolManager
{
public:
    /// `pool` is the arena, and `strategy` selects the buffers to evict.
    MbArenaManager(LiString const &name, ObjPtr<DaArenaPool> pool,
                   ObjPtr<MbUnloadStrategy> strategy);
    ~MbArenaManager() noexcept(false) override;

private:
    bool performAllocate(MbBufferImp *buffer) override ZV_REQUIRES(getMutex());
    void performDeallocate(MbBufferImp *buffer) override ZV_REQUIRES(getMutex());

    ObjPtr<DaArenaPool> _pool ZV_PT_GUARDED_BY(getMutex());
};

} // namespace Zv
