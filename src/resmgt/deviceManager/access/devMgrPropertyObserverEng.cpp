#include "resmgt/deviceManager/access/devMgrPropertyObserverEng.private.h"

#include "resmgt/deviceManager/devMgrFifo.private.h"
#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDProperty.h"
#include "resmgt/locks/lkGuard.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/scope.private.h"
#include "zvbase/traceCaught.private.h"

#include <string>

namespace Zv {

namespace {

/// Request that tells the observers of a change, on the manager's thread.
class DevMgrPropertyANO : public DevANO, public DevMgrFailureSource
{
public:
    DevMgrPropertyANO(RCShdPtr<DevMgrPropertyObserverEng> const &eng,
                      DevMgrPropertyObserverHint const &hint)
        : _eng(eng), _hint(hint)
    {}

    void performExecute() override { _eng->update(_hint); }
    DevMgrFailure getFailure() const override
    {
        DevMgrFailure failure;
        failure.property = _hint.getProperty()->getName();
        failure.event = std::to_string(_hint.getEvent()).c_str();
        return failure;
    }

private:
    RCShdPtr<DevMgrPropertyObserverEng> _eng;
    DevMgrPropertyObserverHint _hint;
};

/// The observer object of a property. It keeps the property and the engine alive until the last
/// observer detaches.
class DevMgrPropertyAEO : public DevMDPropertyAEO
{
public:
    DevMgrPropertyAEO(RCShdPtr<DevMDPropertyAny> const &property,
                      RCShdPtr<DevMgrPropertyObserverEng> const &eng,
                      RCShdPtr<DevMgrFifo> const &fifo)
        : _observed(property, eng), _fifo(fifo)
    {}

    void performNotify(unsigned int events) override
    {
        auto const &[property, eng] = _observed;
        ObjPtr<DevANO> ano(
            new DevMgrPropertyANO(eng, DevMgrPropertyObserverHint(property, events)));
        DevANOQueueEntry entry(ano);
        _fifo->produce(entry);
    }

private:
    std::pair<RCShdPtr<DevMDPropertyAny>, RCShdPtr<DevMgrPropertyObserverEng>> _observed;
    RCShdPtr<DevMgrFifo> _fifo;
};

} // namespace

DevMgrPropertyObserverEng::DevMgrPropertyObserverEng(DevMgrMediator &mediator)
    : _mediator(mediator), _lock("Device Property-Observer hash map lock")
{}

void DevMgrPropertyObserverEng::attach(RCShdPtr<DevMDPropertyAny> property,
                                       RCShdPtr<DevMgrPropertyObserver> observer)
{
    if (observer.isNull())
        RCExUtil::throwExNullPtr(); // here, and not on the manager's thread
    LkGuard const guard(_lock);
    LiUuid const uuid = property->getUuid();
    if (auto const entry = _observerMap.find(uuid); entry != _observerMap.end()) {
        entry->second.observers.insert(observer);
        return;
    }
    ObjPtr<DevMDPropertyAEO> aeo(new DevMgrPropertyAEO(
        property, RCShdPtr<DevMgrPropertyObserverEng>(this), _mediator.getFifo()));
    auto const entry = _observerMap.try_emplace(uuid, Observed{property, {observer}}).first;
    try {
        property->setObserverAEO(aeo);
    } catch (...) { // the next observer registers the engine again
        _observerMap.erase(entry);
        throw;
    }
}

void DevMgrPropertyObserverEng::detach(RCShdPtr<DevMDPropertyAny> property,
                                       RCShdPtr<DevMgrPropertyObserver> observer)
{
    LkGuard const guard(_lock);
    auto const entry = _observerMap.find(property->getUuid());
    if (entry == _observerMap.end())
        return;
    entry->second.observers.erase(observer);
    if (entry->second.observers.empty()) {
        // Erase the entry first. If `setObserverAEO` throws, the next observer registers the engine
        // again.
        _observerMap.erase(entry);
        property->setObserverAEO(nullptr);
    }
}

void DevMgrPropertyObserverEng::detachAll()
{
    HashMap<LiUuid, Observed> detached; // destroys properties and observers without the lock
    {
        LkGuard const guard(_lock);
        detached.swap(_observerMap);
    }
    FirstFailure failure;
    for (auto &[uuid, observed] : detached) {
        auto &property = observed.property;
        auto &observers = observed.observers;
        while (!observers.empty()) {
            auto observer = observers.extract(observers.begin());
            failure.attempt([&observer] { observer.value() = nullptr; });
        }
        failure.attempt([&property] { property->setObserverAEO(nullptr); });
        failure.attempt([&property] { property = nullptr; });
    }
    failure.rethrow();
}

void DevMgrPropertyObserverEng::update(DevMgrPropertyObserverHint const &hint)
{
    Observers called;
    FirstFailure failure;
    failure.attempt([&] { update(hint, called); });
    // Observers that were detached meanwhile are destroyed here, without the lock.
    releaseEach(called, failure);
    failure.rethrow();
}

void DevMgrPropertyObserverEng::update(DevMgrPropertyObserverHint const &hint, Observers &called)
{
    LiUuid const uuid = hint.getProperty()->getUuid();
    FirstFailure failure;
    LkGuard const guard(_lock);
    auto const entry = _observerMap.find(uuid);
    if (entry == _observerMap.end())
        return;
    // The observers may attach and detach, and so change the set.
    called.assign(entry->second.observers.begin(), entry->second.observers.end());
    TemporaryValue const updating(_isUpdating, true);
    for (auto const &observer : called)
        if (isAttached(uuid, observer))
            failure.attempt([&] {
                try {
                    observer->update(hint);
                } catch (...) {
                    traceCaught(__FILE__, __LINE__); // only the first exception is rethrown
                    throw;
                }
            });
    failure.rethrow();
}

bool DevMgrPropertyObserverEng::isUpdating() const
{
    LkGuard const guard(_lock);
    return _isUpdating;
}

bool DevMgrPropertyObserverEng::isAttached(LiUuid const &uuid,
                                           RCShdPtr<DevMgrPropertyObserver> const &observer) const
{
    auto const entry = _observerMap.find(uuid);
    return entry != _observerMap.end() && entry->second.observers.contains(observer);
}

} // namespace Zv
