// Property whose value is set and read on a standard device's thread (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkNamedSema.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/threadAnnotations.h"

#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace Zv {

/// Keeps the observer of one property. The manager may set it while the device's thread notifies
/// it.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT DevMDStdPropertyObserver
{
public:
    DevMDStdPropertyObserver();
    DevMDStdPropertyObserver(DevMDStdPropertyObserver const &) = delete;
    DevMDStdPropertyObserver &operator=(DevMDStdPropertyObserver const &) = delete;
    ~DevMDStdPropertyObserver() noexcept(false);

    /// Sets the observer. Null means none. The former observer is destroyed. If it is being
    /// notified, the notifying thread destroys it afterwards.
    void set(ObjPtr<DevMDPropertyAEO> observer);
    /// Notifies the observer, if there is one. No lock is held, so the observer may block, and may
    /// be replaced meanwhile. Throws what the observer throws.
    void notify(unsigned int events);
    /// Notifies the observer of all events, unless it has been notified this way and `setRead` has
    /// not been called since. Throws what the observer throws, which then counts as not notified.
    void notifyUnread();
    /// Records that the property was read, so that the next `notifyUnread` notifies again.
    void setRead();

private:
    LkLock mutable _lock;
    RCProxyShdPtr<DevMDPropertyAEO> _observer ZV_GUARDED_BY(_lock);
    bool _isUnread ZV_GUARDED_BY(_lock) = false;
    // Read without the lock, so that a notification without observer costs one test.
    ZvPlatform::Shared<bool> _isSet{false};
};

/// The completion that a reader of a property waits for. Posts a semaphore exactly once: when the
/// request has been executed, or when the request is destroyed without having been executed because
/// the device closes.
class ZVRESMGT_EXPORT DevMDStdPropertyGetACO : public DevACO
{
public:
    /// The semaphore must exist until it is posted.
    explicit DevMDStdPropertyGetACO(LkUnnamedSema &done);
    /// Sets `ok` to false before it posts if it is destroyed without having run. `ok` must exist
    /// until then.
    DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok);
    /// In addition calls `setRead` of the observer before it posts, whether there was a value or
    /// not.
    DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok, DevMDStdPropertyObserver &observer);
    DevMDStdPropertyGetACO(DevMDStdPropertyGetACO const &) = delete;
    DevMDStdPropertyGetACO &operator=(DevMDStdPropertyGetACO const &) = delete;
    ~DevMDStdPropertyGetACO() override;

    void performExecute() override;

private:
    void post();

    LkUnnamedSema &_done;
    bool *_ok = nullptr;
    DevMDStdPropertyObserver *_observer = nullptr;
    bool _posted = false;
};

/// Makes the requests of one property, or of several properties that it tells apart by `id`. The
/// device implements it, or uses `makePropertyANOFactory`.
///
/// **Threads**: called on the threads that set or get, and by several of them at the same time. The
/// requests are executed on the device's thread.
///
/// **Throws**: `set` and `get` throw what these functions throw, and `RCEx::ExNullPtr` if they
/// return null.
template <class T>
class ZVRESMGT_EXPORT DevMDStdPropertyANOFactory
{
public:
    virtual ~DevMDStdPropertyANOFactory() noexcept(false);

    /// Returns a request that stores the value.
    virtual ObjPtrRet<DevMDStdANO> createSetANO(LiUuid const &id, T value) = 0;
    /// Returns a request that writes the value into `value`, or sets `ok` to false if there is
    /// none. Both exist until the request's completion has run.
    virtual ObjPtrRet<DevMDStdANO> createGetANO(LiUuid const &id, T &value, bool &ok) = 0;
};

/// A property that is set and read on its device's thread, so that only this thread touches the
/// device's state.
///
/// `makeProperty` makes one from two functions.
///
/// **Threads**: any thread may call `set` and `get`, except the device's own and "DevMgr ANO". On
/// the device's thread `get` waits for itself, and so does `set` if the queue is full. The
/// device's thread calls `changed` and `notify`.
///
/// **Blocks**: `set` and `get` block while the queue is full. `set` returns when the request is
/// queued. `get` returns when the device's thread has executed the request. If the device has not
/// been opened yet, `get` blocks until then. `changed` and `notify` block while the observer does,
/// which is while the manager's queue is full. The device serves no request during that time.
///
/// **Throws**: `get` throws `DevPrtclEx::ExMDStdPropertyGet` if the request reports that there is
/// no value, if the request throws, and if the device is closed or destroyed before it has executed
/// the request. That is also so if the opening of the device has failed. `set` has no effect and
/// does not fail if the device is closed. Both pass on what the request factory and the queue's
/// observer throw. `changed` and `notify` throw what the observer of the property throws.
template <class T>
class ZVRESMGT_EXPORT DevMDStdProperty : public DevMDProperty<T>
{
public:
    /// `attributes` are the bits of `DevMDPropertyAny`. Creates the property's identifier.
    DevMDStdProperty(LiString const &name, LiString const &description, unsigned int attributes,
                     ObjPtr<DevMDStdPropertyANOFactory<T>> anoFactory, RCShdPtr<DevMDStdFifo> fifo);

    LiUuid getUuid() override { return _uuid; }
    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    unsigned int getAttributes() const override;
    /// Returns true.
    bool isAvailable() const override { return true; }
    void setObserverAEO(ObjPtr<DevMDPropertyAEO> observer) override;

    /// Notifies the observer that there is a new value. Call it when the value has changed.
    ///
    /// Does nothing if the observer has been notified before and the device has executed no `get`
    /// since. A notification carries no value, so a second one would say nothing more, and a client
    /// that is too slow cannot fill the manager's queue. A `get` that failed counts as well. An
    /// observer must get the value once after it was attached, and once after each notification.
    void changed() { _observerAEO.notifyUnread(); }

protected:
    ~DevMDStdProperty() override;

    void performSet(T const &value) override;
    void performGet(T &value) override;
    /// Sets what can be done with the property from now on. Any thread may call it.
    virtual void setAttributes(unsigned int attributes);
    /// Notifies the observer, if there is one, at every call. Use it for events with a meaning of
    /// their own, and `changed` for a new value.
    void notify(unsigned int events) { _observerAEO.notify(events); }

private:
    LiUuid _uuid;
    LiString _name;
    LiString _description;
    ZvPlatform::Shared<unsigned int> _attributes;
    DevMDStdPropertyObserver _observerAEO;
    ObjPtr<DevMDStdPropertyANOFactory<T>> _anoFactory;
    RCShdPtr<DevMDStdFifo> _fifo;
};

#define ZV_EXTERN_PROPERTY(T)                                                                      \
    extern template class DevMDStdPropertyANOFactory<T>;                                           \
    extern template class DevMDStdProperty<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_EXTERN_PROPERTY)
#undef ZV_EXTERN_PROPERTY

/// A function that stores the value that it takes.
template <class Function, class T>
concept DevMDPropertySetter = std::invocable<Detail::Stored<Function>, T>;

/// A function that writes the value into its argument. If it returns a `bool`, false means that
/// there is no value.
template <class Function, class T>
concept DevMDPropertyGetter = std::invocable<Detail::Stored<Function>, T &>;

namespace Detail {

/// A property without setter. The request to set it is null, so `set` throws.
template <class T, class Getter>
class ReadOnlyPropertyANOFactory : public DevMDStdPropertyANOFactory<T>
{
public:
    explicit ReadOnlyPropertyANOFactory(Getter getter) : _getter(std::move(getter)) {}

    ObjPtrRet<DevMDStdANO> createSetANO(LiUuid const &, T) override { return nullptr; }
    ObjPtrRet<DevMDStdANO> createGetANO(LiUuid const &, T &value, bool &ok) override
    {
        return makeANO([this, &value, &ok] { ok = get(value); });
    }

private:
    bool get(T &value)
    {
        if constexpr (std::is_same_v<std::invoke_result_t<Getter &, T &>, bool>)
            return std::invoke(_getter, value);
        else
            return std::invoke(_getter, value), true;
    }

    Getter _getter;
};

template <class T, class Setter, class Getter>
class CallablePropertyANOFactory final : public ReadOnlyPropertyANOFactory<T, Getter>
{
public:
    CallablePropertyANOFactory(Setter setter, Getter getter)
        : ReadOnlyPropertyANOFactory<T, Getter>(std::move(getter)), _setter(std::move(setter))
    {}

    ObjPtrRet<DevMDStdANO> createSetANO(LiUuid const &, T value) override
    {
        return makeANO(
            [this, value = std::move(value)]() mutable { std::invoke(_setter, std::move(value)); });
    }

private:
    Setter _setter;
};

} // namespace Detail

/// Returns a factory whose requests call `setter(T)` and `getter(T &)` on the device's thread. The
/// property must outlive its requests, as the properties in a device's tree do. What the functions
/// refer to must exist until that thread has ended.
template <DevMDPropertyValue T, DevMDPropertySetter<T> Setter, DevMDPropertyGetter<T> Getter>
[[nodiscard]] ObjPtrRet<DevMDStdPropertyANOFactory<T>> makePropertyANOFactory(Setter &&setter,
                                                                              Getter &&getter)
{
    return makeObj<
        Detail::CallablePropertyANOFactory<T, std::decay_t<Setter>, std::decay_t<Getter>>>(
        std::forward<Setter>(setter), std::forward<Getter>(getter));
}

/// Returns a factory for a property that can only be read.
template <DevMDPropertyValue T, DevMDPropertyGetter<T> Getter>
[[nodiscard]] ObjPtrRet<DevMDStdPropertyANOFactory<T>> makePropertyANOFactory(Getter &&getter)
{
    return makeObj<Detail::ReadOnlyPropertyANOFactory<T, std::decay_t<Getter>>>(
        std::forward<Getter>(getter));
}

/// Returns a property that can be read and set. The functions run on the thread that serves `fifo`:
///
///     auto const fifo = makeShd<DevMDStdFifo>();
///     double focus = 2.5;
///     auto const property = makeProperty<double>(
///         "focus", "Distance in metres", fifo, [&focus](double &metres) { metres = focus; },
///         [&focus](double metres) { focus = metres; });
template <DevMDPropertyValue T, DevMDPropertyGetter<T> Getter, DevMDPropertySetter<T> Setter>
[[nodiscard]] RCShdPtr<DevMDStdProperty<T>>
makeProperty(LiString const &name, LiString const &description, RCShdPtr<DevMDStdFifo> const &fifo,
             Getter &&getter, Setter &&setter)
{
    return makeShd<DevMDStdProperty<T>>(
        name, description, DevMDPropertyAny::READABLE | DevMDPropertyAny::WRITABLE,
        makePropertyANOFactory<T>(std::forward<Setter>(setter), std::forward<Getter>(getter)),
        fifo);
}

/// Returns a property that can only be read.
template <DevMDPropertyValue T, DevMDPropertyGetter<T> Getter>
[[nodiscard]] RCShdPtr<DevMDStdProperty<T>>
makeProperty(LiString const &name, LiString const &description, RCShdPtr<DevMDStdFifo> const &fifo,
             Getter &&getter)
{
    return makeShd<DevMDStdProperty<T>>(name, description, DevMDPropertyAny::READABLE,
                                        makePropertyANOFactory<T>(std::forward<Getter>(getter)),
                                        fifo);
}

/// A property that keeps its value itself. Clients read and observe it, but cannot set it. The
/// device shows each new value:
///
///     auto const fifo = makeShd<DevMDStdFifo>();
///     auto const position = makeShd<DevMDStdReading<double>>("position", "In seconds", fifo);
///     position->show(0.25);
template <class T>
class DevMDStdReading : public DevMDStdProperty<T>
{
public:
    /// `initial` is the value until the first call of `show`.
    DevMDStdReading(LiString const &name, LiString const &description, RCShdPtr<DevMDStdFifo> fifo,
                    T initial = T())
        : DevMDStdProperty<T>(name, description, DevMDPropertyAny::READABLE,
                              makePropertyANOFactory<T>([this](T &value) { value = _value; }),
                              std::move(fifo)),
          _value(std::move(initial))
    {}

    /// Sets the value. If it differs from the former one, notifies the observer as `changed` does,
    /// so a device may call this function as often as it likes.
    ///
    /// The device's thread must call it, or any one thread before the device is opened. If the
    /// observer throws, the former value stays, so that showing the same value again notifies of
    /// it.
    void show(T const &value)
    {
        if (value == _value)
            return;
        this->changed(); // an observer gets the value by a request to this thread
        _value = value;
    }

private:
    T _value;
};

} // namespace Zv
