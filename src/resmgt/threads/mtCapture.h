// Owner or shared pointer that a lambda for a standard thread can capture (applications).
#pragma once

#include <utility>

namespace Zv {

/// Holds an `ObjPtr` or an `RCShdPtr` in a lambda that is given to a thread of the standard
/// library, or to `std::async`.
///
///     #include <future>
///
///     class Work
///     {
///     public:
///         void run() {}
///     };
///
///     ObjPtr<Work> work(new Work);
///     auto done = std::async([work = MtCapture(std::move(work))] { work->run(); });
///     done.wait();
///
/// The standard library requires that the destructor of such a lambda throws nothing. The
/// destructor of a pointer of this library throws what the destructor of the object throws, so a
/// lambda that captures the pointer itself does not compile.
///
/// **Threads**: one thread at a time.
///
/// **Throws**: if the destructor of the object throws in the destructor of the capture, the process
/// ends.
///
/// **Owns**: what the pointer owns.
template <class Pointer>
class MtCapture
{
public:
    /// Captures `pointer`. Move an owner into it.
    explicit MtCapture(Pointer pointer) : _pointer(std::move(pointer)) {}
    MtCapture(MtCapture const &) = default;
    MtCapture(MtCapture &&) = default;
    MtCapture &operator=(MtCapture const &) = delete;
    ~MtCapture() noexcept {}

    auto *operator->() const { return _pointer.operator->(); }
    auto &operator*() const { return *_pointer; }
    /// Returns the pointer that was captured.
    Pointer const &get() const { return _pointer; }
    Pointer &get() { return _pointer; }

private:
    Pointer _pointer;
};

} // namespace Zv
