// Properties of a device: typed values, their sets, and the interface that offers them
// (applications, device writers).
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/literals/liUuid.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/failures.h"
#include "zvbase/objPtr.h"
#include "zvbase/sequenceContainers.h"

#include <concepts>
#include <cstdint>

/// Writes `apply(T)` once for each of the 22 types that a property can have.
#define ZV_FOR_EACH_PROPERTY_TYPE(apply)                                                           \
    ZV_FOR_PROPERTY_TYPE(apply, bool)                                                              \
    ZV_FOR_PROPERTY_TYPE(apply, signed char)                                                       \
    ZV_FOR_PROPERTY_TYPE(apply, unsigned char)                                                     \
    ZV_FOR_PROPERTY_TYPE(apply, short)                                                             \
    ZV_FOR_PROPERTY_TYPE(apply, unsigned short)                                                    \
    ZV_FOR_PROPERTY_TYPE(apply, int)                                                               \
    ZV_FOR_PROPERTY_TYPE(apply, unsigned int)                                                      \
    ZV_FOR_PROPERTY_TYPE(apply, std::int64_t)                                                      \
    ZV_FOR_PROPERTY_TYPE(apply, std::uint64_t)                                                     \
    ZV_FOR_PROPERTY_TYPE(apply, float)                                                             \
    ZV_FOR_PROPERTY_TYPE(apply, double)
/// Calls `apply` with a type and with the vector of it. For `ZV_FOR_EACH_PROPERTY_TYPE`.
#define ZV_FOR_PROPERTY_TYPE(apply, Type) apply(Type) apply(::Zv::Vector<Type>)

namespace Zv {

namespace Detail {

template <class T, class... Types>
concept OneOf = (std::same_as<T, Types> || ...);

template <class T>
concept PropertyScalar = OneOf<T, bool, signed char, unsigned char, short, unsigned short, int,
                               unsigned int, std::int64_t, std::uint64_t, float, double>;

template <class T>
inline constexpr bool IS_PROPERTY_VECTOR = false;
template <PropertyScalar T>
inline constexpr bool IS_PROPERTY_VECTOR<Vector<T>> = true;

} // namespace Detail

/// A type that a property can have: one of eleven scalars, or a `Vector` of one of them.
///
/// The 64-bit scalars are `std::int64_t` and `std::uint64_t`. On Linux these are `long` types, so
/// `long long` is not a property type there.
template <class T>
concept DevMDPropertyValue = Detail::PropertyScalar<T> || Detail::IS_PROPERTY_VECTOR<T>;

/// The observer that a property keeps. The manager implements it. The device calls it on the
/// device's own thread.
class ZVRESMGT_EXPORT DevMDPropertyAEO : public DevAEO
{
public:
    /// The word in which every event is set.
    static constexpr unsigned int ALL_EVENTS = 0xFFFFFFFFu;

    ~DevMDPropertyAEO() override;

    /// Notifies of all events.
    void performExecute() override;
    /// Notifies of the events whose bits are set. The device and its observers agree on the meaning
    /// of the bits.
    virtual void performNotify(unsigned int events) = 0;
};

/// A property of any type: its identity, and what can be done with it.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT DevMDPropertyAny : public RCBase<LkCounter<long>>
{
public:
    /// Bit of `getAttributes`: the value can be read.
    static constexpr unsigned int READABLE = 1;
    /// Bit of `getAttributes`: the value can be set.
    static constexpr unsigned int WRITABLE = 2;

    /// Returns the identifier, which no other property has.
    virtual LiUuid getUuid() = 0;
    /// Returns the name, which is unique in the property's set.
    virtual LiString getName() = 0;
    virtual LiString getDescription() = 0;
    /// Returns `READABLE`, `WRITABLE`, both or neither.
    virtual unsigned int getAttributes() const = 0;
    /// Returns true if the property can be used at the moment.
    virtual bool isAvailable() const = 0;
    /// Sets the observer that is notified of changes, and destroys the former one. Null means none.
    virtual void setObserverAEO(ObjPtr<DevMDPropertyAEO> observer) = 0;

protected:
    ~DevMDPropertyAny() override;
};

/// A property with a value of the type `T`, one of the 22 types of `DevMDPropertyValue`.
///
/// **Threads**: any thread may call `set` and `get`, except the device's own and "DevMgr ANO". The
/// call may wait for the device's thread, and the device may be waiting for "DevMgr ANO".
///
/// **Blocks**: as long as the device's `performSet` and `performGet` do. See `DevMDStdProperty`.
template <class T>
class ZVRESMGT_EXPORT DevMDProperty : public DevMDPropertyAny
{
    static_assert(DevMDPropertyValue<T>, "not a type that a property can have");

public:
    /// Sets the value. Throws `DevPrtclEx::ExMDPropertyIllegalOp` if the property is not
    /// `WRITABLE`.
    void set(T const &value);
    /// Writes the value into `value`. Throws `DevPrtclEx::ExMDPropertyIllegalOp` if the property is
    /// not `READABLE`.
    void get(T &value);

protected:
    ~DevMDProperty() override;

    /// Sets the value. Called by `set` if the property is `WRITABLE`.
    virtual void performSet(T const &value) = 0;
    /// Writes the value into `value`. Called by `get` if the property is `READABLE`.
    virtual void performGet(T &value) = 0;
};

/// A named group of properties and of further sets.
///
/// The iterators of the properties and of the sets point to the first one, those named `End` behind
/// the last one. The set must outlive its iterators.
///
/// **Threads**: any thread may call any operation, also at the same time.
class ZVRESMGT_EXPORT DevMDPropertySet : public RCBase<LkCounter<long>>
{
public:
    virtual LiString getName() = 0;
    virtual LiString getDescription() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() = 0;

protected:
    ~DevMDPropertySet() override;
};

/// The interface of a device that has properties. It gives the root level of the tree of property
/// sets, in the way of `DevMDPropertySet`. The device must outlive its iterators.
///
/// **Threads**: any thread may call any operation, also at the same time.
class ZVRESMGT_EXPORT DevMDPropertyPrtcl : public virtual DevMDPrtcl
{
public:
    virtual ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() = 0;
    virtual ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() = 0;

protected:
    ~DevMDPropertyPrtcl() override;
};

#define ZV_EXTERN_PROPERTY(T) extern template class DevMDProperty<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_EXTERN_PROPERTY)
#undef ZV_EXTERN_PROPERTY

} // namespace Zv
