// Observers of one property access, and their notifications.
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyAcc.h"
#include "resmgt/literals/liUuid.h"
#include "resmgt/locks/lkLock.h"
#include "zvbase/containers.h"
#include "zvbase/threadAnnotations.h"

#include <set>

namespace Zv {

class DevMgrMediator;

/// The observers of one property access. Notifications that are on their way keep it alive.
class DevMgrPropertyObserverEng : public RCBase<LkCounter<long>>
{
public:
    /// Does not own the mediator, because the devices of the mediator own the properties, and these
    /// own this engine. `detachAll` must be called before the mediator is destroyed.
    explicit DevMgrPropertyObserverEng(DevMgrMediator &mediator);

    virtual void attach(RCShdPtr<DevMDPropertyAny> property,
                        RCShdPtr<DevMgrPropertyObserver> observer);
    virtual void detach(RCShdPtr<DevMDPropertyAny> property,
                        RCShdPtr<DevMgrPropertyObserver> observer);
    void detachAll();

    /// Calls the property's observers, under the lock, in the order of their addresses. When all
    /// have been called, rethrows the first exception of an observer.
    void update(DevMgrPropertyObserverHint const &hint);
    /// Returns true if the calling thread is in `update`. Blocks while another thread is.
    bool isUpdating() const;

private:
    struct Observed
    {
        RCShdPtr<DevMDPropertyAny> property;
        std::set<RCShdPtr<DevMgrPropertyObserver>> observers; // never empty
    };

    using Observers = Vector<RCShdPtr<DevMgrPropertyObserver>>;

    void update(DevMgrPropertyObserverHint const &hint, Observers &called);
    bool isAttached(LiUuid const &uuid, RCShdPtr<DevMgrPropertyObserver> const &observer) const
        ZV_REQUIRES(_lock);

    DevMgrMediator &_mediator;
    LkLock _lock;
    HashMap<LiUuid, Observed> _observerMap ZV_GUARDED_BY(_lock);
    bool _isUpdating ZV_GUARDED_BY(_lock) = false;
};

} // namespace Zv
