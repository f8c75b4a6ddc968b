#include "resmgt/syncEngine/seClientThread.h"

#include "resmgt/locks/lkPulse.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/failures.h"
#include "zvbase/platform/interlocked.h"

namespace Zv {

namespace {

/// Wake-ups whose jump is ignored: the client's start is not charged to it.
constexpr int NB_GRACE_ROUNDS = 2;

/// Counts down a period that may have passed by any number of beats; 32 bits, as the count.
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
    ZvPlatform::Interlocked::storeRelease(_stopRequested, true);
}

bool SeClientThread::isStopRequested() const
{
    return ZvPlatform::Interlocked::loadAcquire(_stopRequested);
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
    ZvPlatform::Interlocked::storeRelease(_stopRequested, false);
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
        if (isDue)
            done = performSync(now, subtractBeats(0, static_cast<std::uint32_t>(remaining)));
        guard.relock();
        if (isDue)
            remaining = _divisor;
    }
}

// The pulse latches: once it has been sent, the rounds of grace come at once. After them a beat that has come while
// the client was busy is seen in the count, and for all others the client sleeps.
void SeClientThread::waitForBeat(Guard const &guard, std::uint32_t last, bool isInGrace) const
{
    if (isInGrace)
        _condition->wait(guard);
    else if (*_count == last)
        _condition->waitNextPulse(guard);
}

} // namespace Zv
