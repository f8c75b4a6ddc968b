// Static objects that are never destroyed (extenders).
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace Zv {

/// Contains one object, which is constructed with it and never destroyed. For statics: threads of
/// the library may still run while the process ends, so what they use must not be destroyed at
/// exit.
///
///     static Zv::Immortal<std::string> const name("camera");
///     std::size_t const length = name->size();
template <class T>
class Immortal
{
public:
    /// Constructs the object from the arguments.
    template <class... Arguments>
    explicit Immortal(Arguments &&...arguments)
    {
        ::new (static_cast<void *>(_storage)) T(std::forward<Arguments>(arguments)...);
    }
    Immortal(Immortal const &) = delete;
    Immortal &operator=(Immortal const &) = delete;

    T &get() noexcept { return *std::launder(reinterpret_cast<T *>(_storage)); }
    T const &get() const noexcept { return *std::launder(reinterpret_cast<T const *>(_storage)); }
    T &operator*() noexcept { return get(); }
    T const &operator*() const noexcept { return get(); }
    T *operator->() noexcept { return &get(); }
    T const *operator->() const noexcept { return &get(); }

private:
    alignas(T) std::byte _storage[sizeof(T)];
};

} // namespace Zv
