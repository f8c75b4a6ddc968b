// Exceptions of failed system calls (applications).
#pragma once

#include "zvbase/exBase.h"

#include <cstddef>
#include <stdexcept>

namespace Zv {

/// Base of the exceptions that are thrown if a system call fails. The reason is "System error 6:
/// The handle is invalid.", or "System error 4711." for a code that has no meaning here. Catch this
/// class, and throw `ExSysErrorWindows`.
class ZVBASE_EXPORT ExSysError : public ExBase, public std::runtime_error
{
public:
    /// `systemError` is the system's error code.
    ExSysError(char const *file, int line, int systemError);
    ExSysError(ExSysError const &);
    ExSysError &operator=(ExSysError const &);
    ~ExSysError() override;

    /// Returns the reason, as `getReason` does.
    char const *what() const noexcept override;
    int getSystemError() const noexcept { return _systemError; }

    /// Returns the meaning of a code as a sentence, or null if the code is not known here.
    static char const *getMeaning(int systemError) noexcept;

private:
    int _systemError;
};

/// Thrown if a service of the platform fails. The constructor reads the error code that the calling
/// thread's last failed service left. Construct it right after the failed call.
class ZVBASE_EXPORT ExSysErrorWindows : public ExSysError
{
public:
    ExSysErrorWindows(char const *file, int line);
    ExSysErrorWindows(ExSysErrorWindows const &);
    ExSysErrorWindows &operator=(ExSysErrorWindows const &);
    ~ExSysErrorWindows() override;

    [[nodiscard]] ExSysErrorWindows *clone() const override;
};

} // namespace Zv
