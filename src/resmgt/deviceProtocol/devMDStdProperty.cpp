#include "resmgt/deviceProtocol/devMDStdProperty.h"

#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "resmgt/locks/lkGuard.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/shared.h"
#include "zvbase/scope.private.h"

namespace Zv {

DevMDStdPropertyObserver::DevMDStdPropertyObserver() : _lock("DevMDStdProperty observer") {}

DevMDStdPropertyObserver::~DevMDStdPropertyObserver() noexcept(false) = default;

void DevMDStdPropertyObserver::set(ObjPtr<DevMDPropertyAEO> observer)
{
    // Destroying an observer can destroy its property and more, so the former one is destroyed
    // without the lock.
    RCProxyShdPtr<DevMDPropertyAEO> latter(observer);
    RCProxyShdPtr<DevMDPropertyAEO> former;
    {
        LkGuard guard(_lock);
        former = std::move(_observer);
        _isSet.store(!latter.isNull(), ZvPlatform::Order::RELAXED);
        _observer = std::move(latter);
        _isUnread = false;
    }
}

void DevMDStdPropertyObserver::notify(unsigned int events)
{
    if (!_isSet.load(ZvPlatform::Order::RELAXED))
        return;
    // No lock is held: the observer may block on the manager's queue, and the thread that serves
    // that queue may be waiting to replace the observer.
    RCProxyShdPtr<DevMDPropertyAEO> observer;
    {
        LkGuard guard(_lock);
        observer = _observer;
    }
    if (!observer.isNull())
        observer->performNotify(events);
}

void DevMDStdPropertyObserver::notifyUnread()
{
    if (!_isSet.load(ZvPlatform::Order::RELAXED))
        return;
    {
        LkGuard guard(_lock);
        if (_isUnread)
            return;
        _isUnread = true;
    }
    try {
        notify(DevMDPropertyAEO::ALL_EVENTS);
    } catch (...) {
        setRead(); // the observer was not told
        throw;
    }
}

void DevMDStdPropertyObserver::setRead()
{
    if (!_isSet.load(ZvPlatform::Order::RELAXED))
        return;
    LkGuard guard(_lock);
    _isUnread = false;
}

DevMDStdPropertyGetACO::DevMDStdPropertyGetACO(LkUnnamedSema &done) : _done(done) {}

DevMDStdPropertyGetACO::DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok)
    : _done(done), _ok(&ok)
{}

DevMDStdPropertyGetACO::DevMDStdPropertyGetACO(LkUnnamedSema &done, bool &ok,
                                               DevMDStdPropertyObserver &observer)
    : _done(done), _ok(&ok), _observer(&observer)
{}

DevMDStdPropertyGetACO::~DevMDStdPropertyGetACO()
{
    if (_posted)
        return;
    if (_ok)
        *_ok = false;
    post();
}

void DevMDStdPropertyGetACO::performExecute()
{
    _posted = true;
    post();
}

// The value counts as read even if there was none. The reader must be released in any case.
void DevMDStdPropertyGetACO::post()
{
    AtScopeEnd const post([&done = _done] { done.post(); });
    if (_observer)
        _observer->setRead();
}

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
    return _attributes.load(ZvPlatform::Order::RELAXED);
}

template <class T>
void DevMDStdProperty<T>::setAttributes(unsigned int attributes)
{
    _attributes.store(attributes, ZvPlatform::Order::RELAXED);
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
    // Declared before the request, whose completion posts it even if the request is destroyed
    // without having run.
    LkUnnamedSema done("DevMDStdProperty::performGet", 0);
    ZV_ASSERT(done.getErrno() == 0);
    ObjPtr<DevMDStdANO> ano(_anoFactory->createGetANO(getUuid(), value, ok));
    ano->setBaseACO(ObjPtr<DevACO>(new DevMDStdPropertyGetACO(done, ok, _observerAEO)));
    FirstFailure const failure(_fifo->send(ano));
    done.wait();
    failure.rethrowAlways();
    if (!ok)
        ZV_THROW(DevPrtclEx::ExMDStdPropertyGet, _name.getChars());
}

#define ZV_INSTANTIATE_PROPERTY(T)                                                                 \
    template class DevMDStdPropertyANOFactory<T>;                                                  \
    template class DevMDStdProperty<T>;
ZV_FOR_EACH_PROPERTY_TYPE(ZV_INSTANTIATE_PROPERTY)
#undef ZV_INSTANTIATE_PROPERTY

} // namespace Zv
