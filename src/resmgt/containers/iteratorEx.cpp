#include "resmgt/containers/iteratorEx.h"

#include "zvbase/failures.h"

namespace Zv {

IteratorEx::IteratorEx(char const *file, int line) noexcept : ExBase(file, line) {}

IteratorEx::ExOutOfRange::ExOutOfRange(char const *file, int line)
    : std::out_of_range(""), IteratorEx(file, line)
{
    setReason("\tReached the container boundary");
}

IteratorEx::ExOutOfRange::~ExOutOfRange() = default;

void IteratorExUtil::throwExOutOfRange()
{
    ZV_THROW(IteratorEx::ExOutOfRange);
}

} // namespace Zv
