// Bodies of the queue between threads, for the sources that instantiate it (applications).
#pragma once

#include "resmgt/literals/liTimestamp.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/threadExtensions/mtContainer.h"
#include "zvbase/failures.h"
#include "zvbase/platform/pause.h"
#include "zvbase/sleeper.h"

#include <exception>
#include <limits>
#include <utility>

namespace Zv {

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::Waiters::wait(LkMutex const &lock)
{
    ++_nbWaiting;
    try {
        _pulse.wait(lock);
    } catch (...) {
        leave();
        throw;
    }
    leave();
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::Waiters::timedWait(LkMutex const &lock, double seconds)
{
    ++_nbWaiting;
    try {
        if (!_pulse.timedWait(lock, seconds)) {
            if (_nbCalled < _nbWaiting) {
                --_nbWaiting;
                return false;
            }
            // The thread was called after its time was over. It must use up the pulse, which would
            // wake another in vain.
            _pulse.wait(lock);
        }
    } catch (...) {
        leave();
        throw;
    }
    leave();
    return true;
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::Waiters::call()
{
    if (_nbCalled == _nbWaiting)
        return false;
    ++_nbCalled;
    return true;
}

/// Removes a thread that was woken from the counts. A thread whose wait failed counts as woken,
/// because it may have used up a pulse. Another thread may then be woken in vain, but none is
/// forgotten.
template <class Container, class Adapter>
void MtContainer<Container, Adapter>::Waiters::leave()
{
    --_nbWaiting;
    if (_nbCalled > 0)
        --_nbCalled;
}

template <class Container, class Adapter>
struct MtContainer<Container, Adapter>::Emptied
{
    Adapter &container;

    ~Emptied()
    {
        for (auto rest = container.size(); rest > 0; --rest)
            try {
                [[maybe_unused]] Element const element(std::move(container.getNext()));
                container.pop();
            } catch (...) { // the failed assertion reports that the container was not empty
            }
    }
};

template <class Container, class Adapter>
MtContainer<Container, Adapter>::MtContainer(char const *name, std::uint64_t capacity)
    : _lock(name),
      _nonEmpty("Non-Empty Pulse"),
      _capacity(capacity ? capacity : (std::numeric_limits<std::uint64_t>::max)()),
      _nonFull("Non-Full Pulse"),
      _frontLock(name)
{}

template <class Container, class Adapter>
MtContainer<Container, Adapter>::~MtContainer() noexcept(false)
{
    Emptied const atTheEnd{_container};
    Emptied const frontAtTheEnd{_front};
    if (!_observer.isNull())
        _observer->performDestroyed(*this);
    _observer = RCShdPtr<Observer>();
    if constexpr (IS_QUEUE)
        if (_container.empty())
            _container.swap(_front); // the text of the assertion names the container
    ZV_ASSERT_IN_DESTRUCTOR(_container.empty());
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::setObserver(RCShdPtr<Observer> const &observer)
{
    LkGuard const guard(_lock);
    LkGuard const front(_frontLock);
    ZV_ASSERT(_observer.isNull());
    _observer = observer;
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::produce(Element const &element)
{
    add(element, WhenFull::WAIT);
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::produce(Element &&element)
{
    add(std::move(element), WhenFull::WAIT);
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::tryProduce(Element const &element)
{
    return add(element, WhenFull::REFUSE);
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::tryProduce(Element &&element)
{
    return add(std::move(element), WhenFull::REFUSE);
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::admit(Element const &element)
{
    add(element, WhenFull::ADD);
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::admit(Element &&element)
{
    add(std::move(element), WhenFull::ADD);
}

template <class Container, class Adapter>
template <class Source>
bool MtContainer<Container, Adapter>::add(Source &&element, WhenFull whenFull)
{
    Observer *observer = nullptr;
    bool wakes = false;
    {
        LkGuard guard(_lock);
        bool hasPaused = false;
        while (whenFull != WhenFull::ADD && isFullNoLock()) {
            if (whenFull == WhenFull::REFUSE)
                return false;
            if (std::exchange(hasPaused, true)) {
                waitForRoomNoLock();
            } else {
                // A thread that wakes for each element costs more. Soon there may be room for many.
                guard.unlock();
                ZvPlatform::pauseShortly();
                guard.relock();
            }
        }
        observer = addNoLock(std::forward<Source>(element), wakes);
    }
    if (wakes)
        _nonEmpty.pulse();
    if (observer)
        observer->performProduced(*this, element);
    return true;
}

// A pulse is sent without the lock. The thread that it wakes acquires the lock, and would have to
// sleep again if it runs at once.
//
// The observer stays for the life of the container, so it may be called without the lock.
template <class Container, class Adapter>
template <class Source>
auto MtContainer<Container, Adapter>::addNoLock(Source &&element, bool &wakes) -> Observer *
{
    try {
        _container.push(std::forward<Source>(element));
    } catch (...) {
        passOnNoLock();
        throw;
    }
    wakes = _nonEmpty.call();
    return _observer.isNull() ? nullptr : &*_observer;
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::isFullNoLock()
{
    if (_container.size() + _mostInFront < _capacity) [[likely]]
        return false;
    _mostInFront = _nbInFront.load(ZvPlatform::Order::SEQ_CST);
    return _container.size() + _mostInFront >= _capacity;
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::waitForRoomNoLock()
{
    // A thread that consumes counts first and then looks whether room is wanted. So either it sees
    // the wish, or this thread sees the room.
    _isRoomWanted.store(true, ZvPlatform::Order::SEQ_CST);
    if (isFullNoLock())
        waitNoLock(_nonFull);
}

template <class Container, class Adapter>
std::uint64_t MtContainer<Container, Adapter>::countNoLock() const
{
    return _container.size() + _nbInFront.load(ZvPlatform::Order::SEQ_CST);
}

/// Calls `wait` until there is an element to take and returns true, or until it returns false.
/// `guard` must hold the lock of the front, and holds it again if this returns true. `wait` is
/// called under `_lock` only. Throws the failure that was kept, if there is one.
template <class Container, class Adapter>
template <class Wait>
bool MtContainer<Container, Adapter>::findNext(LkGuard<LkMutex const> &guard, Wait wait)
{
    if (_failure) [[unlikely]]
        std::rethrow_exception(std::exchange(_failure, nullptr));
    if constexpr (IS_QUEUE) {
        if (!_front.empty())
            return true;
        guard.unlock();
        LkGuard const lock(_lock);
        for (;;) {
            guard.relock();
            if (_front.empty())
                takeOverNoLock();
            if (!_front.empty())
                return true;
            guard.unlock();
            if (!wait())
                return false;
        }
    } else {
        while (_container.empty())
            if (!wait())
                return false;
        return true;
    }
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::takeOverNoLock()
{
    _front.swap(_container);
    _mostInFront = _front.size();
    _nbInFront.store(_mostInFront, ZvPlatform::Order::SEQ_CST);
}

template <class Container, class Adapter>
auto MtContainer<Container, Adapter>::takeNext(LkGuard<LkMutex const> &guard) -> Element
{
    auto const move = [&] {
        try {
            return Element(std::move(getFront().getNext()));
        } catch (...) {
            guard.unlock();
            LkGuard const lock(_lock);
            passOnNoLock();
            throw;
        }
    };
    Element element(move());
    getFront().pop();
    if constexpr (IS_QUEUE)
        _nbInFront.store(_front.size(), ZvPlatform::Order::SEQ_CST);
    return element;
}

/// Called without a lock, after an element was taken, which would be lost if this threw. A failure
/// is kept for the next thread that consumes.
template <class Container, class Adapter>
void MtContainer<Container, Adapter>::wakeForRoom() noexcept
{
    if (!_isRoomWanted.load(ZvPlatform::Order::SEQ_CST))
        return;
    try {
        callForRoom();
    } catch (...) {
        keepFailure(std::current_exception());
    }
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::keepFailure(std::exception_ptr failure) noexcept
{
    try {
        {
            LkGuard const front(getFrontLock());
            _failure = failure;
        }
        callForRoom(); // again, because an abandoned lock is free after it was refused
    } catch (...) {    // the kept failure tells of this one, too
    }
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::callForRoom()
{
    bool wakes = false;
    {
        LkGuard const guard(_lock);
        if (countNoLock() >= _capacity)
            return;
        wakes = _nonFull.call();
        if (!wakes)
            _isRoomWanted.store(false, ZvPlatform::Order::RELAXED);
    }
    if (wakes)
        _nonFull.pulse();
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::waitNoLock(Waiters &waiters)
{
    try {
        waiters.wait(_lock);
    } catch (...) {
        passOnNoLock();
        throw;
    }
}

/// Called by a thread that fails. Its element or its room is still there, so another thread must be
/// woken for it.
template <class Container, class Adapter>
void MtContainer<Container, Adapter>::passOnNoLock()
{
    if (countNoLock() != 0 && _nonEmpty.call())
        _nonEmpty.pulse();
    if (countNoLock() < _capacity && _nonFull.call())
        _nonFull.pulse();
}

template <class Container, class Adapter>
auto MtContainer<Container, Adapter>::consume() -> Element
{
    LkGuard guard(getFrontLock());
    findNext(guard, [this]() ZV_NO_THREAD_SAFETY_ANALYSIS {
        waitNoLock(_nonEmpty);
        return true;
    });
    Element element(takeNext(guard));
    Observer * const observer = _observer.isNull() ? nullptr : &*_observer;
    guard.unlock();
    wakeForRoom();
    if (observer)
        observer->performConsumed(*this, element);
    return element;
}

/// Waits for an element, and reduces `seconds` by the time. Returns false if the time is over.
template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::timedWaitNoLock(double &seconds)
{
    if (!(seconds > 0.0))
        return false;
    LiTimestamp const before(Sleeper::getInstance().getTime());
    try {
        if (!_nonEmpty.timedWait(_lock, seconds))
            return false;
    } catch (...) {
        passOnNoLock();
        throw;
    }
    LiTimestamp const after(Sleeper::getInstance().getTime());
    seconds -= after.getSeconds() - before.getSeconds();
    return true;
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::timedConsume(Element &element, double seconds)
{
    LkGuard guard(getFrontLock());
    if (!findNext(guard, [&]() ZV_NO_THREAD_SAFETY_ANALYSIS { return timedWaitNoLock(seconds); }))
        return false;
    Element taken(takeNext(guard));
    Observer * const observer = _observer.isNull() ? nullptr : &*_observer;
    guard.unlock();
    wakeForRoom();
    // The former value of the caller's element is destroyed last. Its destructor may throw, or call
    // the container.
    [[maybe_unused]] Element const former(std::exchange(element, std::move(taken)));
    if (observer)
        observer->performConsumed(*this, element);
    return true;
}

template <class Container, class Adapter>
std::uint64_t MtContainer<Container, Adapter>::getSize() const
{
    LkGuard guard(_lock);
    return countNoLock();
}

} // namespace Zv
