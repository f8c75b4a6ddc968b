#include "resmgt/containers/iteratorEx.h"

#include "zvbase/exBody.private.h"
#include "zvbase/failures.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(IteratorEx)
ZV_EXCEPTION_BODY(IteratorEx, ExOutOfRange, std::out_of_range, (),
                  setReason("\tReached the container boundary"))

void IteratorExUtil::throwExOutOfRange()
{
    ZV_THROW(IteratorEx::ExOutOfRange);
}

} // namespace Zv
