// Semaphores of the system, with and without a system-wide name (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/types.h"

namespace Zv {

/// Options for the creation of semaphores.
class ZVRESMGT_EXPORT LkSemaTypes
{
public:
    /// What the constructor of a named semaphore does.
    enum CreateFlag
    {
        OPEN = 0,            ///< opens an existing semaphore
        CREATE = 1,          ///< creates the semaphore or opens an existing one
        CREATE_EXCLUSIVE = 2 ///< creates the semaphore and fails if the name exists
    };

    /// Which processes may use an unnamed semaphore. It has no effect on this platform.
    enum Shared
    {
        PRIVATE = 0,
        SHARED = 1
    };
};

/// Platform form of `LkNamedSema`: a kernel semaphore with or without a system name.
class ZVRESMGT_EXPORT LkNamedSemaWindows
{
public:
    LkNamedSemaWindows(char const *systemName, unsigned count, LkSemaTypes::CreateFlag flag,
                       char const *label);
    LkNamedSemaWindows(LkNamedSemaWindows const &) = delete;
    LkNamedSemaWindows &operator=(LkNamedSemaWindows const &) = delete;
    ~LkNamedSemaWindows() noexcept(false);

    void wait();
    [[nodiscard]] bool tryWait();
    void post();
    /// Returns the system's error number of a failed construction, or 0.
    int getErrno() const noexcept { return _errno; }
    char const *getName() const noexcept { return _name; }

private:
    char const *_name;
    ZvPlatform::Handle _sema;
    int _errno;
};

/// Platform form of `LkUnnamedSema`: a kernel semaphore without a system name.
class ZVRESMGT_EXPORT LkUnnamedSemaWindows : public LkNamedSemaWindows
{
public:
    LkUnnamedSemaWindows(char const *label, unsigned count, LkSemaTypes::Shared);
};

/// Counting semaphore with a system-wide name, which several processes can share.
///
///     Zv::LkNamedSema frames("frames", 1, Zv::LkSemaTypes::CREATE, nullptr);
///     if (frames.getErrno() == 0)
///         frames.wait();
///
/// The constructor never throws. Test `getErrno` after it. If it is not 0, `wait` returns at once,
/// `post` does nothing, and `tryWait` fails an assertion.
///
/// **Threads**: thread-safe.
///
/// **Owns**: nothing. The label and the system name are not copied and must exist as long as the
/// semaphore.
class ZVRESMGT_EXPORT LkNamedSema
{
public:
    /// Opens or creates the semaphore of that system name. A new one starts at `count`. A backslash
    /// in the name is read as a slash. `label` is the name for reports; if it is null, `systemName`
    /// is.
    LkNamedSema(char const *systemName, unsigned count, LkSemaTypes::CreateFlag flag,
                char const *label)
        : _imp(systemName, count, flag, label)
    {}
    LkNamedSema(LkNamedSema const &) = delete;
    LkNamedSema &operator=(LkNamedSema const &) = delete;

    /// **Blocks** until the count is above 0, then subtracts 1.
    void wait() { _imp.wait(); }
    /// Subtracts 1 and returns true if the count is above 0. Never blocks.
    [[nodiscard]] bool tryWait() { return _imp.tryWait(); }
    /// Adds 1 and wakes one waiting thread.
    void post() { _imp.post(); }
    /// Returns the system's error number of a failed construction, or 0.
    int getErrno() const noexcept { return _imp.getErrno(); }
    char const *getName() const noexcept { return _imp.getName(); }
    /// Returns the platform form.
    LkNamedSemaWindows const &getImp() const noexcept { return _imp; }

private:
    LkNamedSemaWindows _imp;
};

/// Counting semaphore of one process: the cheapest way to pass a wake-up from thread to thread. It
/// has no time-out; use `LkSema` if you need one.
///
///     Zv::LkUnnamedSema ready("ready", 0);
///     ready.post();
///     ready.wait();
///
/// The constructor never throws. If the system may run out of objects, test `getErrno` after it. If
/// that is not 0, `wait` returns at once, `post` does nothing, and `tryWait` fails an assertion.
///
/// **Threads**: thread-safe. A thread may be killed while it waits.
///
/// **Owns**: nothing. The label is not copied and must exist as long as the semaphore.
class ZVRESMGT_EXPORT LkUnnamedSema
{
public:
    /// Creates a semaphore that starts at `count`.
    LkUnnamedSema(char const *label, unsigned count,
                  LkSemaTypes::Shared shared = LkSemaTypes::PRIVATE)
        : _imp(label, count, shared)
    {}
    LkUnnamedSema(LkUnnamedSema const &) = delete;
    LkUnnamedSema &operator=(LkUnnamedSema const &) = delete;

    /// **Blocks** until the count is above 0, then subtracts 1.
    void wait() { _imp.wait(); }
    /// Subtracts 1 and returns true if the count is above 0. Never blocks.
    [[nodiscard]] bool tryWait() { return _imp.tryWait(); }
    /// Adds 1 and wakes one waiting thread, which may destroy the semaphore at once.
    void post() { _imp.post(); }
    /// Returns the system's error number of a failed construction, or 0.
    int getErrno() const noexcept { return _imp.getErrno(); }
    char const *getName() const noexcept { return _imp.getName(); }

private:
    LkUnnamedSemaWindows _imp;
};

} // namespace Zv
