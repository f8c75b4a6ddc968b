// The manager that unloads buffers where memory is short.
#pragma once

#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbUnloadStrategy.h"
#include "zvbase/objPtr.h"

#include <cstddef>

namespace Zv {

/// A manager with a budget. When the budget is used up, the thread that needs memory unloads the buffers that its
/// strategy names, one after the other, until there is room. Where none can be unloaded it waits, without limit, until
/// one can or memory comes back: a request for more than what the locked buffers leave blocks until they are unlocked.
/// If there is no room although no buffer has memory, it throws `MbEx::ExNotEnoughMemory`. The mutex of the buffer that
/// needs the memory is free while its thread waits or unloads another buffer.
///
/// When the protocol of a victim throws, the exception goes to the thread that needed the memory; its load fails with
/// it, and the victim stays loaded.
///
/// Together with its memory a buffer is given its place among those that can be unloaded. If there is no memory for
/// that, the load throws `std::bad_alloc`. An unlock cannot fail for that reason.
///
/// A derived class says what the memory is.
class ZVRESMGT_EXPORT MbPoolManager : public MbManager
{
public:
    MbPoolManager(LiString const &name, ObjPtr<MbUnloadStrategy> strategy);
    ~MbPoolManager() noexcept(false) override;

    LiString const &getName() const override;
    void allocateRegion(MbBufferImp *buffer) override;
    void deallocateRegion(MbBufferImp *buffer) override;
    void bufferNotUnloadable(MbBufferImp *buffer) override;
    void bufferUnloadable(MbBufferImp *buffer) override;
    /// "Name = " and the name, then "Unload strategy = " and what the strategy writes.
    void dump(std::ostream &stream) const override;

protected:
    /// Guards the budget and the strategy; the protocols of buffers are never called under it. A buffer's mutex is
    /// taken before it, never after.
    LkMutex const &getMutex() const ZV_RETURN_CAPABILITY(_mutex) { return _mutex; }

private:
    friend struct MbManagerProbe; // how tests look at a manager

    /// If the budget allows it, gives the buffer its region by `MbBufferImp::setRegion` and returns true. The region must
    /// not begin at address 0, or an assertion fails. Returns false if the budget is used up. Throws if unloading cannot
    /// help. Called under the mutex.
    virtual bool performAllocate(MbBufferImp *buffer) ZV_REQUIRES(getMutex()) = 0;
    /// Takes the region back and calls `MbBufferImp::clearRegion`. Must not fail. Called under the mutex.
    virtual void performDeallocate(MbBufferImp *buffer) ZV_REQUIRES(getMutex()) = 0;

    bool tryAllocate(MbBufferImp *buffer) ZV_REQUIRES(_mutex);
    void unloadVictim(LkGuard<LkMutex const> &guard) ZV_REQUIRES(_mutex);
    void waitForMemory(LkGuard<LkMutex const> const &guard) ZV_REQUIRES(_mutex);
    void announceMemory() ZV_REQUIRES(_mutex);

    LkMutex _mutex;
    LkPulse _pulse;
    LiString _name;
    ObjPtr<MbUnloadStrategy> _strategy ZV_PT_GUARDED_BY(_mutex);
    int _waiters ZV_GUARDED_BY(_mutex);
    /// Buffers that have memory.
    std::size_t _nbRegions ZV_GUARDED_BY(_mutex);
};

} // namespace Zv
