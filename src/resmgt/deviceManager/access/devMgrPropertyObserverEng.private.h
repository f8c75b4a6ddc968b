// Who observes which property, and how a change comes to them.
#pragma once

#include "resmgt/deviceManager/access/devMgrPropertyObserver.h"
#include "resmgt/literals/liUuid.h"
#include "resmgt/locks/lkLock.h"
#include "zvbase/containers.h"
#include "zvbase/threadAnnotations.h"

#include <set>

namespace Zv {

class DevMgrMediator;

/// The observers of one property access. It lives on in the objects that carry changes while they are under way.
class DevMgrPropertyObserverEng : public RCBase<LkCounter<long>>
{
public:
    /// Points to the mediator without counting: the properties that hold this engine belong to the mediator's devices.
    /// `detachAll` comes before the mediator may go.
    explicit DevMgrPropertyObserverEng(DevMgrMediator &mediator);

    virtual void attach(RCShdPtr<DevMDPropertyAny> property,
                        RCShdPtr<DevMgrPropertyObserver> observer);
    virtual void detach(RCShdPtr<DevMDPropertyAny> property,
                        RCShdPtr<DevMgrPropertyObserver> observer);
    void detachAll();

    /// Calls the property's observers, under the lock, in the order of their addresses.
    void update(DevMgrPropertyObserverHint const &hint);

private:
    struct Observed
    {
        RCShdPtr<DevMDPropertyAny> property;
        std::set<RCShdPtr<DevMgrPropertyObserver>> observers; // never empty
    };

    DevMgrMediator &_mediator;
    LkLock _lock;
    HashMap<LiUuid, Observed> _observerMap ZV_GUARDED_BY(_lock);
};

} // namespace Zv
