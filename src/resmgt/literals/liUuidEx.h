// Exceptions of universally unique identifiers (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of universally unique identifiers.
class ZVRESMGT_EXPORT LiUuidEx : public ExBase
{
public:
    class ExInvalidUuidString;
    class ExInternalError;

    LiUuidEx(char const *file, int line) noexcept;
};

/// Thrown if a text is not an identifier. `"text" is not a valid uuid representation.`
ZV_EXCEPTION(ZVRESMGT_EXPORT, LiUuidEx, ExInvalidUuidString, std::invalid_argument, LiUuidEx,
             LiString const &text);

/// Thrown if a function of the platform fails. "Call to function %s() failed."
ZV_EXCEPTION(ZVRESMGT_EXPORT, LiUuidEx, ExInternalError, std::runtime_error, LiUuidEx,
             char const *function);

} // namespace Zv
