#include "resmgt/locks/lkEx.h"

#include "zvbase/exBody.private.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(LkEx)
ZV_EXCEPTION_BODY_FAMILY_FIRST(LkEx, ExDeadLock, std::runtime_error,
                               (char const *lockClass, char const *name, unsigned threadNumber,
                                char const *comment),
                               formatReason("%s \"%s\" deadlocked in thread 0x%x (%s)", lockClass,
                                            name, threadNumber, comment))

} // namespace Zv
