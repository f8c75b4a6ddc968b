#include "resmgt/locks/lkEx.h"

namespace Zv {

LkEx::LkEx(char const *file, int line) noexcept : ExBase(file, line) {}

LkEx::ExDeadLock::ExDeadLock(char const *file, int line, char const *lockClass, char const *name,
                             unsigned threadNumber, char const *comment)
    : LkEx(file, line), std::runtime_error("")
{
    formatReason("%s \"%s\" deadlocked in thread 0x%x (%s)", lockClass, name, threadNumber,
                 comment);
}

LkEx::ExDeadLock::~ExDeadLock() = default;

} // namespace Zv
