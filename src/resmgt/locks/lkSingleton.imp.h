// The bodies of LkSingleton, for the source that defines an instance.
#pragma once

#include "resmgt/locks/lkInitMutexWindows.h"
#include "resmgt/locks/lkSingleton.h"
#include "zvbase/failures.h"

namespace Zv {

template <class T>
T *LkSingleton<T>::_pointee = nullptr;

template <class T>
typename LkSingleton<T>::State LkSingleton<T>::_state = LkSingleton<T>::UNINITIALIZED;

template <class T>
void LkSingleton<T>::init()
{
    LkInitMutexWindows<LkSingleton<T>> creationLock;
    if (_state != INITIALIZED) {
        ZV_ASSERT(_state == UNINITIALIZED);
        _pointee = LkSingletonCreator<T>::create();
        // Last, so that whoever sees the state without the lock sees the object as well.
        ZvPlatform::Interlocked::storeRelease(_state, INITIALIZED);
    }
    creationLock.release();
}

template <class T>
void LkSingleton<T>::destroy()
{
    LkInitMutexWindows<LkSingleton<T>> creationLock;
    ZV_ASSERT(LkSingleton<T>::_state != LkSingleton<T>::DESTROYED);
    {
        // The object finds itself until its end, which may throw.
        struct Mark
        {
            ~Mark()
            {
                _pointee = nullptr;
                ZvPlatform::Interlocked::storeRelease(_state, DESTROYED);
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

/// Defines the singleton of `T`, in the source that owns it: `Created`, a `T`, is what it makes. To be written in
/// namespace Zv or at global scope.
#define ZV_DEFINE_SINGLETON(T, Created)                                                            \
    template <>                                                                                    \
    T * ::Zv::LkSingletonCreator<T>::create()                                                      \
    {                                                                                              \
        return new Created;                                                                        \
    }                                                                                              \
    template class ::Zv::LkSingleton<T>
