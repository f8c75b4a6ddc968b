#include "platform/linux/fork.h"

#include "platform/linux/killing.h"
#include "platform/linux/scheduling.h"

namespace ZvPlatform::Linux {

namespace {

/// In the order in which they are taken, after `namesLock` and the locks of the address waits.
constinit Lock * const LOCKS[] = {&slotsLock,      &deadThreadsLock, &schedulingLock, &signalLock,
                                  &objects.lock(), &threads.lock(),  &regionsLock};

void lockAll()
{
    namesLock.lock();
    prepareSharedForFork();
    lockAddresses();
    for (Lock * const lock : LOCKS)
        lock->lock();
}

void unlockAll()
{
    for (Lock * const lock : LOCKS)
        lock->unlock();
    unlockAddresses();
}

/// Takes all locks, so that no table of the layer is half changed while the process is copied. The
/// thread cannot be killed until the fork is over.
void prepare()
{
    currentThread();
    ++local.depth;
    lockAll();
}

void goOnInParent()
{
    unlockAll();
    leaveSharedToChild();
    namesLock.unlock();
    --local.depth;
    Service service; // ends the thread if it was killed meanwhile
}

/// Brings an object into order that other threads may have been using.
void leaveBehind(Object &object, Thread const &me)
{
    Word word = object.word.load(Order::RELAXED);
    if ((word & TYPE) == DEAD)
        return;
    word &= ~Word{QUEUE | QUEUE_SLEEP | WAITERS | WAKING | HAND_OVER};
    object.first = nullptr;
    object.pins = 0;
    if ((word & TYPE) == THREAD) {
        if (object.thread.thread == &me)
            object.pins = 1;
        else
            word |= SIGNALLED;
    } else if ((word & TYPE) == MUTEX && valueOf(word) != 0 && valueOf(word) != me.number) {
        word = withValue(word | ABANDONED, 0);
        object.again = 0;
    }
    object.word.store(word, Order::RELAXED);
}

void goOnInChild()
{
    Thread &me = *local.thread;
    for (std::size_t i = 0; i < objects.size(); ++i)
        leaveBehind(objects[i], me);
    // The kernel's numbers are those of the parent's threads.
    for (std::size_t i = 0; i < threads.size(); ++i)
        threads[i].kernelId.store(0, Order::RELAXED);
    me.kernelId.store(Kernel::threadNumber(), Order::RELAXED);
    me.dying.store(0, Order::RELAXED); // the kill was meant for the parent's thread
    forgetAddressWaits();
    takeSharedFromParent();
    unlockAll();
    releaseDeadThreads();
    namesLock.unlock();
    --local.depth;
}

} // namespace

void prepareForForks()
{
    Kernel::atFork(prepare, goOnInParent, goOnInChild);
}

} // namespace ZvPlatform::Linux
