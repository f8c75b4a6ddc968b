#include "resmgt/locks/lkLock.h"

#include "platform/services.h"
#include "zvbase/traceEvents.h"

#include <ostream>

namespace Zv {

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
    _isLocked.store(true, ZvPlatform::Order::RELAXED);
    return true;
}

bool LkLockWindows::lockSlowly() const
{
    {
        TraceEvents::LockWait const wait(_name);
        ::EnterCriticalSection(&_section);
    }
    _isLocked.store(true, ZvPlatform::Order::RELAXED);
    return true;
}

bool LkLockWindows::try_lock() const
{
    if (!::TryEnterCriticalSection(&_section))
        return false;
    _isLocked.store(true, ZvPlatform::Order::RELAXED);
    return true;
}

void LkLockWindows::unlock() const
{
    _isLocked.store(false, ZvPlatform::Order::RELAXED);
    ::LeaveCriticalSection(&_section);
}

void LkLockWindows::dump(std::ostream &stream) const
{
    stream << "Critical section \"" << _name;
}

} // namespace Zv
