#include "resmgt/literals/liStringEx.h"

#include "zvbase/exBody.private.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(LiStringEx)
ZV_EXCEPTION_BODY(LiStringEx, ExOutOfBounds, std::range_error, (int index, int low, int high),
                  formatReason("Index (%d) is not in the proper range (%d-%d).", index, low, high))

} // namespace Zv
