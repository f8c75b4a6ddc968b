// The properties that a device offers, and the sets that group them.
#pragma once

#include "resmgt/containers/iterator.h"
#include "resmgt/deviceProtocol/devMDPropertyAEO.h"
#include "resmgt/deviceProtocol/devMDPropertyTypes.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/literals/liUuid.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/failures.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// A property of any type: who it is and what can be done with it. All operations may be called by any thread.
class ZVRESMGT_EXPORT DevMDPropertyAny : public RCBase<LkCounter<long>>
{
public:
    /// Bits of the attribute word.
    static constexpr unsigned int READABLE = 1;
    static constexpr unsigned int WRITABLE = 2;

    /// Tells this property from every other one.
    virtual LiUuid getUuid() = 0;
    /// Unique in its set.
    virtual LiString getName() = 0;
    virtual LiString getDescription() = 0;
    /// `READABLE`, `WRITABLE`, both or none.
    virtual unsigned int getAttributes() const = 0;
    virtual bool isAvailable() const = 0;
    /// Who is told of changes from now on; null for nobody. The former one is destroyed.
    virtual void setObserverAEO(ObjPtr<DevMDPropertyAEO> observer) = 0;

protected:
    ~DevMDPropertyAny() override;
};

/// A property with a value. `T` is one of the 22 types of `DevMDPropertyValue`. Use goes through `set` and `get`,
/// which may be called by any thread but the device's own, and block as long as the device's forms do.
template <class T>
class ZVRESMGT_EXPORT DevMDProperty : public DevMDPropertyAny
{
    static_assert(DevMDPropertyValue<T>, "not a type that a property can have");

public:
    /// Throws `DevPrtclEx::ExMDPropertyIllegalOp` where the property is not `WRITABLE`.
    void set(T const &value);
    /// Throws `DevPrtclEx::ExMDPropertyIllegalOp` where the property is not `READABLE`.
    void get(T &value);

protected:
    ~DevMDProperty() override;

    virtual void performSet(T const &value) = 0;
    virtual void performGet(T &value) = 0;
};

/// A named group of properties and of further sets. An iterator must not be used after its set has been destroyed.
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

#define ZV_EXTERN_PROPERTY(T) extern template class DevMDProperty<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_EXTERN_PROPERTY)
#undef ZV_EXTERN_PROPERTY

} // namespace Zv
