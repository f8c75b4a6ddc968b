#include "resmgt/deviceProtocol/devMDStdPropertyObserver.h"

#include "resmgt/locks/lkGuard.h"
#include "zvbase/platform/interlocked.h"

#include <utility>

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

DevMDStdPropertyObserver::DevMDStdPropertyObserver() : _lock("DevMDStdProperty observer") {}

DevMDStdPropertyObserver::~DevMDStdPropertyObserver() noexcept(false) = default;

void DevMDStdPropertyObserver::set(ObjPtr<DevMDPropertyAEO> observer)
{
    // An observer keeps its property and more alive: the former one goes when the lock is free again.
    RCProxyShdPtr<DevMDPropertyAEO> latter(observer);
    RCProxyShdPtr<DevMDPropertyAEO> former;
    {
        LkGuard<LkLock const> guard(_lock);
        former = std::move(_observer);
        Interlocked::storeRelease(_isSet, !latter.isNull());
        _observer = std::move(latter);
        _isUnread = false;
    }
}

void DevMDStdPropertyObserver::notify(unsigned int events)
{
    if (!Interlocked::loadAcquire(_isSet))
        return;
    // The observer may block on the manager's queue, whose server may be waiting to replace it: no lock is held.
    RCProxyShdPtr<DevMDPropertyAEO> observer;
    {
        LkGuard<LkLock const> guard(_lock);
        observer = _observer;
    }
    if (!observer.isNull())
        observer->performNotify(events);
}

void DevMDStdPropertyObserver::notifyUnread()
{
    if (!Interlocked::loadAcquire(_isSet))
        return;
    {
        LkGuard<LkLock const> guard(_lock);
        if (_isUnread)
            return;
        _isUnread = true;
    }
    try {
        notify(DevMDPropertyAEO::ALL_EVENTS);
    } catch (...) {
        setRead(); // nobody was told
        throw;
    }
}

void DevMDStdPropertyObserver::setRead()
{
    if (!Interlocked::loadAcquire(_isSet))
        return;
    LkGuard<LkLock const> guard(_lock);
    _isUnread = false;
}

} // namespace Zv
