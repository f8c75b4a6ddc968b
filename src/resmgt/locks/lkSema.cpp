#include "resmgt/locks/lkSema.h"

#include "zvbase/platform/interlocked.h"

namespace Zv {

using namespace ZvPlatform::Interlocked;

LkSema::LkSema(char const *name, unsigned count, LkMutexAttr const &mutexAttr,
               LkCondVarAttr const &condVarAttr)
    : _name(name),
      _count(count),
      _lock("LkSema lock", mutexAttr),
      _nonZero("LkSema nonZero", condVarAttr),
      _nbWaiters(0)
{}

/// Counts the caller as a waiter during its wait. If the wait fails, the signal that it may have
/// used up is sent to another waiter.
template <class Wait>
bool LkSema::waitCounted(Wait wait)
{
    bool wasWoken;
    ++_nbWaiters;
    try {
        wasWoken = wait();
    } catch (...) {
        --_nbWaiters;
        if (_count != 0)
            signalNoLock();
        throw;
    }
    --_nbWaiters;
    return wasWoken;
}

void LkSema::signalNoLock()
{
    if (_nbWaiters != 0)
        _nonZero.signal();
}

void LkSema::wait()
{
    LkGuard const guard(_lock);
    while (_count == 0)
        waitCounted([&] { return _nonZero.wait(guard), true; });
    storeRelease(_count, _count - 1);
}

bool LkSema::timedWait(double seconds)
{
    LkGuard const guard(_lock);
    while (_count == 0)
        if (!waitCounted([&] { return _nonZero.timedWait(guard, seconds); }))
            return false;
    storeRelease(_count, _count - 1);
    return true;
}

bool LkSema::tryWait()
{
    LkGuard const guard(_lock);
    if (_count == 0)
        return false;
    storeRelease(_count, _count - 1);
    return true;
}

void LkSema::post()
{
    LkGuard const guard(_lock);
    storeRelease(_count, _count + 1);
    if (_count != 0)
        signalNoLock();
}

bool LkSema::isCountNonZero() const
{
    return loadAcquire(_count) == 0;
}

} // namespace Zv
