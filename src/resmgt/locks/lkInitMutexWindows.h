// The process-wide lock under which a singleton is made.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/types.h"

#include <typeinfo>

/// The compiler's own name of a type.
#define ZV_TYPE_NAME(Type) typeid(Type).name()

namespace Zv {

namespace Detail {

/// Makes and takes the kernel mutex that bears the type's name. Throws `ExSysErrorWindows`.
ZVRESMGT_EXPORT ZvPlatform::Handle acquireInitMutex(char const *typeName);
/// Releases and closes it. Throws `ExSysErrorWindows`.
ZVRESMGT_EXPORT void releaseInitMutex(ZvPlatform::Handle mutex);
/// The same for a passing exception's sake: failures stay silent.
ZVRESMGT_EXPORT void abandonInitMutex(ZvPlatform::Handle mutex) noexcept;

} // namespace Detail

/// Holds the creation lock of `Id` while a singleton is made. The lock has a name, so that all copies of this code in
/// the process share it, whichever module they are linked into. A thread that holds it may take it again.
template <class Id>
class [[nodiscard]] LkInitMutexWindows
{
public:
    /// Blocks until the lock is held.
    LkInitMutexWindows() : _mutex(Detail::acquireInitMutex(ZV_TYPE_NAME(Id))) {}
    LkInitMutexWindows(LkInitMutexWindows const &) = delete;
    LkInitMutexWindows &operator=(LkInitMutexWindows const &) = delete;
    ~LkInitMutexWindows()
    {
        if (_mutex)
            Detail::abandonInitMutex(_mutex);
    }

    /// Lets go for good. Throws where the system refuses.
    void release()
    {
        ZvPlatform::Handle const mutex = _mutex;
        _mutex = nullptr;
        Detail::releaseInitMutex(mutex);
    }

private:
    ZvPlatform::Handle _mutex;
};

} // namespace Zv
