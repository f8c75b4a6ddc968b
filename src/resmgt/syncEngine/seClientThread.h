// Work that is done at every n-th beat.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/threads/mtThreadProtocol.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/priorityRelation.h"
#include "zvbase/objPtr.h"

#include <cstdint>

namespace Zv {

class LkPulse;

/// The behaviour of a thread that is paced by a source of beats. Derive from it, give it `performSync`, and hand it to
/// `SeSyncEngine::addClient` with the divisor: with divisor 4 on a source of 100 beats a second it runs 25 times a
/// second.
///
/// A client can lag, but work never piles up: one that comes too late runs once, is told how many beats it is late,
/// and counts a full period from there. Its first two wake-ups count as one beat each, whatever has passed, so that
/// its start is not charged to it. On a generator that has been beating before, these two come at once.
///
/// The thread's priority lies below that of the source's generator. Nothing lifts it: without a relation of its own,
/// the thread has the lowest level of all, on which it gets little of a busy machine. A client whose work is urgent
/// needs a relation such as
///
///     PriorityRelation floor("meter", RtPriorities::getInstance().getRealTimePriority(),
///                            PriorityRelation::LESS_EQUAL, meter->getPriorityNoLock());
///
/// which must end before the client does.
///
/// `performStart`, `performSync` and `performEnd` run on the client's own thread, without any lock. The thread has a
/// stack of 64 KiB, which cannot be changed. None of them may call the sync engine. What they throw ends the process.
///
/// A client that is still added is destroyed by `SeSyncEngine::stop`, on the thread that calls it, under the engine's
/// lock. So its destructor must not call the engine, nor wait for a thread that does. A client must be in one place at
/// a time: it must not be added to a second source while the first one still runs it.
class ZVRESMGT_EXPORT SeClientThread : public MtThreadProtocol
{
public:
    ~SeClientThread() noexcept(false) override;

    void performAttach(MtThread *thread) override;
    void performDetach(MtThread *thread) override;
    void performExecute(MtThread *thread) override;
    /// Asks the thread to end. It does so at the next beat.
    void performStop(MtThread *thread) override;

protected:
    /// Called once, before the first beat is awaited. Does nothing here.
    virtual void performStart();
    /// The work: `count` is the source's running number of the latest beat, 32 bits, and `late` how many beats ago the
    /// work was due; 0 is in time. True ends the thread.
    virtual bool performSync(std::uint32_t count, int late) = 0;
    /// Called once, after the last beat. Does nothing here.
    virtual void performEnd();

    SeClientThread();

    /// Beats per run, 1 or more; 0 while the client is added nowhere.
    std::int32_t getDivisorNoLock() const { return _divisor; }

public:
    /// The client's node in `MtPriorityMgr`, "syncClient": its thread follows it.
    Priority &getPriorityNoLock() { return _priority; }

private:
    friend class SeGeneratorThread;
    friend class SeClientThreadTest;

    using Guard = LkGuard<LkMutex const>;

    /// Adds the client to a generator, whose mutex the caller holds, or clears it after its thread has ended, with
    /// null pointers. Asserts that the client was free, or was not.
    void setupNoLock(Priority *generator, LkMutex *lock, LkPulse *condition, std::uint32_t *count,
                     std::int32_t divisor);
    bool isStopRequested() const;
    void runBeats();
    void waitForBeat(Guard const &guard, std::uint32_t last, bool isInGrace) const;

    LkMutex *_lock = nullptr;
    LkPulse *_condition = nullptr;
    std::uint32_t *_count = nullptr;
    std::int32_t _divisor = 0;
    bool _stopRequested = false;
    Priority _priority;
    ObjPtr<PriorityRelation> _threadRelation;
    ObjPtr<PriorityRelation> _generatorRelation;
    MtThread *_thread = nullptr;
};

} // namespace Zv
