#include "resmgt/locks/lkRecLock.h"

#include "platform/services.h"
#include "resmgt/locks/lkThreadId.h"
#include "zvbase/platform/shared.h"
#include "zvbase/traceEvents.h"

#include <ostream>

namespace Zv {

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
    _count.store(_count.load(ZvPlatform::Order::RELAXED) + 1, ZvPlatform::Order::RELAXED);
    _holder.store(ZvPlatform::ThreadNumber{::GetCurrentThreadId()}, ZvPlatform::Order::RELAXED);
    return true;
}

void LkRecLockWindows::unlock() const
{
    _count.store(_count.load(ZvPlatform::Order::RELAXED) - 1, ZvPlatform::Order::RELAXED);
    _holder.store(ZvPlatform::ThreadNumber{0}, ZvPlatform::Order::RELAXED);
    ::LeaveCriticalSection(&_section);
}

bool LkRecLockWindows::isLocked() const
{
    if (!::TryEnterCriticalSection(&_section))
        return true;
    bool const isHeld = _count.load(ZvPlatform::Order::RELAXED) > 0;
    ::LeaveCriticalSection(&_section);
    return isHeld;
}

bool LkRecLockWindows::isLockedByThread() const
{
    if (!::TryEnterCriticalSection(&_section))
        return false;
    bool const isHeld = _count.load(ZvPlatform::Order::RELAXED) > 0;
    ::LeaveCriticalSection(&_section);
    return isHeld;
}

void LkRecLockWindows::dump(std::ostream &stream) const
{
    stream << "name " << _name << " holder " << LkThreadId(_holder.load(ZvPlatform::Order::RELAXED))
           << " count " << _count.load(ZvPlatform::Order::RELAXED);
}

} // namespace Zv
