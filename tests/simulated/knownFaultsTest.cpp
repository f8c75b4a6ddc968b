// Programs with known faults, which the strategies must find within a number of schedules.
#include "simulated/scenario.h"

#include "zvbase/platform/interlocked.h"

using namespace Zv::Simulated;
namespace Interlocked = ZvPlatform::Interlocked;

namespace {

class Lock
{
public:
    explicit Lock(char const *name) : _mutex(::CreateMutexA(nullptr, FALSE, nullptr))
    {
        setName(_mutex, name);
    }
    ~Lock() { ::CloseHandle(_mutex); }
    Lock(Lock const &) = delete;
    Lock &operator=(Lock const &) = delete;

    void lock() { ::WaitForSingleObject(_mutex, INFINITE); }
    void unlock() { ::ReleaseMutex(_mutex); }

private:
    HANDLE _mutex;
};

class Event
{
public:
    explicit Event(bool manual) : _event(::CreateEventA(nullptr, manual, FALSE, nullptr)) {}
    ~Event() { ::CloseHandle(_event); }
    Event(Event const &) = delete;
    Event &operator=(Event const &) = delete;

    void set() { ::SetEvent(_event); }
    void pulse() { ::PulseEvent(_event); }
    void wait() { ::WaitForSingleObject(_event, INFINITE); }

private:
    HANDLE _event;
};

class Semaphore
{
public:
    Semaphore() : _semaphore(::CreateSemaphoreA(nullptr, 0, 1000, nullptr)) {}
    ~Semaphore() { ::CloseHandle(_semaphore); }
    Semaphore(Semaphore const &) = delete;
    Semaphore &operator=(Semaphore const &) = delete;

    void post(LONG count = 1) { ::ReleaseSemaphore(_semaphore, count, nullptr); }
    void wait() { ::WaitForSingleObject(_semaphore, INFINITE); }

private:
    HANDLE _semaphore;
};

} // namespace

/// The waiter reads the flag and begins its wait in two separate steps.
KNOWN_FAULT(LostWakeUp, (Fault{"waits for ever", 100, 100, 100}), {.preemptions = 2})
{
    int flag = 0;
    int isAsleep = 0;
    Event event(false);
    Worker waiter("waiter", [&] {
        if (Interlocked::loadAcquire(flag))
            return;
        Interlocked::storeRelease(isAsleep, 1);
        WaitingFor const flagSet("the flag is set", [&] { return flag != 0; });
        event.wait();
    });
    Interlocked::storeRelease(flag, 1);
    if (Interlocked::loadAcquire(isAsleep))
        event.set();
    waiter.join();
}

KNOWN_FAULT(LockOrder, (Fault{"deadlock", 100, 100, 100}), {.preemptions = 1})
{
    Lock left("left");
    Lock right("right");
    Worker other("other", [&] {
        right.lock();
        left.lock();
        left.unlock();
        right.unlock();
    });
    left.lock();
    right.lock();
    right.unlock();
    left.unlock();
}

KNOWN_FAULT(CheckThenAct, (Fault{"does not hold", 100, 100, 100}), {.preemptions = 1})
{
    int places = 1;
    auto const take = [&] {
        if (Interlocked::loadAcquire(places) > 0)
            Interlocked::decrement(places);
    };
    Worker other("other", take);
    take();
    other.join();
    HOLDS(places >= 0);
}

/// A pulse only wakes threads that already wait, and the waiter releases the mutex before its wait.
KNOWN_FAULT(MissedPulse, (Fault{"waits for ever", 100, 100, 100}), {.preemptions = 2})
{
    Lock lock("lock");
    Event event(true);
    bool isReady = false;
    Worker waiter("waiter", [&] {
        lock.lock();
        while (!isReady) {
            lock.unlock();
            {
                WaitingFor const ready("it is ready", [&] { return isReady; });
                event.wait();
            }
            lock.lock();
        }
        lock.unlock();
    });
    lock.lock();
    isReady = true;
    event.pulse();
    lock.unlock();
    waiter.join();
}

namespace {

/// Condition variable whose broadcast posts once for each waiter. A thread that begins to wait
/// later may take the post of another thread.
class NaiveCondition
{
public:
    void wait(Lock &lock)
    {
        Interlocked::increment(_waiters);
        lock.unlock();
        _semaphore.wait();
        lock.lock();
    }
    void broadcast()
    {
        int const waiters = Interlocked::exchange(_waiters, 0);
        for (int i = 0; i < waiters; ++i)
            _semaphore.post();
    }

private:
    int _waiters = 0;
    Semaphore _semaphore;
};

} // namespace

KNOWN_FAULT(BroadcastGap, (Fault{"waits for ever", 0, 3000, 0}), {})
{
    Lock lock("lock");
    NaiveCondition condition;
    int round = 0;
    // Waits for each round. The quick thread may wait for the second round early, and take the post
    // for the slow one.
    auto const follow = [&](int rounds) {
        lock.lock();
        for (int mine = 1; mine <= rounds; ++mine)
            while (round < mine) {
                WaitingFor const begun("the first round has begun", [&] { return round >= mine; });
                condition.wait(lock);
            }
        lock.unlock();
    };
    Worker quick("quick", [&] { follow(2); });
    Worker slow("slow", [&] { follow(1); });
    lock.lock();
    round = 1;
    condition.broadcast();
    lock.unlock();
    slow.join();
    lock.lock();
    round = 2;
    condition.broadcast();
    lock.unlock();
    quick.join();
}

namespace {

struct Counted
{
    int count = 1;
    int value = 0;
    Counted *next = nullptr;
};

/// Stack whose pop takes it for granted that an element at the same address still has the same
/// successor.
class NaiveStack
{
public:
    void push(Counted *one)
    {
        Counted *top = Interlocked::loadAcquire(_top);
        do
            one->next = top;
        while (!Interlocked::compareExchange(_top, top, one));
    }
    Counted *pop()
    {
        Counted *top = Interlocked::loadAcquire(_top);
        while (top) {
            Counted * const next = Interlocked::loadAcquire(top->next);
            if (Interlocked::compareExchange(_top, top, next))
                return top;
        }
        return nullptr;
    }

private:
    Counted *_top = nullptr;
};

} // namespace

/// An element is pushed again while another thread, which is about to pop it, still has its former
/// successor.
KNOWN_FAULT(ReferenceCountAba, (Fault{"does not hold", 3000, 3000, 3000}), {.preemptions = 2})
{
    Counted elements[2];
    NaiveStack unused;
    unused.push(&elements[1]);
    unused.push(&elements[0]);
    auto const acquire = [&]() -> Counted * {
        Counted *one = unused.pop();
        if (one)
            HOLDS(Interlocked::increment(one->count) == 2);
        return one;
    };
    auto const release = [&](Counted *one) {
        if (one && Interlocked::decrement(one->count) == 1)
            unused.push(one);
    };
    Worker other("other", [&] {
        Counted *first = acquire();
        Counted *second = acquire();
        release(first);
        Counted *third = acquire();
        release(third);
        release(second);
    });
    Counted *mine = acquire();
    Counted *more = acquire();
    other.join();
    release(more);
    release(mine);
}
