// Statics that are never destroyed.
#pragma once

#include <cstddef>
#include <new>
#include <utility>

namespace Zv {

/// Room for one object that is built with it and never destroyed. For statics: threads of the library may still run
/// while the process ends, so nothing that they touch has a destructor that runs at exit.
///
///     static Immortal<InInit<ZvInit::locks>> package;
template <class T>
class Immortal
{
public:
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
