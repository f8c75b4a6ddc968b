// Bodies of the standard properties. Included where they are instantiated.
#pragma once

#include "resmgt/deviceProtocol/devMDStdProperty.h"
#include "resmgt/deviceProtocol/devMDStdPropertyGetACO.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "zvbase/failures.h"
#include "zvbase/platform/interlocked.h"

#include <exception>

namespace Zv {

template <class T>
DevMDStdPropertyANOFactory<T>::~DevMDStdPropertyANOFactory() noexcept(false) = default;

template <class T>
DevMDStdProperty<T>::DevMDStdProperty(LiString const &name, LiString const &description,
                                      unsigned int attributes,
                                      ObjPtr<DevMDStdPropertyANOFactory<T>> anoFactory,
                                      RCShdPtr<DevMDStdFifo> fifo)
    : _uuid(LiUuid::CREATE),
      _name(name),
      _description(description),
      _attributes(attributes),
      _anoFactory(anoFactory),
      _fifo(fifo)
{}

template <class T>
DevMDStdProperty<T>::~DevMDStdProperty() = default;

template <class T>
unsigned int DevMDStdProperty<T>::getAttributes() const
{
    return ZvPlatform::Interlocked::loadAcquire(_attributes);
}

template <class T>
void DevMDStdProperty<T>::setAttributes(unsigned int attributes)
{
    ZvPlatform::Interlocked::storeRelease(_attributes, attributes);
}

template <class T>
void DevMDStdProperty<T>::setObserverAEO(ObjPtr<DevMDPropertyAEO> observer)
{
    _observerAEO.set(observer);
}

template <class T>
void DevMDStdProperty<T>::performSet(T const &value)
{
    DevANOQueueEntry entry(_anoFactory->createSetANO(getUuid(), value));
    _fifo->produce(entry);
}

template <class T>
void DevMDStdProperty<T>::performGet(T &value)
{
    bool ok = true;
    // Declared before the request: what destroys that unrun still posts it.
    LkUnnamedSema done("DevMDStdProperty::performGet", 0);
    ZV_ASSERT(done.getErrno() == 0);
    ObjPtr<DevMDStdANO> ano(_anoFactory->createGetANO(getUuid(), value, ok));
    ano->setBaseACO(ObjPtr<DevACO>(new DevMDStdPropertyGetACO(done, ok, _observerAEO)));
    std::exception_ptr const failure = _fifo->send(ano);
    done.wait();
    if (failure)
        std::rethrow_exception(failure);
    if (!ok)
        ZV_THROW(DevPrtclEx::ExMDStdPropertyGet, _name.getChars());
}

} // namespace Zv
