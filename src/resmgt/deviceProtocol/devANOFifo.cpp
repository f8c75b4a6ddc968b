#include "resmgt/deviceProtocol/devANOFifo.h"

#include "resmgt/deviceProtocol/devANOTrace.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/threadExtensions/mtContainer.imp.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/shared.h"

#include <cstdint>
#include <utility>

namespace Zv {

template class MtContainer<std::queue<DevANOQueueEntry, Deque<DevANOQueueEntry>>>;

namespace {

std::uint64_t checkedCapacity(int capacity)
{
    ZV_ASSERT(capacity >= 0);
    return static_cast<std::uint64_t>(capacity);
}

} // namespace

DevANOFifo::DevANOFifo(char const *name, int capacity)
    : _conditionLock("DevANOFifo condition"), _queue(name, checkedCapacity(capacity))
{}

DevANOFifo::~DevANOFifo() = default;

void DevANOFifo::produce(DevANOQueueEntry &entry)
{
    add(entry, &DevANOQueue::produce);
}

void DevANOFifo::admit(DevANOQueueEntry &entry)
{
    add(entry, &DevANOQueue::admit);
}

void DevANOFifo::add(DevANOQueueEntry &entry, void (DevANOQueue::*how)(DevANOQueueEntry const &))
{
    if (entry.isNull())
        RCExUtil::throwExNullPtr(); // here, not on the thread that would execute it
    DevANOTrace::Sending const sending(*entry.get());
    try {
        (_queue.*how)(entry);
    } catch (...) { // thrown by an observer: the request is queued
        discardIfClosed();
        throw;
    }
    discardIfClosed();
}

std::exception_ptr DevANOFifo::send(ObjPtr<DevANO> ano)
{
    if (ano.isNull())
        RCExUtil::throwExNullPtr();
    DevANOQueueEntry entry(ano);
    try {
        produce(entry);
    } catch (...) {
        if (!entry.isNull())
            throw;
        return std::current_exception();
    }
    return nullptr;
}

std::exception_ptr DevANOFifo::sendLast(ObjPtr<DevANO> last)
{
    if (last.isNull())
        RCExUtil::throwExNullPtr();
    _last = last.get();
    setCondition(ENDING);
    FirstFailure failure;
    discardWhile(ENDING, failure);
    std::exception_ptr const ofObserver = send(last);
    return ofObserver ? ofObserver : failure.get();
}

DevANOQueueEntry DevANOFifo::consume()
{
    for (;;) {
        DevANOQueueEntry entry(_queue.consume());
        if (isForConsumer(entry))
            return entry;
    }
}

bool DevANOFifo::tryConsume(DevANOQueueEntry &entry)
{
    return timedConsume(entry, 0.0);
}

// The time-out starts again after each request that is destroyed here, because the last request
// arrives soon then.
bool DevANOFifo::timedConsume(DevANOQueueEntry &entry, double seconds)
{
    for (;;) {
        DevANOQueueEntry taken;
        if (!_queue.timedConsume(taken, seconds))
            return false;
        if (isForConsumer(taken)) {
            entry = taken;
            return true;
        }
    }
}

void DevANOFifo::close()
{
    std::exception_ptr former;
    {
        LkGuard const guard(_conditionLock);
        _condition.store(CLOSED, ZvPlatform::Order::RELAXED);
        former = std::exchange(_failure, nullptr);
    }
    FirstFailure failure(former);
    discardWhile(CLOSED, failure);
    failure.rethrow();
}

void DevANOFifo::leaveBehind(DevANO const *last)
{
    {
        LkGuard const guard(_conditionLock);
        if (_condition.load(ZvPlatform::Order::RELAXED) == CLOSED)
            return;
        _last = last;
        _condition.store(LEFT_BEHIND, ZvPlatform::Order::RELEASE);
    }
    FirstFailure failure;
    discardWhile(LEFT_BEHIND, failure);
    failure.rethrow();
}

void DevANOFifo::open()
{
    setCondition(OPEN);
}

void DevANOFifo::setObserver(RCShdPtr<DevANOQueue::Observer> const &observer)
{
    _queue.setObserver(observer);
}

bool DevANOFifo::isForConsumer(DevANOQueueEntry &entry)
{
    Condition const condition = _condition.load(ZvPlatform::Order::ACQUIRE);
    if (condition != ENDING && condition != LEFT_BEHIND)
        return true;
    if (entry.get() == _last) {
        if (condition == ENDING)
            _last = nullptr;
        return true;
    }
    // A failure is kept for `close`, because failures on this thread are no longer handled.
    FirstFailure failure;
    failure.attempt([&entry] { entry = DevANOQueueEntry(); });
    LkGuard const guard(_conditionLock);
    if (!_failure)
        _failure = failure.get();
    return false;
}

void DevANOFifo::setCondition(Condition condition)
{
    LkGuard const guard(_conditionLock);
    _condition.store(condition, ZvPlatform::Order::RELEASE);
}

// Called when the entry has been queued. The closing thread and the queueing thread have both held
// the queue's lock by then. So either the closing thread finds the entry, or the queueing thread
// finds the queue closed.
void DevANOFifo::discardIfClosed()
{
    Condition const condition = _condition.load(ZvPlatform::Order::RELAXED);
    if (condition != CLOSED && condition != LEFT_BEHIND)
        return;
    FirstFailure failure;
    discardWhile(condition, failure);
    failure.rethrow();
}

// Puts the last ANO back to the end of the queue, for the thread that was left behind. When that
// ANO has been taken out twice, all requests that were behind it have been destroyed.
void DevANOFifo::discardWhile(Condition condition, FirstFailure &failure)
{
    for (int nbTimesSeen = 0; nbTimesSeen < 2;) {
        DevANOQueueEntry entry;
        {
            LkGuard const guard(_conditionLock);
            if (_condition.load(ZvPlatform::Order::RELAXED) != condition ||
                !_queue.tryConsume(entry))
                return;
            if (condition == LEFT_BEHIND && entry.get() == _last) {
                failure.attempt([this, &entry] { _queue.admit(entry); });
                ++nbTimesSeen;
            }
        }
        failure.attempt([&entry] { entry = DevANOQueueEntry(); });
    }
}

} // namespace Zv
