// A system call that failed, as an exception that a caller may handle.
#pragma once

#include "zvbase/exBase.h"

#include <cstddef>
#include <stdexcept>

namespace Zv {

/// A system call failed. Caught as `ExBase`, as `std::runtime_error` or as itself.
class ZVBASE_EXPORT ExSysError : public ExBase, public std::runtime_error
{
public:
    /// `systemError` is the system's code.
    ExSysError(char const *file, int line, int systemError);
    ExSysError(ExSysError const &);
    ExSysError &operator=(ExSysError const &);
    ~ExSysError() override;

    char const *what() const noexcept override;
    int getSystemError() const noexcept { return _systemError; }

    /// What a code says, in a sentence; null for a code that is not known here.
    static char const *getMeaning(int systemError) noexcept;

private:
    int _systemError;
};

/// The error that the calling thread's last failed service left; built right after the call. The text reads
/// "System error 6: The handle is invalid." or, for a code without a meaning here, "System error 4711."
class ZVBASE_EXPORT ExSysErrorWindows : public ExSysError
{
public:
    ExSysErrorWindows(char const *file, int line);
    ExSysErrorWindows(ExSysErrorWindows const &);
    ExSysErrorWindows &operator=(ExSysErrorWindows const &);
    ~ExSysErrorWindows() override;

    ExSysErrorWindows *clone() const override;
};

} // namespace Zv
