#include "resmgt/locks/lkSema.h"

#include "platform/interlocked.h"

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

void LkSema::wait()
{
    LkGuard<LkMutex const> guard(_lock);
    while (_count == 0) {
        ++_nbWaiters;
        _nonZero.wait(guard);
        --_nbWaiters;
    }
    storeRelease(_count, _count - 1);
}

bool LkSema::timedWait(double seconds)
{
    LkGuard<LkMutex const> guard(_lock);
    while (_count == 0) {
        ++_nbWaiters;
        bool const wasWoken = _nonZero.timedWait(guard, seconds);
        --_nbWaiters;
        if (!wasWoken)
            return false;
    }
    storeRelease(_count, _count - 1);
    return true;
}

bool LkSema::tryWait()
{
    LkGuard<LkMutex const> guard(_lock);
    if (_count == 0)
        return false;
    storeRelease(_count, _count - 1);
    return true;
}

void LkSema::post()
{
    LkGuard<LkMutex const> guard(_lock);
    storeRelease(_count, _count + 1);
    if (_count != 0 && _nbWaiters != 0)
        _nonZero.signal();
}

bool LkSema::isCountNonZero() const
{
    return loadAcquire(_count) == 0;
}

} // namespace Zv
