#include "resmgt/locks/lkRecLock.h"

#include "platform/services.h"
#include "resmgt/locks/lkThreadId.h"
#include "zvbase/platform/interlocked.h"
#include "zvbase/traceEvents.h"

#include <ostream>

namespace Zv {

using namespace ZvPlatform::Interlocked;

LkRecLockWindows::LkRecLockWindows(char const *name) : _name(name), _holder(0), _count(0)
{
    ::InitializeCriticalSection(&_section);
}

LkRecLockWindows::~LkRecLockWindows()
{
    ::DeleteCriticalSection(&_section);
}

bool LkRecLockWindows::lock() const
{
    if (!ZvPlatform::enterAtOnce(&_section)) [[unlikely]]
        return lockSlowly();
    return counted();
}

bool LkRecLockWindows::lockSlowly() const
{
    TraceEvents::LockWait const wait(_name);
    ::EnterCriticalSection(&_section);
    return counted();
}

bool LkRecLockWindows::try_lock() const
{
    return ::TryEnterCriticalSection(&_section) && counted();
}

bool LkRecLockWindows::counted() const
{
    storeRelease(_count, _count + 1);
    storeRelease(_holder, ZvPlatform::ThreadNumber{::GetCurrentThreadId()});
    return true;
}

void LkRecLockWindows::unlock() const
{
    storeRelease(_count, _count - 1);
    storeRelease(_holder, ZvPlatform::ThreadNumber{0});
    ::LeaveCriticalSection(&_section);
}

bool LkRecLockWindows::isLocked() const
{
    if (!::TryEnterCriticalSection(&_section))
        return true;
    bool const isHeld = _count > 0;
    ::LeaveCriticalSection(&_section);
    return isHeld;
}

bool LkRecLockWindows::isLockedByThread() const
{
    if (!::TryEnterCriticalSection(&_section))
        return false;
    bool const isHeld = _count > 0;
    ::LeaveCriticalSection(&_section);
    return isHeld;
}

void LkRecLockWindows::dump(std::ostream &stream) const
{
    stream << "name " << _name << " holder " << LkThreadId(loadAcquire(_holder)) << " count "
           << loadAcquire(_count);
}

} // namespace Zv
