#include "resmgt/locks/lkLock.h"

#include "platform/services.h"
#include "zvbase/traceEvents.h"

#include <ostream>

namespace Zv {

using namespace ZvPlatform::Interlocked;

LkLockWindows::LkLockWindows(char const *name) : _name(name), _isLocked(false)
{
    ::InitializeCriticalSection(&_section);
}

LkLockWindows::~LkLockWindows()
{
    ::DeleteCriticalSection(&_section);
}

bool LkLockWindows::lock() const
{
    if (!ZvPlatform::enterAtOnce(&_section)) [[unlikely]]
        return lockSlowly();
    storeRelease(_isLocked, true);
    return true;
}

bool LkLockWindows::lockSlowly() const
{
    {
        TraceEvents::LockWait const wait(_name);
        ::EnterCriticalSection(&_section);
    }
    storeRelease(_isLocked, true);
    return true;
}

bool LkLockWindows::try_lock() const
{
    if (!::TryEnterCriticalSection(&_section))
        return false;
    storeRelease(_isLocked, true);
    return true;
}

void LkLockWindows::unlock() const
{
    storeRelease(_isLocked, false);
    ::LeaveCriticalSection(&_section);
}

void LkLockWindows::dump(std::ostream &stream) const
{
    stream << "Critical section \"" << _name;
}

} // namespace Zv
