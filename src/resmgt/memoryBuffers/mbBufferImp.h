// The object behind a memory buffer's handles and guards (extenders).
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkAsyncHandle.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/memoryBuffers/mbAlignment.h"
#include "resmgt/memoryBuffers/mbStateMachine.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/testAccess.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace Zv {

class MbManager;
class MbPoolManager;
class MbProtocol;
class MbUntoldUses;

/// A buffer, with the data that its states work on. Applications use `MbBuffer` and the guards
/// instead. This class is for managers, unload strategies and states.
///
///     void describe(std::ostream &stream, MbBufferImp const &buffer)
///     {
///         stream << buffer.getName() << ": " << buffer.getSize() << " bytes";
///     }
///
/// Each event takes the buffer's mutex and is delivered to the current state. The state may change
/// the state of the buffer, call the protocol while the mutex is free, or wait for the buffer to
/// change. Guards do without the mutex if the buffer is loaded and nothing else happens to it. What
/// they do is the same as if the state had received the event.
///
/// **Threads**: thread-safe, except for the operations that are for managers and states.
///
/// **Blocks**: an event blocks while the state waits.
///
/// **Owns**: the buffer owns its protocol and shares its manager. Two counts keep the object alive.
/// When the last reference is gone, the event `DESTROY` is delivered, which waits until no other
/// thread works on the buffer. The object is deleted when its keep-alive count is 0 as well. A pool
/// manager adds one to this count while it evicts the buffer.
class ZVRESMGT_EXPORT MbBufferImp : public LkAsyncHandle
{
public:
    /// `initialState` must be a state of `MbStateMachine`. Throws `RCEx::ExNullPtr` if it is null.
    /// `size` is in bytes. If it is negative, an assertion fails.
    MbBufferImp(LiString const &name, MbState const *initialState,
                RCShdPtr<MbManager> const &manager, ObjPtr<MbProtocol> protocol, int size,
                MbAlignment const &alignment);
    MbBufferImp(MbBufferImp const &) = delete;
    MbBufferImp &operator=(MbBufferImp const &) = delete;
    ~MbBufferImp() noexcept(false) override;

    /// Takes the mutex and delivers an event. Throws what the state throws.
    void receive(MbEvent event);
    /// Delivers the event of a guard that locks the buffer, and adds a reference. Throws what the
    /// state throws, with nothing added. The caller must have a reference.
    void addHold(MbEvent event);
    /// Delivers the event of a guard that unlocks the buffer, and releases its reference. If it
    /// throws, the reference is released all the same.
    void releaseHold();
    /// Reports that the asynchronous operation that the protocol began has succeeded. For each
    /// operation, either `performSucceeded` or `performFailed` must be called, once. Any thread may
    /// call it, even before the call that began the operation has returned.
    void performSucceeded() override;
    /// Reports that the asynchronous operation that the protocol began has failed.
    void performFailed() override;

    /// Returns true if a lock can be taken without loading. May take the mutex.
    bool isLoaded() const;
    /// Takes no lock. The name, the size and the alignment do not change.
    LiString const &getName() const noexcept { return _name; }
    int getSize() const noexcept { return _size; }
    MbAlignment const &getAlignment() const noexcept { return _alignment; }
    /// Returns a copy of the name that is made under the mutex.
    LiString copyName() const;

    // ---- the region, for managers and for threads that hold a lock on the buffer. Takes no lock.

    std::uint64_t getRegionStart() const noexcept { return _regionStart; }
    std::uint64_t getDataStart() const noexcept { return _dataStart; }
    std::uint64_t getDataEnd() const noexcept { return _dataEnd; }
    std::uint64_t getRegionEnd() const noexcept { return _regionEnd; }
    /// Sets the memory that the manager gives to the buffer. It is `size` bytes from `start`,
    /// enough for the data and its alignment.
    void setRegion(std::uint64_t start, std::uint64_t size);
    /// Sets the memory that the manager gives to the buffer.
    void setRegion(std::span<std::byte> memory)
    {
        setRegion(reinterpret_cast<std::uintptr_t>(memory.data()), memory.size());
    }
    /// Called when the manager has taken the memory back.
    void clearRegion() noexcept;
    /// Lets guards note their uses in `uses`, and not call `bufferNotUnloadable` and
    /// `bufferUnloadable`. For `bufferUnloadable`.
    void noteUsesIn(MbUntoldUses *uses) noexcept { _untoldUses = uses; }

    // ---- the keep-alive count: for managers

    /// Keeps the object alive until `releaseKeepAlive` is called.
    void addKeepAlive() { ++_keepAlive; }
    /// Deletes the object if the count reaches 0.
    void releaseKeepAlive();
    /// Releases the mutex, which the caller of `MbManager::allocateRegion` holds, while the manager
    /// waits.
    void letGo() const ZV_NO_THREAD_SAFETY_ANALYSIS { _mutex.unlock(); }
    /// Takes the mutex again after `letGo`.
    void takeBack() const ZV_NO_THREAD_SAFETY_ANALYSIS { _mutex.lock(); }

    // ---- for the states. The caller must hold the mutex.

    /// Changes to `next` and to the states that follow it, delivers the postponed events, and wakes
    /// all waiters. If one of these states throws, the buffer returns to the state that it was in.
    void changeState(MbState const *next) ZV_NO_THREAD_SAFETY_ANALYSIS;
    /// Changes the state for an event that takes a lock. If anything throws, the lock is given
    /// back. `formerCount` is the lock count before the event.
    void changeStateForLock(MbState const *next, int formerCount) ZV_NO_THREAD_SAFETY_ANALYSIS;
    /// Delivers an event to the current state, and delivers it again after each wait of a state.
    void deliver(MbEvent event) ZV_NO_THREAD_SAFETY_ANALYSIS;
    /// Delivers the events of a mask, lowest bit first.
    void deliverEvents(std::uint32_t mask) ZV_NO_THREAD_SAFETY_ANALYSIS;
    /// Postpones an event to the end of the next `changeState`.
    void postpone(MbEvent event) noexcept ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        _pending |= static_cast<std::uint32_t>(event);
    }
    /// Returns true if the calling thread runs the present transition of the buffer.
    bool isTransientStateOwner() const ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _transientStateOwner.isCurrentThread();
    }
    /// Waits for the next change of the buffer while the mutex is free. The present event is then
    /// delivered again. If the calling thread runs the present transition, an assertion fails.
    void waitForChange() ZV_NO_THREAD_SAFETY_ANALYSIS;

    int getLockCount() const noexcept ZV_NO_THREAD_SAFETY_ANALYSIS { return _lockCount; }
    /// Adds one to the lock count.
    void addLock() noexcept ZV_NO_THREAD_SAFETY_ANALYSIS { ++_lockCount; }
    /// Subtracts one from the lock count. Returns true if no lock is left.
    bool removeLock() noexcept ZV_NO_THREAD_SAFETY_ANALYSIS { return --_lockCount == 0; }

    MbManager &getManager() const { return *_manager; }
    /// Calls `operation( protocol, memory, size )` while the mutex is free.
    template <class Operation>
    void callProtocol(Operation operation) ZV_NO_THREAD_SAFETY_ANALYSIS;

private:
    friend struct TestAccess<MbBufferImp>;
    friend class MbPoolManager;
    friend class MbUntoldUses;
    template <class T>
    friend class RCBasePtr;

    /// What a reference adds to `_word`.
    static constexpr std::uint64_t REFERENCE = std::uint64_t{1} << 32;

    void incReferenceCount() const { _word.fetch_add(REFERENCE, ZvPlatform::Order::RELAXED); }
    void decReferenceCount() const
    {
        if (_word.fetch_sub(REFERENCE, ZvPlatform::Order::ACQ_REL) - REFERENCE < REFERENCE)
            const_cast<MbBufferImp *>(this)->destroy();
    }
    long getReferenceCount() const
    {
        return static_cast<long>(_word.load(ZvPlatform::Order::ACQUIRE) / REFERENCE);
    }
    void destroy();

    template <class Function>
    void underMutex(Function function) ZV_NO_THREAD_SAFETY_ANALYSIS;
    void open() ZV_REQUIRES(_mutex);
    void close() ZV_REQUIRES(_mutex);
    void finishUnlock(MbState const *former);
    [[nodiscard]] std::uint64_t tryUnlock();
    [[noreturn]] void throwIn(MbState const *former);
    /// Loads an unloaded buffer for a guard, and adds a reference. Returns false if the state must
    /// receive the event.
    [[nodiscard]] bool load(MbEvent event);
    /// Undoes the beginning of a load, and throws the present exception.
    [[noreturn]] void failLoad();

    // ---- for `MbPoolManager`: the eviction of a buffer in the mode `MbWord::BEING_UNLOADED`,
    // without a mutex.

    void callUnload();
    /// Ends the mode if the word is closed.
    void finishUnload();
    /// Undoes the beginning, and throws the present exception.
    [[noreturn]] void failUnload();

    /// Changes an open word from `from` to `to`, beside the references. Returns the new word, or 0
    /// if the word is another one.
    std::uint64_t tryMove(std::uint64_t from, std::uint64_t to);
    /// Does what `tryMove` does, and makes the calling thread the one that moves the buffer. The
    /// caller must hold the mutex of the manager.
    [[nodiscard]] bool beginMove(std::uint64_t from, std::uint64_t to);

    MbPoolManager &getPoolManager() const;

    bool deliverOnce(MbEvent event) ZV_REQUIRES(_mutex);
    void dispatch(MbEvent event) ZV_REQUIRES(_mutex);
    void run(MbState const *next, LkThreadId formerOwner) ZV_REQUIRES(_mutex);
    void enterStates(MbState const *next) ZV_REQUIRES(_mutex);
    void fallBack(MbState const *former) ZV_REQUIRES(_mutex);
    void endRun(LkThreadId formerOwner) ZV_REQUIRES(_mutex);
    void undoLock() ZV_REQUIRES(_mutex);
    void announceChange() ZV_REQUIRES(_mutex);
    void sleepUntilChange() ZV_REQUIRES(_mutex);
    void endIfAbandoned(LkGuard<LkMutex const> &guard) ZV_NO_THREAD_SAFETY_ANALYSIS;

    /// The number of references, and what guards change without the mutex. `MbWord` has its parts.
    ZvPlatform::Shared<std::uint64_t> mutable _word;
    /// Null if the manager must be told each use.
    MbUntoldUses *_untoldUses;
    /// The time of the last use, as `MbUntoldUses` tells it.
    ZvPlatform::Shared<std::uint64_t> _lastUse;
    MbBufferImp *_nextNoted;
    /// The thread of the last guard, in the mode `MbWord::BEING_UNLOCKED`.
    ZvPlatform::Shared<unsigned long> _unlocker;
    /// The thread that moves the buffer, if `MbWord::isBeingMoved`. The mutex of the manager guards
    /// it.
    ZvPlatform::Shared<unsigned long> _mover;
    // What follows is used by each load, so it is close to the word.
    RCShdPtr<MbManager> _manager;
    ObjPtr<MbProtocol> _protocol;
    std::uint64_t _regionStart;
    std::uint64_t _dataStart;
    std::uint64_t _dataEnd;
    std::uint64_t _regionEnd;
    MbAlignment _alignment;
    int _size;

    LkMutex _mutex;
    LkPulse _pulse;
    LkThreadId _transientStateOwner ZV_GUARDED_BY(_mutex);
    LkCounter<long> _keepAlive;
    LiString _name;
    MbState const *_state ZV_GUARDED_BY(_mutex);
    std::int32_t _lockCount ZV_GUARDED_BY(_mutex);
    std::uint32_t _pending ZV_GUARDED_BY(_mutex);
    /// The number of threads that wait for the next change.
    int _waiters ZV_GUARDED_BY(_mutex);
    /// True if a state has waited, so that the event must be delivered again.
    bool _isAgain ZV_GUARDED_BY(_mutex);
    /// True if the last reference was released inside a call of the protocol.
    bool _isAbandoned ZV_GUARDED_BY(_mutex);
};

template <class Operation>
void MbBufferImp::callProtocol(Operation operation)
{
    void * const memory = reinterpret_cast<void *>(_dataStart);
    std::uint64_t const size = _dataEnd - _dataStart;
    letGo();
    try {
        operation(*_protocol, memory, size);
    } catch (...) {
        takeBack();
        throw;
    }
    takeBack();
}

} // namespace Zv
