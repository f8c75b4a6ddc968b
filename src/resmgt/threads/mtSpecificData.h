// Thread-specific data: a value of which each thread has its own (applications).
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/locks/lkSingleton.h"
#include "resmgt/locks/lkThreadId.h"
#include "zvbase/objPtr.h"
#include "zvbase/testAccess.h"
#include "zvbase/threadAnnotations.h"

#include <map>

namespace Zv {

class MtOpaqueDataImp;

/// The untyped base of `MtSpecificData` (extenders).
///
/// **Threads**: thread-safe, except the destructor. Each operation concerns the value of the
/// calling thread. The object must live longer than the threads that have a value in it, usually as
/// long as the process.
///
/// **Blocks**: only for the lock of `MtSpecificDataRegistry`.
class ZVRESMGT_EXPORT MtOpaqueData
{
    // The order of the virtual functions is part of the binary interface. It decides the order of
    // the sections.
public:
    /// `name` must outlive this object. `deleter` destroys a value.
    MtOpaqueData(char const *name, void (*deleter)(void *));
    MtOpaqueData(MtOpaqueData const &) = delete;
    MtOpaqueData &operator=(MtOpaqueData const &) = delete;
    /// Destroys the value of the calling thread. The values of other threads are never destroyed.
    /// Their entries in the registry are removed, because they refer to this object.
    virtual ~MtOpaqueData() noexcept(false);

protected:
    /// Creates the value of the calling thread, stores it by `setSpecific`, adds it to
    /// `MtSpecificDataRegistry` and returns it. Returns null if it creates nothing.
    virtual void *performCreate() const = 0;

public:
    char const *getName() const { return _name; }
    /// Returns true if the calling thread has no value.
    bool isNull() const;
    /// Returns the value, which the first call creates. Throws `MtEx::ExNoContent` if
    /// `performCreate` creates none.
    void *getPointee() const;
    /// Destroys the value if there is one, and removes its entry from the registry. The next
    /// `getPointee` creates another one. If the deleter throws, the exception leaves this function,
    /// and the value counts as destroyed.
    void performDelete() const;

protected:
    /// Returns the value of the calling thread, or null.
    void *getSpecific() const;
    /// Stores a value for the calling thread.
    void setSpecific(void *value) const;

private:
    MtOpaqueDataImp *_imp;
    char const *_name;
    void (*_deleter)(void *);
};

/// The values of thread-specific data, by thread. Threads of the library destroy theirs when they
/// end. A singleton.
///
/// A thread that the library did not create must destroy its values before it ends:
///
///     #include <future>
///
///     auto done = std::async(std::launch::async, [] {
///         // uses thread-specific data
///         MtSpecificDataRegistry::getInstance().removeSpecificData();
///     });
///     done.wait();
///
/// **Threads**: thread-safe. Each operation concerns the values of the calling thread, except
/// `forgetAll`.
class ZVRESMGT_EXPORT MtSpecificDataRegistry
{
public:
    /// Returns the registry of the process, and creates it if needed.
    static MtSpecificDataRegistry &getInstance();

    MtSpecificDataRegistry(MtSpecificDataRegistry const &) = delete;
    MtSpecificDataRegistry &operator=(MtSpecificDataRegistry const &) = delete;

    /// Adds an entry for the value in `data`. For `MtOpaqueData::performCreate`. Fails the
    /// assertion "data" if it is null.
    void addSpecificData(MtOpaqueData const *data);
    /// Destroys all values of the calling thread, in the order in which they were created,
    /// including those that are created meanwhile. No lock is held while a deleter runs. If a
    /// deleter throws, the exception leaves this function, and the values after that one stay until
    /// the next call.
    void removeSpecificData();
    /// Removes the entry for the value in `data`. For `MtOpaqueData`.
    void forgetSpecificData(MtOpaqueData const *data);
    /// Removes the entries of all threads for `data`, which is being destroyed. For `MtOpaqueData`.
    void forgetAll(MtOpaqueData const *data);

private:
    friend class LkSingleton<MtSpecificDataRegistry>;
    friend struct LkSingletonCreator<MtSpecificDataRegistry>;
    template <class>
    friend struct TestAccess;

    MtSpecificDataRegistry();
    ~MtSpecificDataRegistry();

    void forgetFormerThread() ZV_REQUIRES(_lock);
    /// Removes the first entry of the calling thread and returns its data, or null if there is
    /// none.
    MtOpaqueData const *takeFirst();

    LkRecLock _lock;
    std::multimap<LkThreadId, MtOpaqueData const *> _entries ZV_GUARDED_BY(_lock);
};

ZV_DECLARE_SINGLETON(MtSpecificDataRegistry);

/// A `T` for each thread. The first use in a thread creates it by `new T`. It is deleted when that
/// thread ends.
///
///     #include <string>
///
///     MtSpecificData<std::string> scratch("scratch");
///     scratch->clear(); // the string of this thread
///
/// A thread that the library did not create must call `MtSpecificDataRegistry::removeSpecificData`
/// before it ends. Otherwise its values are never deleted.
///
/// **Threads**: thread-safe, except the destructor. The object must outlive all threads that use
/// it. It takes one slot of the operating system's thread-local storage, of which there are few.
///
/// **Throws**: if the destructor of a `T` throws, the exception leaves the operation that destroys
/// the value: `performDelete`, `MtSpecificDataRegistry::removeSpecificData` or the destructor of
/// this object. The value counts as destroyed. At the end of a thread of the library, such an
/// exception ends the process.
template <class T>
class MtSpecificData : public MtOpaqueData
{
public:
    /// `name` must outlive this object.
    explicit MtSpecificData(char const *name)
        : MtOpaqueData(name, [](void *value) { delete static_cast<T *>(value); })
    {}

    /// Returns the value of the calling thread, which the first call creates. Throws what the
    /// constructor of `T` throws.
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
