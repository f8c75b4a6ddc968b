#include "zvbase/rcEx.h"

#include "zvbase/exBody.private.h"
#include "zvbase/failures.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(RCEx)
ZV_EXCEPTION_BODY(RCEx, ExNullPtr, std::domain_error, (), setReason("Dereferencing a null pointer"))

void RCExUtil::throwExNullPtr()
{
    ZV_THROW(RCEx::ExNullPtr);
}

} // namespace Zv
