// Exceptions of the memory buffers (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of the memory buffers.
class ZVRESMGT_EXPORT MbEx : public ExBase
{
public:
    class ExIllegalTransition;
    class ExInvalidArgument;
    class ExRangeError;
    class ExNotEnoughMemory;

    MbEx(char const *file, int line) noexcept;
};

/// Thrown if the state of a buffer does not allow an operation.
/// "Illegal transition: buffer b received event unlock() from state Loaded."
ZV_EXCEPTION(ZVRESMGT_EXPORT, MbEx, ExIllegalTransition, std::logic_error, MbEx, char const *buffer,
             char const *event, char const *state);

/// Thrown if a number is not a valid alignment. "Invalid argument: %s."
ZV_EXCEPTION(ZVRESMGT_EXPORT, MbEx, ExInvalidArgument, std::invalid_argument, MbEx,
             char const *description);

/// Thrown if a value cannot be rounded to an alignment, or if two offsets cannot be combined.
/// "Out of range: %s."
ZV_EXCEPTION(ZVRESMGT_EXPORT, MbEx, ExRangeError, std::range_error, MbEx, char const *description);

/// Thrown if a manager cannot provide the memory of a buffer. "Not enough memory: %s." Descriptions
/// end in a full stop of their own, so the text ends in two.
ZV_EXCEPTION(ZVRESMGT_EXPORT, MbEx, ExNotEnoughMemory, std::range_error, MbEx,
             char const *description);

} // namespace Zv
