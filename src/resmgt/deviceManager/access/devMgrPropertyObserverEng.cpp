#include "resmgt/deviceManager/access/devMgrPropertyObserverEng.private.h"

#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devANOQueueEntry.h"
#include "resmgt/deviceProtocol/devMDPropertyAEO.h"
#include "resmgt/locks/lkGuard.h"

namespace Zv {

namespace {

/// A change on its way to the manager's thread.
class DevMgrPropertyANO : public DevANO
{
public:
    DevMgrPropertyANO(RCShdPtr<DevMgrPropertyObserverEng> const &eng,
                      DevMgrPropertyObserverHint const &hint)
        : _eng(eng), _hint(hint)
    {}

    void performExecute() override { _eng->update(_hint); }

private:
    RCShdPtr<DevMgrPropertyObserverEng> _eng;
    DevMgrPropertyObserverHint _hint;
};

/// What an observed property holds. It keeps property and engine alive until the last observer detaches.
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

DevMgrPropertyObserver::~DevMgrPropertyObserver() noexcept(false) = default;

DevMgrPropertyObserverEng::DevMgrPropertyObserverEng(DevMgrMediator &mediator)
    : _mediator(mediator), _lock("Device Property-Observer hash map lock")
{}

void DevMgrPropertyObserverEng::attach(RCShdPtr<DevMDPropertyAny> property,
                                       RCShdPtr<DevMgrPropertyObserver> observer)
{
    LkGuard<LkLock const> const guard(_lock);
    auto const [entry, isFirst] =
        _observerMap.try_emplace(property->getUuid(), Observed{property, {}});
    entry->second.observers.insert(observer);
    if (isFirst)
        property->setObserverAEO(ObjPtr<DevMDPropertyAEO>(new DevMgrPropertyAEO(
            property, RCShdPtr<DevMgrPropertyObserverEng>(this), _mediator.getFifo())));
}

void DevMgrPropertyObserverEng::detach(RCShdPtr<DevMDPropertyAny> property,
                                       RCShdPtr<DevMgrPropertyObserver> observer)
{
    LkGuard<LkLock const> const guard(_lock);
    auto const entry = _observerMap.find(property->getUuid());
    if (entry == _observerMap.end())
        return;
    entry->second.observers.erase(observer);
    if (entry->second.observers.empty()) {
        property->setObserverAEO(nullptr);
        _observerMap.erase(entry);
    }
}

void DevMgrPropertyObserverEng::detachAll()
{
    LkGuard<LkLock const> const guard(_lock);
    for (auto &[uuid, observed] : _observerMap)
        observed.property->setObserverAEO(nullptr);
    _observerMap.clear();
}

void DevMgrPropertyObserverEng::update(DevMgrPropertyObserverHint const &hint)
{
    LkGuard<LkLock const> const guard(_lock);
    auto const entry = _observerMap.find(hint.getProperty()->getUuid());
    if (entry == _observerMap.end())
        return;
    for (auto const &attached : entry->second.observers) {
        RCShdPtr<DevMgrPropertyObserver> const observer = attached;
        observer->update(hint);
    }
}

} // namespace Zv
