// One object of a class for the whole process.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/interlocked.h"

namespace Zv {

/// How the one object of `T` is made; `ZV_DEFINE_SINGLETON` says it. A `T` with a private constructor names
/// `LkSingletonCreator<T>` its friend.
template <class T>
struct LkSingletonCreator
{
    [[nodiscard]] static T *create();
};

/// The one `T` of the process, made at first use under a named creation lock, and never destroyed by the library. Any
/// thread may ask for it; only the first use blocks.
///
/// The owner of `T` shows it with one line behind the class, and defines it with one line in its source, which
/// includes lkSingleton.imp.h:
///
///     class ZVRESMGT_EXPORT MtThreadMgr
///     {
///     public:
///         static MtThreadMgr &getInstance();
///         …
///     };
///     ZV_DECLARE_SINGLETON(MtThreadMgr);                    // behind the class, in namespace Zv
///
///     ZV_DEFINE_SINGLETON(MtThreadMgr, MtThreadMgrWinNT);   // in the source: the class, and what is created
///
/// For a class in a namespace of its own both lines are written outside of that, at global scope:
///
///     ZV_DECLARE_SINGLETON(studio::Clock);
///     ZV_DEFINE_SINGLETON(studio::Clock, studio::QuartzClock);
///
/// The instance is then one across shared libraries, visible as `T` is, and `T::getInstance()` is inline. A class that
/// is private to its source needs the second line only and calls `LkSingleton<T>::getInstance()`; it stands in no
/// unnamed namespace.
///
/// The constructor of `T` may ask for other singletons: they nest in the order of construction. Two constructors
/// that ask for each other deadlock, and a constructor must not ask for its own.
template <class T>
class ZVRESMGT_EXPORT LkSingleton
{
public:
    enum State
    {
        UNINITIALIZED = 0,
        INITIALIZED = 1,
        DESTROYED = 2
    };

    /// The object, made if need be. After `destroy` it is a null reference, by design: nobody asks for it then.
    static T &getInstance()
    {
        if (ZvPlatform::Interlocked::loadAcquire(_state) == UNINITIALIZED) [[unlikely]]
            init();
        return *_pointee;
    }
    /// Makes the object unless it is there. Fails an assertion once it has been destroyed.
    static void init();
    /// Destroys the object, or sees to it that none is ever made. For tests; fails an assertion the second time.
    static void destroy();

    static State getState() { return ZvPlatform::Interlocked::loadAcquire(_state); }
    /// The state's name. Any other value is `ProgramAborted`.
    static char const *getText(State state);
    /// Asserts that state and object agree.
    static void checkState();

private:
    static T *_pointee;
    static State _state;
};

} // namespace Zv

/// Declares the singleton of `T`, behind the class: the instance is defined elsewhere, and `T::getInstance()` leads to
/// it. To be written in namespace Zv for a class of that namespace, else at global scope.
#define ZV_DECLARE_SINGLETON(T)                                                                    \
    extern template class ::Zv::LkSingleton<T>;                                                    \
    inline T &T::getInstance()                                                                     \
    {                                                                                              \
        return ::Zv::LkSingleton<T>::getInstance();                                                \
    }                                                                                              \
    static_assert(true)
