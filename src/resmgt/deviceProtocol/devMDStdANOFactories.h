// Factories of requests that call functions of the device.
#pragma once

#include "resmgt/deviceProtocol/devMDStdANO.h"
#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/deviceProtocol/devMDStdProperty.h"
#include "resmgt/deviceProtocol/devMDStdStream.h"
#include "resmgt/deviceProtocol/devMDStdSyncSeqPrtcl.h"

#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace Zv {

// The functions are called on the device's thread, one at a time. What a factory refers to lives until the device's
// thread has ended: as a rule it is the device, or a member of it.

/// What a device does when it is opened and closed. Neither may throw.
template <class Handler>
concept DevMDAccessHandler = requires(Handler &handler)
{
    handler.open();
    handler.close();
};

/// What a device does at each step of a sequence. A step is finished when its function returns: a device that takes
/// longer derives from `DevMDStdDevice`, or makes its requests with `makeANO`.
template <class Handler>
concept DevMDSyncSeqHandler = requires(Handler &handler, ObjPtr<DevANO> ano, DtTimeMark const &mark,
                                       DtTime const &latency)
{
    handler.start(ano, ano);
    handler.sync(mark);
    handler.sync(latency);
    handler.recover();
    handler.stop();
    handler.abort();
};

namespace Detail {

template <DevMDAccessHandler Handler>
class HandlerAccessANOFactory final : public DevMDStdAccessANOFactory
{
public:
    explicit HandlerAccessANOFactory(Handler &handler) : _handler(handler) {}

    ObjPtrRet<DevMDStdANO> createOpenANO() override
    {
        return makeANO([&handler = _handler] { handler.open(); });
    }
    ObjPtrRet<DevMDStdANO> createCloseANO() override
    {
        return makeANO([&handler = _handler] { handler.close(); });
    }

private:
    Handler &_handler;
};

template <DevMDSyncSeqHandler Handler>
class HandlerSyncSeqANOFactory final : public DevMDStdSyncSeqANOFactory
{
public:
    explicit HandlerSyncSeqANOFactory(Handler &handler) : _handler(handler) {}

    ObjPtrRet<DevMDStdANO> createStartANO(ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
    {
        return makeANO([&handler = _handler, recover = std::move(recover),
                        abort = std::move(abort)]() mutable { handler.start(recover, abort); });
    }
    ObjPtrRet<DevMDStdANO> createSyncANO(DtTimeMark const &mark) override
    {
        return makeANO([&handler = _handler, mark] { handler.sync(mark); });
    }
    ObjPtrRet<DevMDStdANO> createSyncANO(DtTime const &latency) override
    {
        return makeANO([&handler = _handler, latency] { handler.sync(latency); });
    }
    ObjPtrRet<DevMDStdANO> createRecoverANO() override
    {
        return makeANO([&handler = _handler] { handler.recover(); });
    }
    ObjPtrRet<DevMDStdANO> createStopANO() override
    {
        return makeANO([&handler = _handler] { handler.stop(); });
    }
    ObjPtrRet<DevMDStdANO> createAbortANO() override
    {
        return makeANO([&handler = _handler] { handler.abort(); });
    }

private:
    Handler &_handler;
};

/// For a property without setter: the request to set it is null, and so a failure of whoever sets it.
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

template <class Function>
class CallablePushANOFactory final : public DevMDStdStreamPassiveSinkANOFactory
{
public:
    explicit CallablePushANOFactory(Function function) : _function(std::move(function)) {}

    ObjPtrRet<DevMDStdANO> createPushANO(ObjPtr<DevMDStreamElem> elem) override
    {
        return makeANO([this, elem = std::move(elem)]() mutable { std::invoke(_function, elem); });
    }

private:
    Function _function;
};

} // namespace Detail

/// Requests that call `open` and `close` of the handler.
template <DevMDAccessHandler Handler>
ObjPtrRet<DevMDStdAccessANOFactory> makeAccessANOFactory(Handler &handler)
{
    return makeObj<Detail::HandlerAccessANOFactory<Handler>>(handler);
}

/// Requests that call `start(ObjPtr<DevANO>, ObjPtr<DevANO>)`, `sync` with a mark or a time, `recover`, `stop` and
/// `abort` of the handler.
template <DevMDSyncSeqHandler Handler>
ObjPtrRet<DevMDStdSyncSeqANOFactory> makeSyncSeqANOFactory(Handler &handler)
{
    return makeObj<Detail::HandlerSyncSeqANOFactory<Handler>>(handler);
}

/// Takes a property's value to be stored.
template <class Function, class T>
concept DevMDPropertySetter = std::invocable < std::decay_t<Function>
&, T > ;

/// Writes a property's value into its argument. One that returns a `bool` says with it whether there is a value.
template <class Function, class T>
concept DevMDPropertyGetter = std::invocable < std::decay_t<Function>
&, T & > ;

/// Takes up what is pushed into a sink.
template <class Function>
concept DevMDElementTaker = std::invocable < std::decay_t<Function>
&, ObjPtr<DevMDStreamElem> & > ;

/// Requests that call `setter(T)` and `getter(T &)`. The property must outlive its requests, as the properties of a
/// device's tree do.
template <DevMDPropertyValue T, DevMDPropertySetter<T> Setter, DevMDPropertyGetter<T> Getter>
ObjPtrRet<DevMDStdPropertyANOFactory<T>> makePropertyANOFactory(Setter &&setter, Getter &&getter)
{
    return makeObj<
        Detail::CallablePropertyANOFactory<T, std::decay_t<Setter>, std::decay_t<Getter>>>(
        std::forward<Setter>(setter), std::forward<Getter>(getter));
}

/// The same for a property that is only read.
template <DevMDPropertyValue T, DevMDPropertyGetter<T> Getter>
ObjPtrRet<DevMDStdPropertyANOFactory<T>> makePropertyANOFactory(Getter &&getter)
{
    return makeObj<Detail::ReadOnlyPropertyANOFactory<T, std::decay_t<Getter>>>(
        std::forward<Getter>(getter));
}

/// A property that can be read and set:
///
///     makeProperty<double>("focus", "Distance in metres", fifo,
///                          [this](double &metres) { metres = _focus; },
///                          [this](double metres) { _focus = metres; });
template <DevMDPropertyValue T, DevMDPropertyGetter<T> Getter, DevMDPropertySetter<T> Setter>
RCShdPtr<DevMDStdProperty<T>> makeProperty(LiString const &name, LiString const &description,
                                           RCShdPtr<DevMDStdFifo> const &fifo, Getter &&getter,
                                           Setter &&setter)
{
    return makeShd<DevMDStdProperty<T>>(
        name, description, DevMDPropertyAny::READABLE | DevMDPropertyAny::WRITABLE,
        makePropertyANOFactory<T>(std::forward<Setter>(setter), std::forward<Getter>(getter)),
        fifo);
}

/// The same without `setter`: a property that is only read.
template <DevMDPropertyValue T, DevMDPropertyGetter<T> Getter>
RCShdPtr<DevMDStdProperty<T>> makeProperty(LiString const &name, LiString const &description,
                                           RCShdPtr<DevMDStdFifo> const &fifo, Getter &&getter)
{
    return makeShd<DevMDStdProperty<T>>(name, description, DevMDPropertyAny::READABLE,
                                        makePropertyANOFactory<T>(std::forward<Getter>(getter)),
                                        fifo);
}

/// Requests that call `function(ObjPtr<DevMDStreamElem>)`. The sink must outlive its requests.
template <DevMDElementTaker Function>
ObjPtrRet<DevMDStdStreamPassiveSinkANOFactory> makePushANOFactory(Function &&function)
{
    return makeObj<Detail::CallablePushANOFactory<std::decay_t<Function>>>(
        std::forward<Function>(function));
}

} // namespace Zv
