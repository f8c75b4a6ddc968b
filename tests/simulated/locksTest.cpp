// Locks and wait objects: mutual exclusion, and wake-ups that are not lost.
#include "simulated/scenario.h"

#include "resmgt/locks.h"

#include <atomic>
#include <memory>

using namespace Zv;
using namespace Zv::Simulated;

namespace {

/// Counts the threads inside. Between entering and leaving there is a step, so that two threads can
/// meet.
class Room
{
public:
    void visit()
    {
        HOLDS(++_inside == 1);
        step("inside");
        HOLDS(--_inside == 0);
        ++_visits;
    }
    int getVisits() const { return _visits; }

private:
    int _inside = 0;
    int _visits = 0;
};

template <class Lock>
void shareLock(Lock &lock)
{
    Room room;
    auto const visitTwice = [&] {
        for (int i = 0; i < 2; ++i) {
            LkGuard<Lock> const guard(lock);
            HOLDS(lock.isLockedByThread());
            room.visit();
        }
    };
    Worker first("first", visitTwice);
    Worker second("second", visitTwice);
    visitTwice();
    first.join();
    second.join();
    HOLDS(room.getVisits() == 6);
    HOLDS(!lock.isLocked());
}

} // namespace

SIMULATED(Mutex, {.preemptions = 1})
{
    LkMutex mutex("mutex");
    shareLock(mutex);
}

SIMULATED(Lock, {.preemptions = 1})
{
    LkLock lock("lock");
    shareLock(lock);
}

SIMULATED(RecursiveLock, {.preemptions = 1})
{
    LkRecLock lock("lock");
    LkRecLock outer("outer");
    Worker nested("nested", [&] {
        LkGuard<LkRecLock> const once(outer);
        LkGuard<LkRecLock> const twice(outer);
        HOLDS(outer.isLockedByThread());
    });
    LkGuard<LkRecLock> guard(outer);
    shareLock(lock);
    guard.unlock();
}

SIMULATED(MutexTries, {.preemptions = 2})
{
    LkMutex mutex("mutex");
    Room room;
    Worker trier("trier", [&] {
        for (int i = 0; i < 3; ++i)
            if (mutex.tryLock()) {
                room.visit();
                mutex.unlock();
            }
    });
    Worker spinner("spinner", [&] {
        mutex.spinLock(3);
        room.visit();
        mutex.unlock();
    });
    mutex.lock();
    HOLDS(!mutex.tryLock());
    room.visit();
    mutex.unlock();
}

// ---- The read-write lock.

namespace {

/// Checks that a writer is alone. Several readers may be inside at the same time.
class Page
{
public:
    void read()
    {
        ++_readers;
        HOLDS(_writers == 0);
        int const before = _value;
        step("reading");
        HOLDS(_writers == 0 && _value == before);
        --_readers;
    }
    void write()
    {
        HOLDS(++_writers == 1 && _readers == 0);
        ++_value;
        step("writing");
        HOLDS(--_writers == 0 && _readers == 0);
    }
    int getValue() const { return _value; }

private:
    std::atomic<int> _readers = 0;
    int _writers = 0;
    int _value = 0;
};

} // namespace

SIMULATED(RwLock, {.schedules = 500})
{
    LkRwLock lock("lock");
    Page page;
    auto const readTwice = [&] {
        for (int i = 0; i < 2; ++i) {
            lock.readLock();
            page.read();
            lock.unlock();
        }
    };
    auto const writeTwice = [&] {
        for (int i = 0; i < 2; ++i) {
            lock.writeLock();
            page.write();
            lock.unlock();
        }
    };
    Worker readerA("readerA", readTwice);
    Worker readerB("readerB", readTwice);
    Worker writerA("writerA", writeTwice);
    writeTwice();
    writerA.join();
    readerA.join();
    readerB.join();
    HOLDS(page.getValue() == 4);
    HOLDS(!lock.isLockedInline());
}

SIMULATED(RwLockTries)
{
    LkRwLock lock("lock");
    Page page;
    Worker reader("reader", [&] {
        for (int i = 0; i < 3; ++i)
            if (lock.tryReadLock()) {
                page.read();
                lock.unlock();
            }
        lock.spinReadLock(2);
        page.read();
        lock.unlock();
    });
    Worker writer("writer", [&] {
        for (int i = 0; i < 3; ++i)
            if (lock.tryWriteLock()) {
                page.write();
                lock.unlock();
            }
        lock.spinWriteLock(2);
        page.write();
        lock.unlock();
    });
    lock.readLock();
    page.read();
    lock.waitForWriters();
    lock.unlock();
}

// ---- Wait objects.

SIMULATED(ConditionSignal, {.preemptions = 1})
{
    LkMutex mutex("mutex");
    LkCondVar filled("filled");
    int places = 0;
    auto const take = [&] {
        LkGuard<LkMutex> const guard(mutex);
        WaitingFor const stated("there is a place", [&] { return places > 0; });
        while (places == 0)
            filled.wait(guard);
        --places;
    };
    Worker first("first", take);
    Worker second("second", take);
    for (int i = 0; i < 2; ++i) {
        LkGuard<LkMutex> const guard(mutex);
        ++places;
        filled.signal();
    }
    first.join();
    second.join();
    HOLDS(places == 0);
}

SIMULATED(ConditionBroadcast, {.schedules = 600})
{
    LkMutex mutex("mutex");
    LkCondVar changed("changed");
    int round = 0;
    auto const follow = [&] {
        LkGuard<LkMutex> const guard(mutex);
        for (int mine = 1; mine <= 2; ++mine) {
            WaitingFor const stated("the round has begun", [&] { return round >= mine; });
            while (round < mine)
                changed.wait(guard);
        }
    };
    Worker first("first", follow);
    Worker second("second", follow);
    Worker timed("timed", [&] {
        LkGuard<LkMutex> const guard(mutex);
        while (round < 1)
            static_cast<void>(changed.timedWait(guard, 0.001));
    });
    for (int i = 0; i < 2; ++i) {
        {
            LkGuard<LkMutex> const guard(mutex);
            ++round;
        }
        changed.broadcast();
    }
}

SIMULATED(ConditionSignalsMeetBroadcasts, {.schedules = 600})
{
    LkMutex mutex("mutex");
    LkCondVar changed("changed");
    int tokens = 0;
    auto const take = [&] {
        LkGuard<LkMutex> const guard(mutex);
        WaitingFor const stated("there is a token", [&] { return tokens > 0; });
        while (tokens == 0)
            changed.wait(guard);
        --tokens;
    };
    Worker first("first", take);
    Worker second("second", take);
    Worker signaller("signaller", [&] {
        LkGuard<LkMutex> const guard(mutex);
        ++tokens;
        changed.signal();
    });
    {
        LkGuard<LkMutex> const guard(mutex);
        ++tokens;
    }
    changed.broadcast();
}

SIMULATED(PulseWakesOne, {.preemptions = 1})
{
    LkMutex mutex("mutex");
    LkPulse pulse("pulse", LkPulse::WAKE_ONE);
    int woken = 0;
    auto const wait = [&] {
        LkGuard<LkMutex> const guard(mutex);
        pulse.wait(guard);
        ++woken;
    };
    Worker first("first", wait);
    Worker second("second", wait);
    // The pulses are counted, so none is lost.
    pulse.pulse();
    pulse.pulse();
    first.join();
    second.join();
    HOLDS(woken == 2);
}

SIMULATED(PulseLatches, {.preemptions = 1})
{
    LkMutex mutex("mutex");
    LkPulse pulse("pulse", LkPulse::WAKE_ALL);
    auto const wait = [&] {
        LkGuard<LkMutex> const guard(mutex);
        pulse.wait(guard);
        HOLDS(pulse.timedWait(guard, 0.001));
    };
    Worker first("first", wait);
    Worker second("second", wait);
    pulse.pulse();
}

SIMULATED(NextPulse, {.schedules = 600})
{
    LkMutex mutex("mutex");
    LkPulse pulse("pulse", LkPulse::WAKE_ALL);
    int value = 0;
    auto const follow = [&] {
        LkGuard<LkMutex> const guard(mutex);
        for (int wanted = 1; wanted <= 2; ++wanted) {
            WaitingFor const stated("the value is there", [&] { return value >= wanted; });
            while (value < wanted)
                pulse.waitNextPulse(guard);
        }
    };
    Worker first("first", follow);
    Worker second("second", follow);
    Worker timed("timed", [&] {
        LkGuard<LkMutex> const guard(mutex);
        while (value < 2)
            static_cast<void>(pulse.timedWaitNextPulse(guard, 0.001));
    });
    for (int i = 0; i < 2; ++i) {
        LkGuard<LkMutex> const guard(mutex);
        ++value;
        pulse.pulse();
    }
}

/// The woken thread may destroy the pulse on which it has waited.
SIMULATED(PulseDestroyedByTheWoken)
{
    LkMutex mutex("mutex");
    auto pulse = std::make_unique<LkPulse>("pulse", LkPulse::WAKE_ONE);
    Worker waiter("waiter", [&] {
        LkGuard<LkMutex> guard(mutex);
        pulse->wait(guard);
        guard.unlock();
        pulse.reset();
    });
    pulse->pulse();
}

SIMULATED(Semaphores, {.preemptions = 1})
{
    LkSema sema("sema", 1);
    LkUnnamedSema done("done", 0);
    int inside = 0;
    auto const pass = [&] {
        sema.wait();
        HOLDS(++inside == 1);
        step("inside");
        --inside;
        sema.post();
        done.post();
    };
    Worker first("first", pass);
    Worker second("second", pass);
    Worker timed("timed", [&] {
        if (sema.timedWait(0.001))
            sema.post();
        if (sema.tryWait())
            sema.post();
    });
    done.wait();
    done.wait();
    timed.join();
    HOLDS(sema.tryWait());
    HOLDS(!sema.tryWait());
}

SIMULATED(SemaphoreDestroyedByTheWoken)
{
    auto sema = std::make_unique<LkUnnamedSema>("sema", 0);
    Worker waiter("waiter", [&] {
        sema->wait();
        sema.reset();
    });
    sema->post();
}

SIMULATED(NamedSemaphores, {.schedules = 200})
{
    auto const meet = [] {
        LkNamedSema sema("meeting", 1, LkSemaTypes::CREATE, "meeting");
        sema.wait();
        step("inside");
        sema.post();
    };
    Worker first("first", meet);
    Worker second("second", meet);
    meet();
}

SIMULATED(EventStaysSet, {.preemptions = 1})
{
    LkEvent event("event", false);
    int passed = 0;
    auto const pass = [&] {
        event.wait();
        __atomic_add_fetch(&passed, 1, __ATOMIC_RELAXED);
    };
    Worker first("first", pass);
    Worker second("second", pass);
    event.set();
    event.wait();
    first.join();
    second.join();
    event.reset();
    HOLDS(!event.timedWait(0.001));
    HOLDS(passed == 2);
}

SIMULATED(Gate)
{
    LkGate gate("gate", 3, false);
    int come = 0;
    auto const pass = [&] {
        __atomic_add_fetch(&come, 1, __ATOMIC_RELAXED);
        gate.ready();
        HOLDS(come == 3);
    };
    Worker first("first", pass);
    Worker second("second", pass);
    pass();
}

SIMULATED(GateWithKeeper, {.schedules = 500})
{
    LkGate gate("gate", 2, true);
    int come = 0;
    bool isOpen = false;
    auto const pass = [&] {
        __atomic_add_fetch(&come, 1, __ATOMIC_RELAXED);
        gate.ready();
        HOLDS(isOpen);
    };
    Worker first("first", pass);
    Worker second("second", pass);
    LkGateKeeperGuard const keeper(gate);
    HOLDS(come == 2);
    step("all stand at the gate");
    isOpen = true;
}

SIMULATED(GateObserved, {.schedules = 500})
{
    LkGate gate("gate", 2, true);
    Worker first("first", [&] { gate.ready(); });
    Worker second("second", [&] { gate.ready(); });
    gate.observeGateReady();
    HOLDS(gate.isGateReady());
    LkGateKeeperGuard const keeper(gate);
}

SIMULATED(Tickets, {.schedules = 500})
{
    LkTicket ticket("ticket");
    int turn = 0;
    auto const take = [&](long long number) {
        ticket.waitForTicket(number);
        HOLDS(turn++ == number);
        ticket.next();
    };
    Worker third("third", [&] { take(2); });
    Worker second("second", [&] { take(1); });
    Worker first("first", [&] { take(0); });
}

SIMULATED(PulsePool, {.preemptions = 1})
{
    LkPulsePool pool;
    auto const borrow = [&] {
        ObjPtr<LkPulse> pulse(pool.getPulse());
        step("has a pulse");
        pool.recyclePulse(pulse);
    };
    Worker first("first", borrow);
    Worker second("second", borrow);
    borrow();
}

SIMULATED(Counters, {.preemptions = 2})
{
    LkCounter<long> fast;
    LkCounter<short> guarded;
    auto const count = [&] {
        ++fast;
        guarded += 2;
        --guarded;
        fast += 3;
    };
    Worker first("first", count);
    Worker second("second", count);
    first.join();
    second.join();
    HOLDS(fast.getValue() == 8 && guarded.getValue() == 2);
}
