// Failures of threads.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

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

/// "Feature not implemented: " and the feature.
class ZVRESMGT_EXPORT MtEx::ExNotImplemented : public MtEx, public std::runtime_error
{
public:
    ExNotImplemented(char const *file, int line, char const *feature);
    ~ExNotImplemented() override;
    ZV_EXCEPTION_MEMBERS(ExNotImplemented)
};

/// `MtOpaqueData("name") has no content`
class ZVRESMGT_EXPORT MtEx::ExNoContent : public MtEx, public std::runtime_error
{
public:
    ExNoContent(char const *file, int line, char const *className, char const *name);
    ~ExNoContent() override;
    ZV_EXCEPTION_MEMBERS(ExNoContent)
};

/// Carries another exception from one thread to another, and gives that one's reason as its own.
class ZVRESMGT_EXPORT MtEx::ExThrownException : public MtEx, public std::runtime_error
{
public:
    /// Becomes the owner of `carried`, which is not null.
    ExThrownException(char const *file, int line, ExBase *carried);
    /// A copy owns a copy of what is carried.
    ExThrownException(ExThrownException const &);
    ExThrownException &operator=(ExThrownException const &);
    char const *getReason() const noexcept override;
    char const *getDetailedReason() const noexcept override;
    ~ExThrownException() override;
    ZV_EXCEPTION_MEMBERS(ExThrownException)

    /// What is carried; stays this object's.
    ExBase const &getCarried() const noexcept { return *_carried; }

private:
    ExBase *_carried;
};

/// A standard exception, as an `ExBase`: its type's name and its text.
class ZVRESMGT_EXPORT MtEx::ExStdThrownException : public MtEx, public std::runtime_error
{
public:
    ExStdThrownException(char const *file, int line, char const *typeName, char const *what);
    ~ExStdThrownException() override;
    ZV_EXCEPTION_MEMBERS(ExStdThrownException)
};

/// "Failure to enable real-time: " and the reason, with a full stop.
class ZVRESMGT_EXPORT MtEx::ExRealTimeNotEnabled : public MtEx, public std::runtime_error
{
public:
    ExRealTimeNotEnabled(char const *file, int line, char const *reason);
    ~ExRealTimeNotEnabled() override;
    ZV_EXCEPTION_MEMBERS(ExRealTimeNotEnabled)
};

} // namespace Zv
