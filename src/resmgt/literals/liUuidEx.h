// Failures of identifiers.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures of identifiers.
class ZVRESMGT_EXPORT LiUuidEx : public ExBase
{
public:
    class ExInvalidUuidString;
    class ExInternalError;

    LiUuidEx(char const *file, int line) noexcept;
};

/// A text is no identifier: "\"%s\" is not a valid uuid representation."
class ZVRESMGT_EXPORT LiUuidEx::ExInvalidUuidString : public std::invalid_argument, public LiUuidEx
{
public:
    ExInvalidUuidString(char const *file, int line, LiString const &text);
    ~ExInvalidUuidString() override;
    ZV_EXCEPTION_MEMBERS(ExInvalidUuidString)
};

/// A function of the platform refused: "Call to function %s() failed."
class ZVRESMGT_EXPORT LiUuidEx::ExInternalError : public std::runtime_error, public LiUuidEx
{
public:
    ExInternalError(char const *file, int line, char const *function);
    ~ExInternalError() override;
    ZV_EXCEPTION_MEMBERS(ExInternalError)
};

} // namespace Zv
