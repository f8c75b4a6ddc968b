// Threads that work at every n-th beat of a source (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/priority.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/testAccess.h"

#include <cstdint>

namespace Zv {

class LkPulse;

/// The behaviour of a thread that is paced by a source of beats. Derive from it, implement
/// `performSync`, and pass it to `SeSyncEngine::addClient` with a divisor. With a divisor of 4 and
/// a source of 100 beats in a second, `performSync` is called 25 times in a second.
///
///     class Meter : public SeClientThread
///     {
///     protected:
///         bool performSync(std::uint32_t count, int late) override
///         {
///             if (late > 0)
///                 ++_nbLate;
///             return count >= 1000; // ends the thread
///         }
///
///     private:
///         int _nbLate = 0;
///     };
///
/// A client can be late, but work never piles up. If it is late, `performSync` is called once, with
/// the number of beats by which it is late, and the next period begins there. The first two
/// wake-ups of a client count as one beat each, however many beats have passed, so that the start
/// of the client is not counted as a delay. If the generator has been beating before, these two
/// wake-ups follow each other at once.
///
/// The priority of the client's thread is below that of the generator. Nothing else raises it.
/// Without a relation of its own, the thread has the lowest level of all, and gets little processor
/// time on a busy machine. If the work is urgent, add a relation, and destroy it before the client:
///
///     #include <resmgt/threads.h>
///
///     ObjPtr<PriorityRelation> raise(SeClientThread &meter)
///     {
///         return ObjPtr<PriorityRelation>(new PriorityRelation(
///             "meter", RtPriorities::getInstance().getRealTimePriority(),
///             PriorityRelation::LESS_EQUAL, meter.getPriorityNoLock()));
///     }
///
/// **Threads**: `performStart`, `performSync` and `performEnd` run on the client's own thread,
/// without a lock. The thread has a stack of 64 KiB, which cannot be changed. These operations must
/// not call the sync engine. If one of them throws, the process ends.
///
/// **Owns**: while the client is added, it belongs to the engine. `SeSyncEngine::stop` destroys it
/// on the thread that calls `stop`, under the engine's lock. So the destructor of a client must not
/// call the engine, nor wait for a thread that does. A client must not be added to a second source
/// while the first one still runs it.
class ZVRESMGT_EXPORT SeClientThread : public MtThreadProtocol
{
public:
    ~SeClientThread() noexcept(false) override;

    /// Makes the client's priority equal to that of the thread.
    void performAttach(MtThread *thread) override;
    /// Removes the client's relations.
    void performDetach(MtThread *thread) override;
    /// Waits for beats, and calls `performSync`, until `performSync` returns true or the thread is
    /// asked to end.
    void performExecute(MtThread *thread) override;
    /// Asks the thread to end. It ends at the next beat.
    void performStop(MtThread *thread) override;

protected:
    /// Called once, before the first wait for a beat. By default does nothing.
    virtual void performStart();
    /// Does the work. `count` is the number of the latest beat of the source, in 32 bits. `late` is
    /// the number of beats that have passed since the work was due, 0 if it is in time. If it
    /// returns true, the thread ends.
    virtual bool performSync(std::uint32_t count, int late) = 0;
    /// Called once, after the last beat. By default does nothing.
    virtual void performEnd();

    SeClientThread();

    /// Returns the divisor, which is 1 or more. Returns 0 while the client is not added. Takes no
    /// lock. Call it on the client's own thread, or while no other thread adds or stops the client.
    std::int32_t getDivisorNoLock() const { return _divisor; }

public:
    /// Returns the client's node in `MtPriorityMgr`, "syncClient", which the thread's priority is
    /// equal to. It is valid as long as the client. The caller need not hold a lock.
    Priority &getPriorityNoLock() { return _priority; }

private:
    friend class SeGeneratorThread;
    friend struct TestAccess<SeClientThread>;

    using Guard = LkGuard<LkMutex const>;

    /// Adds the client to a generator, whose mutex the caller must hold. With null pointers,
    /// removes the client from its generator after its thread has ended. An assertion fails if the
    /// client is added already, or is not added.
    void setupNoLock(Priority *generator, LkMutex *lock, LkPulse *condition, std::uint32_t *count,
                     std::int32_t divisor);
    bool isStopRequested() const;
    void runBeats();
    void waitForBeat(Guard const &guard, std::uint32_t last, bool isInGrace) const;

    LkMutex *_lock = nullptr;
    LkPulse *_condition = nullptr;
    std::uint32_t *_count = nullptr;
    std::int32_t _divisor = 0;
    ZvPlatform::Shared<bool> _stopRequested{false};
    Priority _priority;
    ObjPtr<PriorityRelation> _threadRelation;
    ObjPtr<PriorityRelation> _generatorRelation;
    MtThread *_thread = nullptr;
};

} // namespace Zv
