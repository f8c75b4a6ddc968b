// Exceptions of the locks (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of the locks.
class ZVRESMGT_EXPORT LkEx : public ExBase
{
public:
    class ExDeadLock;

    LkEx(char const *file, int line) noexcept;
};

/// Thrown by `LkMutex::spinLock` if the calling thread holds the mutex already.
/// `LkMutexWindows "name" deadlocked in thread 0x0 (self deadlock)`, with the class and the name of
/// the lock, the number of the thread if it is known, and a comment.
ZV_EXCEPTION(ZVRESMGT_EXPORT, LkEx, ExDeadLock, LkEx, std::runtime_error, char const *lockClass,
             char const *name, unsigned threadNumber, char const *comment);

} // namespace Zv
