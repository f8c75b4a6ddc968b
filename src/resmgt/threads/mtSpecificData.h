// Thread-specific data.
#pragma once

#include "resmgt/threads/mtOpaqueData.h"
#include "resmgt/threads/mtSpecificDataRegistry.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// A `T` for each thread, made with `new T` at a thread's first use of it and deleted when that thread ends. A thread
/// that the library did not make must call `MtSpecificDataRegistry::removeSpecificData` before it ends. Otherwise its
/// values are never deleted.
///
///     MtSpecificData<Scratch> scratch("scratch");
///     ...
///     scratch->clear(); // this thread's
///
/// If the destructor of a `T` throws, the exception leaves the operation that destroys the value: `performDelete`,
/// `removeSpecificData`, the destructor of this object. The value counts as destroyed. At the end of a thread of the
/// library nothing can catch it, and it ends the process.
///
/// One object of it takes one slot of the system's thread-local storage. It outlives all threads that use it.
template <class T>
class MtSpecificData : public MtOpaqueData
{
public:
    /// `name` outlives this object.
    explicit MtSpecificData(char const *name)
        : MtOpaqueData(name, [](void *value) { delete static_cast<T *>(value); })
    {}

    /// The calling thread's value. Throws `MtEx::ExNoContent` where none is made.
    T *getPointee() const { return static_cast<T *>(MtOpaqueData::getPointee()); }
    T *operator->() const { return getPointee(); }
    T &operator*() const { return *getPointee(); }

protected:
    void *performCreate() const override
    {
        ObjPtr<T> value(new T);
        setSpecific(value.get());
        try {
            MtSpecificDataRegistry::getInstance().addSpecificData(this);
        } catch (...) {
            setSpecific(nullptr);
            throw;
        }
        return value.release();
    }
};

} // namespace Zv
