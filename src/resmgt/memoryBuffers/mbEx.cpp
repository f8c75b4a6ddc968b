#include "resmgt/memoryBuffers/mbEx.h"

#include "zvbase/exBody.private.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(MbEx)
ZV_EXCEPTION_BODY(MbEx, ExIllegalTransition, std::logic_error,
                  (char const *buffer, char const *event, char const *state),
                  formatReason("Illegal transition: buffer %s received event %s from state %s.",
                               buffer, event, state))
ZV_EXCEPTION_BODY(MbEx, ExInvalidArgument, std::invalid_argument, (char const *description),
                  formatReason("Invalid argument: %s.", description))
ZV_EXCEPTION_BODY(MbEx, ExRangeError, std::range_error, (char const *description),
                  formatReason("Out of range: %s.", description))
ZV_EXCEPTION_BODY(MbEx, ExNotEnoughMemory, std::range_error, (char const *description),
                  formatReason("Not enough memory: %s.", description))

} // namespace Zv
