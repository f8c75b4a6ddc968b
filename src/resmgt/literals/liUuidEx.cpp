#include "resmgt/literals/liUuidEx.h"

namespace Zv {

LiUuidEx::LiUuidEx(char const *file, int line) noexcept : ExBase(file, line) {}

LiUuidEx::ExInvalidUuidString::ExInvalidUuidString(char const *file, int line, LiString const &text)
    : std::invalid_argument(""), LiUuidEx(file, line)
{
    formatReason("\"%s\" is not a valid uuid representation.", text.getChars());
}

LiUuidEx::ExInvalidUuidString::~ExInvalidUuidString() = default;

LiUuidEx::ExInternalError::ExInternalError(char const *file, int line, char const *function)
    : std::runtime_error(""), LiUuidEx(file, line)
{
    formatReason("Call to function %s() failed.", function);
}

LiUuidEx::ExInternalError::~ExInternalError() = default;

} // namespace Zv
