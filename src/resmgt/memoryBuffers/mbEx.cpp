#include "resmgt/memoryBuffers/mbEx.h"

namespace Zv {

MbEx::MbEx(char const *file, int line) noexcept : ExBase(file, line) {}

MbEx::ExIllegalTransition::ExIllegalTransition(char const *file, int line, char const *buffer,
                                               char const *event, char const *state)
    : std::logic_error(""), MbEx(file, line)
{
    formatReason("Illegal transition: buffer %s received event %s from state %s.", buffer, event,
                 state);
}

MbEx::ExIllegalTransition::~ExIllegalTransition() = default;

MbEx::ExInvalidArgument::ExInvalidArgument(char const *file, int line, char const *description)
    : std::invalid_argument(""), MbEx(file, line)
{
    formatReason("Invalid argument: %s.", description);
}

MbEx::ExInvalidArgument::~ExInvalidArgument() = default;

MbEx::ExRangeError::ExRangeError(char const *file, int line, char const *description)
    : std::range_error(""), MbEx(file, line)
{
    formatReason("Out of range: %s.", description);
}

MbEx::ExRangeError::~ExRangeError() = default;

MbEx::ExNotEnoughMemory::ExNotEnoughMemory(char const *file, int line, char const *description)
    : std::range_error(""), MbEx(file, line)
{
    formatReason("Not enough memory: %s.", description);
}

MbEx::ExNotEnoughMemory::~ExNotEnoughMemory() = default;

} // namespace Zv
