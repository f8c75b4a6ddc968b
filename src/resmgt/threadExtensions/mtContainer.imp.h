// Bodies of the queue between threads, for the sources that instantiate it (applications).
#pragma once

#include "resmgt/literals/liTimestamp.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/threadExtensions/mtContainer.h"
#include "zvbase/failures.h"
#include "zvbase/sleeper.h"

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
      _nonFull("Non-Full Pulse"),
      _capacity(capacity ? capacity : (std::numeric_limits<std::uint64_t>::max)())
{}

template <class Container, class Adapter>
MtContainer<Container, Adapter>::~MtContainer() noexcept(false)
{
    Emptied const atTheEnd{_container};
    if (!_observer.isNull())
        _observer->performDestroyed(*this);
    _observer = RCShdPtr<Observer>();
    ZV_ASSERT_IN_DESTRUCTOR(_container.empty());
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::setObserver(RCShdPtr<Observer> const &observer)
{
    LkGuard guard(_lock);
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
        while (whenFull != WhenFull::ADD && _container.size() >= _capacity) {
            if (whenFull == WhenFull::REFUSE)
                return false;
            waitNoLock(_nonFull);
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
auto MtContainer<Container, Adapter>::takeNoLock(bool &wakes) -> Element
{
    Element element(moveNextNoLock());
    _container.pop();
    wakes = _container.size() < _capacity && _nonFull.call();
    return element;
}

template <class Container, class Adapter>
auto MtContainer<Container, Adapter>::moveNextNoLock() -> Element
{
    try {
        return Element(std::move(_container.getNext()));
    } catch (...) {
        passOnNoLock();
        throw;
    }
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
    if (!_container.empty() && _nonEmpty.call())
        _nonEmpty.pulse();
    if (_container.size() < _capacity && _nonFull.call())
        _nonFull.pulse();
}

template <class Container, class Adapter>
auto MtContainer<Container, Adapter>::consume() -> Element
{
    LkGuard guard(_lock);
    while (_container.empty())
        waitNoLock(_nonEmpty);
    bool wakes = false;
    Element element(takeNoLock(wakes));
    Observer * const observer = _observer.isNull() ? nullptr : &*_observer;
    guard.unlock();
    if (wakes)
        _nonFull.pulse();
    if (observer)
        observer->performConsumed(*this, element);
    return element;
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::waitNonEmptyNoLock(double seconds)
{
    while (_container.empty()) {
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
    }
    return true;
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::timedConsume(Element &element, double seconds)
{
    LkGuard guard(_lock);
    if (!waitNonEmptyNoLock(seconds))
        return false;
    bool wakes = false;
    Element taken(takeNoLock(wakes));
    Observer * const observer = _observer.isNull() ? nullptr : &*_observer;
    guard.unlock();
    if (wakes)
        _nonFull.pulse();
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
    return _container.size();
}

} // namespace Zv
