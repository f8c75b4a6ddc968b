// Singleton: one object of a class for the whole process (extenders).
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/shared.h"

namespace Zv {

/// Creates the one object of `T`. `ZV_DEFINE_SINGLETON` defines it. If the constructor of `T` is
/// private, `T` must declare `LkSingletonCreator<T>` a friend.
template <class T>
struct LkSingletonCreator
{
    /// Returns a new object, which the caller owns.
    [[nodiscard]] static T *create();
};

/// Holds the one object of a class `T` for the whole process.
///
/// The first use creates the object. The library never destroys it. One line declares the singleton
/// behind the class, another one defines it in one source file, which includes `lkSingleton.imp.h`:
///
///     #include <resmgt/locks/lkSingleton.imp.h>
///
///     namespace studio {
///     class Clock
///     {
///     public:
///         static Clock &getInstance();
///         double getTime() const { return 0.0; }
///     };
///     } // namespace studio
///     ZV_DECLARE_SINGLETON(studio::Clock);               // in the header
///     ZV_DEFINE_SINGLETON(studio::Clock, studio::Clock); // in the source: what, and its class
///
/// The two lines are written in namespace `Zv` for a class of that namespace, and at global scope
/// for every other class. Shared libraries that use the class share the object, which is visible as
/// `T` is. If a class is private to its source file, it needs only the second line and is reached
/// by `LkSingleton<T>::getInstance()`. It must not be in an unnamed namespace.
///
/// The constructor of `T` may use other singletons, but not its own. Two constructors that use each
/// other's singleton deadlock.
///
/// **Threads**: thread-safe. Only the first use **blocks**, while another thread creates the
/// object.
///
/// **Throws** `ExSysErrorWindows` if the system refuses the lock for the creation, and what the
/// constructor of `T` throws.
template <class T>
class ZVRESMGT_EXPORT LkSingleton
{
public:
    /// Stage of the object's life.
    enum State
    {
        UNINITIALIZED = 0, ///< it has not been created
        INITIALIZED = 1,   ///< it exists
        DESTROYED = 2      ///< it has been destroyed and will not be created again
    };

    /// Returns the object. Creates it if it has never existed. Must not be called after `destroy`:
    /// there is no object to return, and this is not checked.
    static T &getInstance()
    {
        if (_state.load(ZvPlatform::Order::ACQUIRE) == UNINITIALIZED) [[unlikely]]
            init();
        return *_pointee;
    }
    /// Creates the object unless it exists. **Throws** `AssertionFailed` if it has been destroyed.
    static void init();
    /// Destroys the object if it exists, and prevents its creation if it does not. Meant for tests.
    /// The second call **throws** `AssertionFailed`.
    static void destroy();

    /// Returns the state.
    static State getState() { return _state.load(ZvPlatform::Order::ACQUIRE); }
    /// Returns the name of a state as text. **Throws** `ProgramAborted` for any other value.
    static char const *getText(State state);
    /// **Throws** `AssertionFailed` if the state and the object do not agree.
    static void checkState();

private:
    static T *_pointee;
    static constinit ZvPlatform::Shared<State> _state;
};

} // namespace Zv

/// Declares the singleton of `T` behind the class, and defines `T::getInstance()`. The scope is
/// that which `LkSingleton` names.
#define ZV_DECLARE_SINGLETON(T)                                                                    \
    extern template class ::Zv::LkSingleton<T>;                                                    \
    inline T &T::getInstance()                                                                     \
    {                                                                                              \
        return ::Zv::LkSingleton<T>::getInstance();                                                \
    }                                                                                              \
    static_assert(true)
