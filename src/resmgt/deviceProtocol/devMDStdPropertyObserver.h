// The place where a property keeps its observer.
#pragma once

#include "resmgt/deviceProtocol/devMDPropertyAEO.h"
#include "resmgt/export.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/smartPtrs/rcProxy.h"
#include "zvbase/objPtr.h"
#include "zvbase/threadAnnotations.h"

namespace Zv {

/// Holds the observer of one property, which the manager sets while the device's thread may be notifying it. Any
/// thread may call all operations.
class ZVRESMGT_EXPORT DevMDStdPropertyObserver
{
public:
    DevMDStdPropertyObserver();
    DevMDStdPropertyObserver(DevMDStdPropertyObserver const &) = delete;
    DevMDStdPropertyObserver &operator=(DevMDStdPropertyObserver const &) = delete;
    ~DevMDStdPropertyObserver() noexcept(false);

    /// Takes the observer over; null for none. The former one is destroyed, unless it is being notified: then it is
    /// destroyed by the notifying thread, afterwards.
    void set(ObjPtr<DevMDPropertyAEO> observer);
    /// Calls the observer, if there is one, without a lock: it may block, and it may be replaced meanwhile.
    void notify(unsigned int events);
    /// The same with all events, unless this observer was called so before and `setRead` not since.
    void notifyUnread();
    void setRead();

private:
    LkLock mutable _lock;
    RCProxyShdPtr<DevMDPropertyAEO> _observer ZV_GUARDED_BY(_lock);
    bool _isUnread ZV_GUARDED_BY(_lock) = false;
    bool _isSet = false; // read without the lock, so that nobody's notification costs one test
};

} // namespace Zv
