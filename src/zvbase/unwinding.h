// Tells a destructor whether it may throw (extenders).
#pragma once

#include <exception>

namespace Zv {

/// Tells whether an exception has begun to unwind the stack since this object was constructed.
///
/// A destructor must not let an exception out while the stack is being unwound, because that ends
/// the process. A scope object whose destructor may throw has an `Unwinding` as a member, and asks
/// it first.
///
/// Only exceptions that were thrown after the construction count. If an earlier exception is
/// unwinding the stack, a destructor that it runs may construct a scope object. That scope object
/// may throw, if the destructor catches the exception.
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
/// **Threads**: the thread that has constructed the object calls `hasBegun`. Any thread may call it
/// if `ofAny` has made the object.
class Unwinding
{
public:
    Unwinding() noexcept : _nbBefore(std::uncaught_exceptions()) {}
    /// Makes an object that counts from its own construction, also if the source is from `ofAny`.
    Unwinding(Unwinding const &) noexcept : Unwinding() {}
    /// Changes nothing.
    Unwinding &operator=(Unwinding const &) noexcept { return *this; }

    /// Returns an object for which every exception of the thread that calls `hasBegun` counts. Use
    /// it for objects that may outlive the scope or the thread that constructed them.
    [[nodiscard]] static Unwinding ofAny() noexcept { return Unwinding(0); }

    /// Returns true if an exception of the calling thread that counts is unwinding the stack.
    [[nodiscard]] bool hasBegun() const noexcept { return std::uncaught_exceptions() > _nbBefore; }

private:
    explicit Unwinding(int nbBefore) noexcept : _nbBefore(nbBefore) {}

    int _nbBefore;
};

} // namespace Zv
