#include "resmgt/literals/liUuidEx.h"

#include "zvbase/exBody.private.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(LiUuidEx)
ZV_EXCEPTION_BODY(LiUuidEx, ExInvalidUuidString, std::invalid_argument, (LiString const &text),
                  formatReason("\"%s\" is not a valid uuid representation.", text.getChars()))
ZV_EXCEPTION_BODY(LiUuidEx, ExInternalError, std::runtime_error, (char const *function),
                  formatReason("Call to function %s() failed.", function))

} // namespace Zv
