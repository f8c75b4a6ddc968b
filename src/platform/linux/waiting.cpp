#include "platform/linux/object.h"

#include <algorithm>

namespace ZvPlatform::Linux {

namespace {

/// If a waiter has waited this long for a mutex, and lost it to a thread that came later, it gets
/// the mutex next.
constexpr Instant PATIENCE = MILLISECOND;

/// Decides in which turns of a spin a thread tries to take a mutex. The turns become rarer, so that
/// the owner can release and take the mutex several times before its memory moves to the other
/// processor. That costs more than what a mutex usually protects.
class Turns
{
public:
    bool isNext()
    {
        if (_left--)
            return false;
        _left = _pause;
        _pause = std::min(2 * _pause + 1, LONGEST_PAUSE);
        return true;
    }

private:
    static constexpr int LONGEST_PAUSE = 31;

    int _left = 0;
    int _pause = 0;
};

/// Tries to take the object without its queue. Returns whether that has succeeded, with the result
/// of the wait in `result`.
bool tryNow(Object *object, DWORD &result)
{
    Word word = object->word.load(Order::RELAXED);
    if ((word & TYPE) == MUTEX) {
        if (valueOf(word) || word & (QUEUE | CLOSED | HAND_OVER))
            return false;
        Word const mine = withValue(word & ~Word{ABANDONED}, local.number);
        if (!object->word.compare_exchange_strong(word, mine, Order::ACQUIRE))
            return false;
        ++local.held;
        result = word & ABANDONED ? WAIT_ABANDONED : WAIT_OBJECT_0;
        return true;
    }
    if ((word & FLAGS) != SEMAPHORE || valueOf(word) == 0)
        return false;
    result = WAIT_OBJECT_0;
    return object->word.compare_exchange_strong(word, word - ONE, Order::ACQUIRE);
}

/// Tries to take the object at its queue. Returns whether that has succeeded, with the result of
/// the wait in `result`.
bool tryQueued(Queue &queue, DWORD &result)
{
    result = WAIT_OBJECT_0;
    if ((queue.word & TYPE) != MUTEX)
        return queue.consume();
    Object &object = queue.object();
    if (valueOf(queue.word) == local.number) {
        ++object.again;
        return true;
    }
    if (valueOf(queue.word))
        return false;
    if (queue.word & ABANDONED)
        result = WAIT_ABANDONED;
    queue.word = withValue(queue.word & ~Word{ABANDONED}, local.number);
    ++local.held;
    return true;
}

DWORD badHandle()
{
    fail(ERROR_INVALID_HANDLE);
    return WAIT_FAILED;
}

/// The wait of a thread that is in the queue.
class Sleep
{
public:
    Sleep(Service &service, Object *object, Word type, Instant deadline, Spin &spin)
        : _service(service),
          _object(object),
          _type(type),
          _deadline(deadline),
          _spin(spin),
          _me(service.thread().waiter)
    {}

    DWORD run(Instant due)
    {
        // A pulse reaches only the threads in the queue. A thread that waits for an event therefore
        // spins after it has entered the queue.
        auto const isCalled = [&] { return _me.park.load(Order::RELAXED) != 0; };
        if (_type != EVENT || !_spin.run(isCalled))
            sleep(due);
        for (DWORD result = 0;; sleep(due)) {
            if (_me.park.load(Order::RELAXED) & Waiter::GRANTED)
                return granted();
            Progress const progress = look(due, result);
            if (progress == GRANTED)
                return granted();
            if (progress == DONE)
                return result;
        }
    }

private:
    enum Progress
    {
        AGAIN,
        GRANTED,
        DONE
    };

    void sleep(Instant due)
    {
        park(_me, std::min(_deadline, due));
        _spin.learn();
    }

    Progress look(Instant &due, DWORD &result)
    {
        WakeList wakes;
        Queue queue(_object, _type, Queue::CLOSED_TOO);
        if (_me.granted)
            return GRANTED;
        _me.park.store(0, Order::RELAXED);
        if (_me.woken) {
            _me.woken = false;
            queue.word &= ~Word{WAKING};
        }
        if (_type == TIMER)
            due = updateTimer(queue);
        if (_type == TIMER || _type == MUTEX) {
            // Waiters of a timer are served in order. A mutex goes to the first thread that takes
            // it.
            if (_type == TIMER)
                queue.serve(wakes);
            if (_me.granted)
                return GRANTED;
            if (!_service.killed() && tryQueued(queue, result)) {
                leave(queue);
                return DONE;
            }
        }
        if (_service.killed() || (_deadline != NEVER && now() >= _deadline)) {
            leave(queue);
            if (_type == MUTEX && valueOf(queue.word) == 0)
                passOn(queue, wakes);
            result = WAIT_TIMEOUT;
            return DONE;
        }
        if (!_me.queued) {
            queue.prepend(_me);
            if (now() - _spin.getStart() > PATIENCE)
                queue.word |= HAND_OVER;
        }
        return AGAIN;
    }

    DWORD granted()
    {
        awaitGrant(_me);
        if (_type == MUTEX)
            ++local.held;
        return _me.result;
    }

    void leave(Queue &queue)
    {
        if (_me.queued)
            queue.remove(_me);
        --_object->pins;
    }

    Service &_service;
    Object *_object;
    Word _type;
    Instant _deadline;
    Spin &_spin;
    Waiter &_me;
};

} // namespace

DWORD waitSlowly(Service &service, Object *object, DWORD milliseconds, Queue::Access access)
{
    DWORD result;
    Word const word = object->word.load(Order::RELAXED);
    Word const type = word & TYPE;
    if (type == SHARED_SEMAPHORE)
        return waitShared(service, object, milliseconds);
    Instant const start = milliseconds ? now() : 0;
    Spin spin(object->spin, service.thread().waiter.call, start);
    if ((type == MUTEX && valueOf(word) != service.thread().number) || type == SEMAPHORE) {
        if (tryNow(object, result))
            return result;
        Turns turns;
        auto const tryInTurn = [&] {
            return (type != MUTEX || turns.isNext()) && tryNow(object, result);
        };
        if (milliseconds && spin.run(tryInTurn))
            return result;
    }
    Instant const deadline = deadlineAfter(milliseconds, start);
    Instant due = NEVER;
    {
        WakeList wakes;
        Queue queue(object, ANY_TYPE, access);
        if (!queue || (queue.word & TYPE) != type)
            return badHandle();
        if (type == TIMER) {
            due = updateTimer(queue);
            queue.serve(wakes);
        }
        if (tryQueued(queue, result))
            return result;
        if (milliseconds == 0)
            return WAIT_TIMEOUT;
        Waiter &me = service.thread().waiter;
        me.park.store(0, Order::RELAXED);
        me.woken = me.granted = false;
        queue.append(me);
        ++object->pins;
    }
    return Sleep(service, object, type, deadline, spin).run(due);
}

namespace {

/// Waits for a pseudo-handle, or carries out a wait that the fast path could not settle.
DWORD waitOther(HANDLE handle, DWORD milliseconds)
{
    Object *object = objectOf(handle);
    if (object) {
        Service service;
        return waitSlowly(service, object, milliseconds);
    }
    if (handle != CURRENT_THREAD && handle != CURRENT_PROCESS)
        return badHandle();
    // A thread waits for its own end, or for that of its process.
    ZvPlatform::Sleep(milliseconds);
    return WAIT_TIMEOUT;
}

} // namespace

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds)
{
    Object *object = objectOf(handle);
    if (!object) [[unlikely]]
        return waitOther(handle, milliseconds);
    Word word = object->word.load(Order::ACQUIRE);
    switch (word & FLAGS) {
    case MUTEX:
        if (ThreadNumber const me = local.number) [[likely]] {
            if (valueOf(word) == 0) {
                if (takeFree(*object, me)) [[likely]]
                    return WAIT_OBJECT_0;
            } else if (valueOf(word) == me) {
                ++object->again;
                return WAIT_OBJECT_0;
            }
        }
        break;
    case SEMAPHORE:
        while (valueOf(word) && (word & FLAGS) == SEMAPHORE)
            if (object->word.compare_exchange_weak(word, word - ONE, Order::ACQUIRE,
                                                   Order::RELAXED))
                return WAIT_OBJECT_0;
        break;
    case EVENT | SIGNALLED:
        if (object->word.compare_exchange_strong(word, EVENT, Order::ACQUIRE, Order::RELAXED))
            return WAIT_OBJECT_0;
        break;
    case EVENT | SIGNALLED | MANUAL:
    case THREAD | SIGNALLED | MANUAL:
        return WAIT_OBJECT_0;
    default:
        break;
    }
    return waitOther(handle, milliseconds);
}

DWORD WaitForSingleObjectEx(HANDLE handle, DWORD milliseconds, BOOL)
{
    return WaitForSingleObject(handle, milliseconds);
}

} // namespace ZvPlatform
