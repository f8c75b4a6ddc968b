// Tells a destructor whether it may throw (extenders).
#pragma once

#include <exception>

namespace Zv {

/// Tells whether an exception has begun to unwind the stack since this object was constructed.
///
/// A destructor must not throw while an exception leaves through it: two at once end the process. A
/// scope object that may throw has an `Unwinding` as a member. The number of exceptions is taken at
/// construction, because the whole object may live inside of a destructor that another exception
/// runs. There it may throw, to be caught by that destructor.
///
///     class Transaction
///     {
///     public:
///         ~Transaction() noexcept(false)
///         {
///             if (!_unwinding.hasBegun())
///                 commit();
///         }
///         void commit();
///
///     private:
///         Zv::Unwinding _unwinding;
///     };
///
/// **Threads**: one thread constructs and destroys the object.
class Unwinding
{
public:
    Unwinding() noexcept : _nbBefore(std::uncaught_exceptions()) {}
    /// A copy counts from its own construction.
    Unwinding(Unwinding const &) noexcept : Unwinding() {}
    Unwinding &operator=(Unwinding const &) noexcept { return *this; }

    /// Returns an object for which every exception of the calling thread counts. For objects that
    /// may outlive the scope or the thread that constructed them: their own count would say
    /// nothing.
    [[nodiscard]] static Unwinding ofAny() noexcept { return Unwinding(0); }

    /// Returns true if an exception is leaving the scope.
    [[nodiscard]] bool hasBegun() const noexcept { return std::uncaught_exceptions() > _nbBefore; }

private:
    explicit Unwinding(int nbBefore) noexcept : _nbBefore(nbBefore) {}

    int _nbBefore;
};

} // namespace Zv
