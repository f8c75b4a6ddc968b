// The buffer behind its handles and guards.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkAsyncHandle.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/locks/lkThreadId.h"
#include "resmgt/memoryBuffers/mbAlignment.h"
#include "resmgt/memoryBuffers/mbStateMachine.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

#include <cstdint>

namespace Zv {

class MbManager;
class MbProtocol;

/// A buffer: the data that its states work on. Clients have `MbBuffer` and the guards; this is for managers, unload
/// strategies and states.
///
/// Each event takes the buffer's mutex and goes to the current state, which may change the state, call the protocol
/// with the mutex free, or wait for the buffer to change. Any thread may deliver any event at any time; it blocks where
/// the state waits.
///
/// Two counts keep the object. When the last reference is gone, the event `DESTROY` is delivered, which waits for
/// whatever another thread does with the buffer. The object is deleted when its keep-alive count is 0 as well: a pool
/// manager holds one on the victim that it unloads.
class ZVRESMGT_EXPORT MbBufferImp : public RCBaseWithDestroy<LkCounter<long>>, public LkAsyncHandle
{
public:
    /// `initialState` is one of `MbStateMachine`; `size` is in bytes, not negative.
    MbBufferImp(LiString const &name, MbState const *initialState,
                RCShdPtr<MbManager> const &manager, ObjPtr<MbProtocol> protocol, int size,
                MbAlignment const &alignment);
    MbBufferImp(MbBufferImp const &) = delete;
    MbBufferImp &operator=(MbBufferImp const &) = delete;
    ~MbBufferImp() noexcept(false) override;

    /// Takes the mutex and delivers an event.
    void receive(MbEvent event);
    /// The asynchronous operation that the protocol began has come to its end. Any thread, once for each operation, also
    /// inside the call that began it.
    void performSucceeded() override;
    void performFailed() override;

    /// Takes the mutex for the state's answer.
    bool isLoaded() const;
    /// These do not change, and take no lock.
    LiString const &getName() const noexcept { return _name; }
    int getSize() const noexcept { return _size; }
    MbAlignment const &getAlignment() const noexcept { return _alignment; }
    /// The name by way of a copy made under the mutex.
    LiString copyName() const;

    // ---- the region: for managers, which set it, and for whoever holds a lock on the buffer. No lock.

    std::uint64_t getRegionStart() const noexcept { return _regionStart; }
    std::uint64_t getDataStart() const noexcept { return _dataStart; }
    std::uint64_t getDataEnd() const noexcept { return _dataEnd; }
    std::uint64_t getRegionEnd() const noexcept { return _regionEnd; }
    /// The memory that the manager has given: `size` bytes from `start`, room for the data and its alignment.
    void setRegion(std::uint64_t start, std::uint64_t size);
    /// No memory any more.
    void clearRegion() noexcept;

    // ---- the keep-alive count: for managers

    void addKeepAlive() { ++_keepAlive; }
    /// Deletes the object where the count reaches 0.
    void releaseKeepAlive();
    /// For an `allocateRegion` that waits: `letGo` releases the mutex that the caller of `allocateRegion` holds, and
    /// `takeBack` takes it again.
    void letGo() const ZV_NO_THREAD_SAFETY_ANALYSIS { _mutex.unlock(); }
    void takeBack() const ZV_NO_THREAD_SAFETY_ANALYSIS { _mutex.lock(); }

    // ---- for the states, with the mutex held

    /// Goes on to `next` and to the states that follow from it, delivers what was put off and wakes who waits. Where one
    /// of these states throws, the buffer goes back to the state it was in.
    void changeState(MbState const *next) ZV_NO_THREAD_SAFETY_ANALYSIS;
    /// The same for a lock event: if anything throws, its hold is given back. `formerCount` is the lock count before the
    /// event.
    void changeStateForLock(MbState const *next, int formerCount) ZV_NO_THREAD_SAFETY_ANALYSIS;
    /// Delivers an event to the current state, again and again while the states wait.
    void deliver(MbEvent event) ZV_NO_THREAD_SAFETY_ANALYSIS;
    /// Delivers the events of a mask, lowest bit first.
    void deliverEvents(std::uint32_t mask) ZV_NO_THREAD_SAFETY_ANALYSIS;
    /// Remembers an event for the end of the next run of `changeState`.
    void postpone(MbEvent event) noexcept ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        _pending |= static_cast<std::uint32_t>(event);
    }
    /// Whether the calling thread runs the transition that the buffer is in.
    bool isTransientStateOwner() const ZV_NO_THREAD_SAFETY_ANALYSIS
    {
        return _transientStateOwner.isCurrentThread();
    }
    /// Waits for the next change of the buffer, the mutex free meanwhile; the event under way is then delivered anew.
    void waitForChange() ZV_NO_THREAD_SAFETY_ANALYSIS;

    int getLockCount() const noexcept ZV_NO_THREAD_SAFETY_ANALYSIS { return _lockCount; }
    void addLock() noexcept ZV_NO_THREAD_SAFETY_ANALYSIS { ++_lockCount; }
    /// True where no lock is left.
    bool removeLock() noexcept ZV_NO_THREAD_SAFETY_ANALYSIS { return --_lockCount == 0; }

    MbManager &getManager() const { return *_manager; }
    /// Calls the protocol with the mutex free: `operation( protocol, memory, size )`. The body is in
    /// `mbBufferImp.inline.h`.
    template <class Operation>
    void callProtocol(Operation operation) ZV_NO_THREAD_SAFETY_ANALYSIS;

protected:
    /// The last reference is gone.
    void destroy() override;

private:
    friend struct MbBufferProbe; // how tests look at a buffer

    bool deliverOnce(MbEvent event) ZV_REQUIRES(_mutex);
    void dispatch(MbEvent event) ZV_REQUIRES(_mutex);
    void enterStates(MbState const *next) ZV_REQUIRES(_mutex);
    void fallBack(MbState const *former) ZV_REQUIRES(_mutex);
    void endRun(LkThreadId formerOwner) ZV_REQUIRES(_mutex);
    void announceChange() ZV_REQUIRES(_mutex);
    void sleepUntilChange() ZV_REQUIRES(_mutex);
    void endIfAbandoned(LkGuard<LkMutex const> &guard) ZV_NO_THREAD_SAFETY_ANALYSIS;

    LkMutex _mutex;
    LkPulse _pulse;
    LkThreadId _transientStateOwner ZV_GUARDED_BY(_mutex);
    LkCounter<long> _keepAlive;
    LiString _name;
    int _size;
    MbAlignment _alignment;
    std::uint64_t _regionStart;
    std::uint64_t _dataStart;
    std::uint64_t _dataEnd;
    std::uint64_t _regionEnd;
    MbState const *_state ZV_GUARDED_BY(_mutex);
    std::int32_t _lockCount ZV_GUARDED_BY(_mutex);
    std::uint32_t _pending ZV_GUARDED_BY(_mutex);
    RCShdPtr<MbManager> _manager;
    ObjPtr<MbProtocol> _protocol;
    /// Threads that wait for the next change.
    int _waiters ZV_GUARDED_BY(_mutex);
    /// A state has waited: the event goes to whatever state is current now.
    bool _isAgain ZV_GUARDED_BY(_mutex);
    /// The last reference went inside a call of the protocol.
    bool _isAbandoned ZV_GUARDED_BY(_mutex);
};

} // namespace Zv
