// Exceptions of threads (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions of threads.
class ZVRESMGT_EXPORT MtEx : public ExBase
{
public:
    class ExNotImplemented;
    class ExNoContent;
    class ExThrownException;
    class ExStdThrownException;
    class ExRealTimeNotEnabled;

    MtEx(char const *file, int line) noexcept;
};

/// Thrown if a class does not implement an optional operation. The reason is
/// "Feature not implemented: " and `feature`.
ZV_EXCEPTION(ZVRESMGT_EXPORT, MtEx, ExNotImplemented, MtEx, std::runtime_error,
             char const *feature);

/// Thrown if an empty `MtOpaqueData` is read. `MtOpaqueData("name") has no content`
ZV_EXCEPTION(ZVRESMGT_EXPORT, MtEx, ExNoContent, MtEx, std::runtime_error, char const *className,
             char const *name);

/// Carries another exception from one thread to another. It returns the reason of the carried
/// exception as its own.
class ZVRESMGT_EXPORT MtEx::ExThrownException : public MtEx, public std::runtime_error
{
public:
    /// **Owns**: takes ownership of `carried`, which must not be null.
    ExThrownException(char const *file, int line, ExBase *carried);
    /// The copy owns a copy of the carried exception.
    ExThrownException(ExThrownException const &);
    ExThrownException &operator=(ExThrownException const &);
    char const *getReason() const noexcept override;
    char const *getDetailedReason() const noexcept override;
    ~ExThrownException() override;
    ZV_EXCEPTION_MEMBERS(ExThrownException)

    /// Returns the carried exception. This object still owns it.
    ExBase const &getCarried() const noexcept { return *_carried; }

private:
    ExBase *_carried;
};

/// Carries the name of the type and the text of a standard exception that is not an `ExBase`.
ZV_EXCEPTION(ZVRESMGT_EXPORT, MtEx, ExStdThrownException, MtEx, std::runtime_error,
             char const *typeName, char const *what);

/// Thrown if the system refuses real-time operation. The reason is
/// "Failure to enable real-time: ", the given reason, and a full stop.
ZV_EXCEPTION(ZVRESMGT_EXPORT, MtEx, ExRealTimeNotEnabled, MtEx, std::runtime_error,
             char const *reason);

} // namespace Zv
