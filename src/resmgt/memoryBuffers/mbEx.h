// Failures of the memory buffers.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures of the memory buffers.
class ZVRESMGT_EXPORT MbEx : public ExBase
{
public:
    class ExIllegalTransition;
    class ExInvalidArgument;
    class ExRangeError;
    class ExNotEnoughMemory;

    MbEx(char const *file, int line) noexcept;
};

/// A buffer was asked for what its state does not allow:
/// "Illegal transition: buffer b received event unlock() from state Loaded."
class ZVRESMGT_EXPORT MbEx::ExIllegalTransition : public std::logic_error, public MbEx
{
public:
    ExIllegalTransition(char const *file, int line, char const *buffer, char const *event,
                        char const *state);
    ~ExIllegalTransition() override;
    ZV_EXCEPTION_MEMBERS(ExIllegalTransition)
};

/// "Invalid argument: …."
class ZVRESMGT_EXPORT MbEx::ExInvalidArgument : public std::invalid_argument, public MbEx
{
public:
    ExInvalidArgument(char const *file, int line, char const *description);
    ~ExInvalidArgument() override;
    ZV_EXCEPTION_MEMBERS(ExInvalidArgument)
};

/// "Out of range: …."
class ZVRESMGT_EXPORT MbEx::ExRangeError : public std::range_error, public MbEx
{
public:
    ExRangeError(char const *file, int line, char const *description);
    ~ExRangeError() override;
    ZV_EXCEPTION_MEMBERS(ExRangeError)
};

/// "Not enough memory: …." Descriptions end in a point of their own, so that the text ends in two.
class ZVRESMGT_EXPORT MbEx::ExNotEnoughMemory : public std::range_error, public MbEx
{
public:
    ExNotEnoughMemory(char const *file, int line, char const *description);
    ~ExNotEnoughMemory() override;
    ZV_EXCEPTION_MEMBERS(ExNotEnoughMemory)
};

} // namespace Zv
