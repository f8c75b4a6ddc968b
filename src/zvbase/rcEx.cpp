#include "zvbase/rcEx.h"

#include "zvbase/failures.h"

namespace Zv {

RCEx::RCEx(char const *file, int line) noexcept : ExBase(file, line) {}

RCEx::ExNullPtr::ExNullPtr(char const *file, int line) : std::domain_error(""), RCEx(file, line)
{
    setReason("Dereferencing a null pointer");
}

RCEx::ExNullPtr::~ExNullPtr() = default;

void RCExUtil::throwExNullPtr()
{
    ZV_THROW(RCEx::ExNullPtr);
}

} // namespace Zv
