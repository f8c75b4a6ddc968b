#include "resmgt/syncEngine/seClientThread.h"

#include "resmgt/locks/lkPulse.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"
#include "zvbase/traceEvents.h"

namespace Zv {

namespace {

/// The number of wake-ups that count as one beat, however many beats have passed since the client
/// was started.
constexpr int NB_GRACE_ROUNDS = 2;

/// Subtracts any number of beats in 32 bits, like the count.
std::int32_t subtractBeats(std::int32_t remaining, std::uint32_t beats)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(remaining) - beats);
}

} // namespace

SeClientThread::SeClientThread()
    : _priority("syncClient", MtPriorityMgr::getInstance(), Priority::NOT_SET)
{}

SeClientThread::~SeClientThread() noexcept(false) = default;

void SeClientThread::performAttach(MtThread *thread)
{
    _thread = thread;
    _threadRelation.reset(new PriorityRelation("syncClient=SeClientThread", _priority,
                                               PriorityRelation::EQUAL, thread->getPriority()));
}

void SeClientThread::performDetach(MtThread *)
{
    _thread = nullptr;
    _generatorRelation.reset();
    _threadRelation.reset();
}

void SeClientThread::performStop(MtThread *)
{
    _stopRequested.store(true, ZvPlatform::Order::RELEASE);
}

bool SeClientThread::isStopRequested() const
{
    return _stopRequested.load(ZvPlatform::Order::ACQUIRE);
}

void SeClientThread::performStart() {}

void SeClientThread::performEnd() {}

void SeClientThread::setupNoLock(Priority *generator, LkMutex *lock, LkPulse *condition,
                                 std::uint32_t *count, std::int32_t divisor)
{
    // clang-format off
    ZV_ASSERT(generator ? ( _lock == 0 && _condition == 0 && _count == 0 ) : ( _lock != 0 && _condition != 0 && _count != 0 ));
    // clang-format on
    ObjPtr<PriorityRelation> relation;
    if (generator)
        relation.reset(new PriorityRelation("client<generator", _thread->getPriority(),
                                            PriorityRelation::LESS, *generator));
    _lock = lock;
    _condition = condition;
    _count = count;
    _divisor = divisor;
    _stopRequested.store(false, ZvPlatform::Order::RELAXED);
    _generatorRelation = relation;
}

void SeClientThread::performExecute(MtThread *)
{
    performStart();
    ZV_ASSERT(_lock && _condition && _count);
    runBeats();
    performEnd();
}

void SeClientThread::runBeats()
{
    Guard guard(*_lock);
    std::uint32_t last = *_count;
    std::int32_t remaining = _divisor;
    int grace = NB_GRACE_ROUNDS;
    bool done = false;
    while (!isStopRequested() && !done) {
        waitForBeat(guard, last, grace != 0);
        if (isStopRequested())
            break;
        std::uint32_t const now = *_count;
        guard.unlock();
        std::uint32_t beats = now - last;
        if (grace != 0) {
            beats = 1;
            --grace;
        }
        last = now;
        remaining = subtractBeats(remaining, beats);
        bool const isDue = remaining < 1;
        if (isDue) {
            std::int32_t const late = subtractBeats(0, static_cast<std::uint32_t>(remaining));
            TraceEvents::Slice slice("clock", "beat");
            slice.setValue("late", late);
            done = performSync(now, late);
        }
        guard.relock();
        if (isDue)
            remaining = _divisor;
    }
}

/// The pulse latches. Once it has been sent, the wake-ups of grace follow each other at once. After
/// them the client sees in the count whether there was a beat while it was busy, and otherwise
/// waits for the next one.
void SeClientThread::waitForBeat(Guard const &guard, std::uint32_t last, bool isInGrace) const
{
    if (isInGrace)
        _condition->wait(guard);
    else if (*_count == last)
        _condition->waitNextPulse(guard);
}

} // namespace Zv
