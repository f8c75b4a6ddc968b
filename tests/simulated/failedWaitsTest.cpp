// Waits that fail inside a lock, and elements that throw in a queue. The other threads must
// continue.
#include "simulated/failedWaits.h"
#include "simulated/scenario.h"

#include "resmgt/locks.h"
#include "resmgt/threadExtensions/mtContainer.imp.h"
#include "resmgt/threadExtensions/mtRequestMgr.h"

#include <queue>
#include <sstream>
#include <stdexcept>
#include <utility>

// Mutexes are left locked here on purpose.
#ifdef __clang__
#pragma clang diagnostic ignored "-Wthread-safety-analysis"
#endif

using namespace Zv;
using namespace Zv::Simulated;
using enum FailingWait;

SIMULATED(AbandonedMutex, {.preemptions = 1})
{
    LkMutex mutex("mutex");
    LkCounter<long> refusals;
    LkCounter<long> inside;
    // A thread that does not get the mutex tries again.
    auto const visit = [&](auto lock) {
        for (bool isOurs = false; !isOurs;) {
            try {
                isOurs = lock();
            } catch (AssertionFailed const &) {
                ++refusals;
            }
        }
        HOLDS(++inside == 1);
        step("inside");
        --inside;
        mutex.unlock();
    };
    Worker("lost", [&] { mutex.lock(); }).join();
    Worker waiting("waiting", [&] { visit([&] { return mutex.lock(); }); });
    Worker spinning("spinning", [&] { visit([&] { return mutex.spinLock(2); }); });
    visit([&] { return mutex.lock(); });
    waiting.join();
    spinning.join();
    HOLDS(refusals.getValue() == 1);
    HOLDS(mutex.tryLock());
    mutex.unlock();
}

SIMULATED(AbandonedMutexIsTried, {.preemptions = 1})
{
    LkMutex mutex("mutex");
    auto const visit = [&] {
        mutex.lock();
        step("inside");
        mutex.unlock();
    };
    Worker("lost", [&] { mutex.lock(); }).join();
    HOLDS(!mutex.tryLock());
    Worker first("first", visit);
    if (mutex.tryLock())
        mutex.unlock();
    visit();
}

namespace {

template <class Object>
std::string stateOf(Object const &object)
{
    std::ostringstream stream;
    object.dump(stream);
    return stream.str();
}

/// Takes and releases the lock. If this has to wait, the first wait fails.
template <class Lock>
void fallOut(LkRwLock const &lock, FailingWait where, Lock take)
{
    withFailingWait(where, [&] {
        take();
        step("inside");
        lock.unlock();
    });
}

} // namespace

SIMULATED(RwLockWriterCannotWait, {.schedules = 500})
{
    LkRwLock lock("lock");
    auto const write = [&] { lock.writeLock(); };
    Worker early("early", [&] { fallOut(lock, BEFORE_SLEEPING, write); });
    Worker late("late", [&] { fallOut(lock, WHEN_WOKEN, write); });
    Worker reader("reader", [&] {
        LkGuard<LkRwLock const> const guard(lock);
        step("reading");
    });
    Worker writer("writer", [&] {
        LkGuard<LkRwLock> const guard(lock);
        step("writing");
    });
    {
        LkGuard<LkRwLock const> const guard(lock);
        step("reading");
    }
    for (Worker *worker : {&early, &late, &reader, &writer})
        worker->join();
    HOLDS(stateOf(lock) == "name lock rwLock 0 wr wait 0 rd wait 0");
    HOLDS(lock.tryReadLock());
    lock.unlock();
}

SIMULATED(RwLockReaderCannotWait, {.schedules = 500})
{
    LkRwLock lock("lock");
    auto const read = [&] { lock.readLock(); };
    Worker early("early", [&] { fallOut(lock, BEFORE_SLEEPING, read); });
    Worker late("late", [&] { fallOut(lock, WHEN_WOKEN, read); });
    Worker reader("reader", [&] {
        LkGuard<LkRwLock const> const guard(lock);
        step("reading");
    });
    for (int i = 0; i < 2; ++i) {
        LkGuard<LkRwLock> const guard(lock);
        step("writing");
    }
    for (Worker *worker : {&early, &late, &reader})
        worker->join();
    HOLDS(stateOf(lock) == "name lock rwLock 0 wr wait 0 rd wait 0");
    HOLDS(lock.tryWriteLock());
    lock.unlock();
}

SIMULATED(ConditionCannotWait, {.schedules = 500})
{
    LkMutex mutex("mutex");
    LkCondVar changed("changed");
    int tokens = 0;
    auto const take = [&] {
        LkGuard<LkMutex const> const guard(mutex);
        while (tokens == 0)
            changed.wait(guard);
        --tokens;
    };
    auto const give = [&] {
        {
            LkGuard<LkMutex const> const guard(mutex);
            ++tokens;
        }
        changed.broadcast();
    };
    Worker failing("failing", [&] {
        if (withFailingWait(IN_THE_SERVICE, take))
            give();
    });
    Worker first("first", take);
    Worker second("second", take);
    give();
    {
        LkGuard<LkMutex const> const guard(mutex);
        ++tokens;
        changed.signal();
    }
    failing.join();
    first.join();
    second.join();
    HOLDS(tokens == 0);
    changed.broadcast(); // no thread must be counted as waiting now
}

SIMULATED(CountedPulseCannotBeWaitedFor, {.schedules = 500})
{
    LkMutex mutex("mutex");
    LkPulse pulse("pulse", LkPulse::WAKE_ONE);
    auto const wait = [&] {
        LkGuard<LkMutex const> const guard(mutex);
        pulse.wait(guard);
    };
    Worker failing("failing", [&] { HOLDS(!withFailingWait(IN_THE_SERVICE, wait)); });
    Worker other("other", wait);
    pulse.pulse();
}

SIMULATED(SemaphoreCannotBeWaitedFor, {.schedules = 500})
{
    LkSema sema("sema", 0);
    // A thread whose wait does not fail gives back what it got.
    auto const fallOut = [&](FailingWait where) {
        if (withFailingWait(where, [&] { sema.wait(); }))
            sema.post();
    };
    Worker early("early", [&] { fallOut(BEFORE_SLEEPING); });
    Worker late("late", [&] { fallOut(WHEN_WOKEN); });
    Worker timed("timed", [&] {
        if (withFailingWait(WHEN_WOKEN, [&] {
                if (!sema.timedWait(0.001))
                    Assertions::throwAssertionFailed(__FILE__, __LINE__, "too late");
            }))
            sema.post();
    });
    Worker waiter("waiter", [&] { sema.wait(); });
    sema.post();
    waiter.join();
    sema.post(); // for threads that have not failed yet
    for (Worker *worker : {&early, &late, &timed})
        worker->join();
    HOLDS(sema.tryWait());
    HOLDS(!sema.tryWait());
}

SIMULATED(TicketCannotBeWaitedFor, {.schedules = 500})
{
    LkTicket ticket("ticket");
    Worker other("other", [&] {
        for (long long turn : {0, 2}) {
            ticket.waitForTicket(turn);
            ticket.next();
        }
    });
    long long mine = 0;
    for (FailingWait where : {BEFORE_SLEEPING, WHEN_WOKEN}) {
        if (!withFailingWait(where, [&] { ticket.waitForNextTicket(mine); }))
            ticket.waitForNextTicket(mine);
        ticket.next();
        ++mine;
    }
    HOLDS(mine == 4);
}

SIMULATED(GateCannotBeWaitedAt, {.schedules = 500})
{
    LkGate gate("gate", 3, false);
    LkCounter<long> come;
    auto const pass = [&] {
        ++come;
        gate.ready();
        HOLDS(come.getValue() == 3);
    };
    Worker early("early", [&] {
        ++come;
        if (withFailingWait(BEFORE_SLEEPING, [&] { gate.ready(); }))
            return;
        --come;
        step("comes again");
        pass();
    });
    Worker late("late", [&] {
        ++come;
        withFailingWait(WHEN_WOKEN, [&] { gate.ready(); });
        HOLDS(come.getValue() == 3);
    });
    pass();
}

SIMULATED(GateWithKeeperCannotBeWaitedAt, {.schedules = 500})
{
    LkGate gate("gate", 2, true);
    LkCounter<long> come;
    bool isOpen = false;
    Worker early("early", [&] {
        ++come;
        if (withFailingWait(BEFORE_SLEEPING, [&] { gate.ready(); }))
            return;
        step("comes again");
        try {
            gate.ready();
            HOLDS(isOpen);
        } catch (AssertionFailed const &) { // the keeper has already counted this thread
        }
    });
    Worker late("late", [&] {
        ++come;
        withFailingWait(WHEN_WOKEN, [&] { gate.ready(); });
        HOLDS(isOpen);
    });
    LkGateKeeperGuard const keeper(gate);
    HOLDS(come.getValue() == 2);
    isOpen = true;
}

// An arrival that is withdrawn while the gate is asked for its state must not stay counted.
SIMULATED(GateIsAskedWhileAWaitFails, {.schedules = 500, .preemptions = 1})
{
    LkGate gate("gate", 1, true);
    Worker asking("asking", [&] { static_cast<void>(gate.isGateReady()); });
    Worker dumping("dumping", [&] { static_cast<void>(stateOf(gate)); });
    HOLDS(!withFailingWait(BEFORE_SLEEPING, [&] { gate.ready(); }));
    asking.join();
    dumping.join();
    HOLDS(!gate.isGateReady());
    HOLDS(stateOf(gate).find("num ready: 0\n") != std::string::npos);
}

SIMULATED(TagIsReleasedBeforeItsWaitersRun, {.schedules = 300, .preemptions = 1, .leaks = true})
{
    MtRequestMgr requests;
    MtRequestTag const tag = requests.acquireTag();
    requests.incRequestCount(tag);
    LkUnnamedSema waits("waits", 0);
    auto const wait = [&] {
        NextWaitPosts const posting(waits);
        requests.waitRequestCountZero(tag);
    };
    Worker first("first", wait);
    Worker second("second", wait);
    waits.wait();
    waits.wait();
    requests.decRequestCount(tag);
    requests.releaseTag(tag);
    HOLDS(requests.getRequestCount(requests.acquireTag()) == 0);
}

SIMULATED(WaitForATagFails, {.schedules = 300})
{
    MtRequestMgr requests;
    MtRequestTag const tag = requests.acquireTag();
    requests.incRequestCount(tag);
    LkUnnamedSema waits("waits", 0);
    auto const fail = [&](FailingWait where) {
        NextWaitPosts const posting(waits);
        HOLDS(!withFailingWait(where, [&] { requests.waitRequestCountZero(tag); }));
    };
    Worker late("late", [&] { fail(WHEN_WOKEN); });
    Worker inTheService("in the service", [&] { fail(IN_THE_SERVICE); });
    waits.wait();
    waits.wait();
    requests.decRequestCount(tag);
    requests.releaseTag(tag);
}

// ---- The queue between threads.

namespace {

/// Whether copies and moves on this thread throw.
thread_local bool isBreaking = false;

struct Fragile
{
    explicit Fragile(int number = 0) : value(number) {}
    Fragile(Fragile const &other) : value(other.value) { mayBreak(); }
    Fragile(Fragile &&other) : value(other.value) { mayBreak(); }
    Fragile &operator=(Fragile const &) = default;

    static void mayBreak()
    {
        step("an element is copied");
        if (isBreaking)
            throw std::runtime_error("the element");
    }

    int value;
};

using FragileQueue = MtContainer<std::queue<Fragile>>;
using Queue = MtContainer<std::queue<int>>;

template <class Work>
void breaking(Work work)
{
    isBreaking = true;
    try {
        work();
    } catch (std::runtime_error const &) {
    }
    isBreaking = false;
}

} // namespace

SIMULATED(QueueProducersElementThrows, {.schedules = 500})
{
    FragileQueue queue("queue", 1);
    Fragile const one(1);
    queue.produce(one);
    Worker breaker("breaker", [&] { breaking([&] { queue.produce(one); }); });
    Worker second("second", [&] { queue.produce(one); });
    Worker third("third", [&] { queue.produce(one); });
    for (int i = 0; i < 3; ++i)
        HOLDS(queue.consume().value == 1);
    breaker.join();
    HOLDS(queue.isEmpty());
}

SIMULATED(QueueConsumersElementThrows, {.schedules = 500})
{
    FragileQueue queue("queue");
    Fragile const one(1);
    Worker breaker("breaker", [&] { breaking([&] { static_cast<void>(queue.consume()); }); });
    Worker timed("timed", [&] {
        Fragile element;
        breaking([&] { static_cast<void>(queue.timedConsume(element, 0.001)); });
    });
    Worker second("second", [&] { HOLDS(queue.consume().value == 1); });
    Worker third("third", [&] { HOLDS(queue.consume().value == 1); });
    queue.produce(one);
    queue.produce(one);
    second.join();
    third.join();
    queue.produce(one); // for threads that have not failed yet
    timed.join();
    breaker.join();
    HOLDS(queue.consume().value == 1);
    HOLDS(queue.isEmpty());
}

SIMULATED(QueueProducerCannotWait, {.schedules = 500})
{
    Queue queue("queue", 1);
    LkCounter<long> produced;
    auto const fallOut = [&](FailingWait where) {
        if (withFailingWait(where, [&] { queue.produce(1); }))
            ++produced;
    };
    queue.produce(1);
    Worker early("early", [&] { fallOut(BEFORE_SLEEPING); });
    Worker late("late", [&] { fallOut(WHEN_WOKEN); });
    Worker second("second", [&] {
        queue.produce(1);
        ++produced;
    });
    HOLDS(queue.consume() == 1);
    // At least one producer queues its element, in any case.
    HOLDS(queue.consume() == 1);
    int element = 0;
    for (Worker *worker : {&early, &late, &second})
        while (::WaitForSingleObject(worker->getHandle(), 1) == WAIT_TIMEOUT)
            static_cast<void>(queue.tryConsume(element));
    while (queue.tryConsume(element)) {
    }
    HOLDS(produced.getValue() >= 1);
}

SIMULATED(QueueConsumerCannotWait, {.schedules = 500})
{
    Queue queue("queue");
    // A thread whose wait does not fail gives back what it got.
    Worker early("early", [&] {
        if (withFailingWait(BEFORE_SLEEPING, [&] { static_cast<void>(queue.consume()); }))
            queue.produce(1);
    });
    Worker late("late", [&] {
        if (withFailingWait(WHEN_WOKEN, [&] { static_cast<void>(queue.consume()); }))
            queue.produce(1);
    });
    Worker timed("timed", [&] {
        int element = 0;
        withFailingWait(WHEN_WOKEN, [&] { static_cast<void>(queue.timedConsume(element, 0.001)); });
        if (element)
            queue.produce(1);
    });
    Worker second("second", [&] { HOLDS(queue.consume() == 1); });
    queue.produce(1);
    second.join();
    queue.produce(1); // for threads that have not failed yet
    for (Worker *worker : {&early, &late, &timed})
        worker->join();
    HOLDS(queue.consume() == 1);
    HOLDS(queue.isEmpty());
}
