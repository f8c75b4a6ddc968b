// The bodies of the queue. Included where it is instantiated.
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
MtContainer<Container, Adapter>::MtContainer(char const *name, std::uint64_t capacity)
    : _lock(name),
      _nonEmpty("Non-Empty Pulse", LkPulse::WAKE_ONE),
      _nonFull("Non-Full Pulse", LkPulse::WAKE_ONE),
      _capacity(capacity ? capacity : std::numeric_limits<std::uint64_t>::max())
{}

template <class Container, class Adapter>
MtContainer<Container, Adapter>::~MtContainer() noexcept(false)
{
    if (!_observer.isNull())
        _observer->performDestroyed(*this);
    _observer = RCShdPtr<Observer>();
    ZV_ASSERT_IN_DESTRUCTOR(_container.empty());
}

template <class Container, class Adapter>
void MtContainer<Container, Adapter>::setObserver(RCShdPtr<Observer> const &observer)
{
    LkGuard<LkMutex const> guard(_lock);
    ZV_ASSERT(_observer.isNull());
    _observer = observer;
}

template <class Container, class Adapter>
template <class Source>
void MtContainer<Container, Adapter>::performProduce(Source &&element)
{
    Observer *observer = nullptr;
    bool wakes = false;
    {
        LkGuard<LkMutex const> guard(_lock);
        while (_container.size() >= _capacity) {
            ++_nbProducersToWake;
            _nonFull.wait(_lock);
        }
        observer = addNoLock(std::forward<Source>(element), wakes);
    }
    if (wakes)
        _nonEmpty.pulse();
    if (observer)
        observer->performProduced(*this, element);
}

template <class Container, class Adapter>
template <class Source>
bool MtContainer<Container, Adapter>::performTryProduce(Source &&element)
{
    Observer *observer = nullptr;
    bool wakes = false;
    {
        LkGuard<LkMutex const> guard(_lock);
        if (_container.size() >= _capacity)
            return false;
        observer = addNoLock(std::forward<Source>(element), wakes);
    }
    if (wakes)
        _nonEmpty.pulse();
    if (observer)
        observer->performProduced(*this, element);
    return true;
}

// A pulse is sent when the lock is free: a thread that it wakes wants the lock, and where it comes to the processor at
// once it would only go back to sleep for it.
//
// The observer stays for the container's life: once set, it may be called without the lock.
template <class Container, class Adapter>
template <class Source>
auto MtContainer<Container, Adapter>::addNoLock(Source &&element, bool &wakes) -> Observer *
{
    _container.push(std::forward<Source>(element));
    wakes = _nbConsumersToWake > 0;
    if (wakes)
        --_nbConsumersToWake;
    return _observer.isNull() ? nullptr : &*_observer;
}

template <class Container, class Adapter>
auto MtContainer<Container, Adapter>::takeNoLock(bool &wakes) -> Element
{
    Element element(std::move(_container.getNext()));
    _container.pop();
    wakes = _nbProducersToWake > 0;
    if (wakes)
        --_nbProducersToWake;
    return element;
}

template <class Container, class Adapter>
auto MtContainer<Container, Adapter>::consume() -> Element
{
    LkGuard<LkMutex const> guard(_lock);
    while (_container.empty()) {
        ++_nbConsumersToWake;
        _nonEmpty.wait(_lock);
    }
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

// Each thread in the wait either stands in the count or has a pulse on its way, never both.
template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::waitNonEmptyNoLock(double seconds)
{
    while (_container.empty()) {
        if (!(seconds > 0.0))
            return false;
        LiTimestamp const before(Sleeper::getInstance().getTime());
        ++_nbConsumersToWake;
        if (!_nonEmpty.timedWait(_lock, seconds)) {
            if (_nbConsumersToWake > 0) {
                --_nbConsumersToWake;
                return false;
            }
            // The pulse meant for this thread came too late, but came: it is taken, or it would wake another in vain.
            _nonEmpty.wait(_lock);
            seconds = 0.0;
            continue;
        }
        LiTimestamp const after(Sleeper::getInstance().getTime());
        seconds -= after.getSeconds() - before.getSeconds();
    }
    return true;
}

template <class Container, class Adapter>
bool MtContainer<Container, Adapter>::timedConsume(Element &element, double seconds)
{
    Observer *observer = nullptr;
    bool wakes = false;
    {
        LkGuard<LkMutex const> guard(_lock);
        if (!waitNonEmptyNoLock(seconds))
            return false;
        element = takeNoLock(wakes);
        observer = _observer.isNull() ? nullptr : &*_observer;
    }
    if (wakes)
        _nonFull.pulse();
    if (observer)
        observer->performConsumed(*this, element);
    return true;
}

template <class Container, class Adapter>
std::uint64_t MtContainer<Container, Adapter>::getSize() const
{
    LkGuard<LkMutex const> guard(_lock);
    return _container.size();
}

} // namespace Zv
