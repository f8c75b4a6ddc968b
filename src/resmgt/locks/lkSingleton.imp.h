// Bodies of LkSingleton, for the source file that defines a singleton (extenders).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkSingleton.h"
#include "zvbase/failures.h"
#include "zvbase/platform/types.h"

#include <typeinfo>

/// The compiler's own name of a type.
#define ZV_TYPE_NAME(Type) typeid(Type).name()

namespace Zv {

namespace Detail {

/// Creates and takes the kernel mutex that has the type's name. **Throws** `ExSysErrorWindows`.
ZVRESMGT_EXPORT ZvPlatform::Handle acquireInitMutex(char const *typeName);
/// Releases and closes the mutex. **Throws** `ExSysErrorWindows`.
ZVRESMGT_EXPORT void releaseInitMutex(ZvPlatform::Handle mutex);
/// Releases and closes the mutex and ignores failures, because an exception is being handled.
ZVRESMGT_EXPORT void abandonInitMutex(ZvPlatform::Handle mutex) noexcept;

} // namespace Detail

/// Holds the creation lock of `Id` while a singleton is created.
///
/// The lock has a name, so that all copies of this code in the process share it, in whichever
/// module they are. A thread that holds it may take it again.
template <class Id>
class [[nodiscard]] LkInitMutexWindows
{
public:
    /// Takes the lock. **Blocks** until no other thread holds it. **Throws** `ExSysErrorWindows`.
    LkInitMutexWindows() : _mutex(Detail::acquireInitMutex(ZV_TYPE_NAME(Id))) {}
    LkInitMutexWindows(LkInitMutexWindows const &) = delete;
    LkInitMutexWindows &operator=(LkInitMutexWindows const &) = delete;
    ~LkInitMutexWindows()
    {
        if (_mutex)
            Detail::abandonInitMutex(_mutex);
    }

    /// Releases the lock for good. **Throws** `ExSysErrorWindows`.
    void release()
    {
        ZvPlatform::Handle const mutex = _mutex;
        _mutex = nullptr;
        Detail::releaseInitMutex(mutex);
    }

private:
    ZvPlatform::Handle _mutex;
};

template <class T>
T *LkSingleton<T>::_pointee = nullptr;

template <class T>
constinit ZvPlatform::Shared<typename LkSingleton<T>::State> LkSingleton<T>::_state{UNINITIALIZED};

template <class T>
void LkSingleton<T>::init()
{
    LkInitMutexWindows<LkSingleton<T>> creationLock;
    if (_state.load(ZvPlatform::Order::RELAXED) != INITIALIZED) {
        // The text of the condition does not say how the state is read.
        if (_state.load(ZvPlatform::Order::RELAXED) != UNINITIALIZED)
            Assertions::throwAssertionFailed(__FILE__, __LINE__, "_state == UNINITIALIZED");
        _pointee = LkSingletonCreator<T>::create();
        // Last, so that a thread that reads the state without the lock finds the object.
        _state.store(INITIALIZED, ZvPlatform::Order::RELEASE);
    }
    creationLock.release();
}

template <class T>
void LkSingleton<T>::destroy()
{
    LkInitMutexWindows<LkSingleton<T>> creationLock;
    if (_state.load(ZvPlatform::Order::RELAXED) == DESTROYED)
        Assertions::throwAssertionFailed(__FILE__, __LINE__,
                                         "LkSingleton<T>::_state != LkSingleton<T>::DESTROYED");
    {
        // The singleton refers to the object until its destructor, which may throw, has returned.
        struct Mark
        {
            ~Mark()
            {
                _pointee = nullptr;
                _state.store(DESTROYED, ZvPlatform::Order::RELEASE);
            }
        } const mark;
        delete _pointee;
    }
    creationLock.release();
}

template <class T>
char const *LkSingleton<T>::getText(State state)
{
    switch (state) {
    case UNINITIALIZED:
        return "UNINITIALIZED";
    case INITIALIZED:
        return "INITIALIZED";
    case DESTROYED:
        return "DESTROYED";
    default:
        ZV_ABORT_PROGRAM();
    }
}

template <class T>
void LkSingleton<T>::checkState()
{
    switch (getState()) {
    case UNINITIALIZED:
        ZV_ASSERT(_pointee == 0);
        break;
    case INITIALIZED:
        ZV_ASSERT(_pointee != 0);
        break;
    case DESTROYED:
        ZV_ASSERT(_pointee == 0);
        break;
    default:
        ZV_ABORT_PROGRAM();
    }
}

} // namespace Zv

/// Defines the singleton of `T` in one source file. Its object is of class `Created`, which is `T`
/// or derives from it. The scope is that which `LkSingleton` names.
#define ZV_DEFINE_SINGLETON(T, Created)                                                            \
    template <>                                                                                    \
    T * ::Zv::LkSingletonCreator<T>::create()                                                      \
    {                                                                                              \
        return new Created;                                                                        \
    }                                                                                              \
    template class ::Zv::LkSingleton<T>
