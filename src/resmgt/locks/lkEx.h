// Failures of the locks.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures of the locks.
class ZVRESMGT_EXPORT LkEx : public ExBase
{
public:
    class ExDeadLock;

    LkEx(char const *file, int line) noexcept;
};

/// A thread would wait for itself: `LkMutexWindows "name" deadlocked in thread 0x0 (self deadlock)`.
class ZVRESMGT_EXPORT LkEx::ExDeadLock : public LkEx, public std::runtime_error
{
public:
    /// The class and the name of the lock, the number of the thread where it is known, and a comment.
    ExDeadLock(char const *file, int line, char const *lockClass, char const *name,
               unsigned threadNumber, char const *comment);
    ~ExDeadLock() override;
    ZV_EXCEPTION_MEMBERS(ExDeadLock)
};

} // namespace Zv
