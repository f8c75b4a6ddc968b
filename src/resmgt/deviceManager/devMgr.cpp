#include "resmgt/deviceManager/devMgr.h"

#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/locks/lkGuard.h"

namespace Zv {

namespace {

/// Each operation that may open a device, or wait for one that is being opened, has its own
/// reference to the mediator. So the manager may be closed and destroyed while a thread hangs
/// there.
class DevMgrImp : public DevMgr
{
public:
    DevMgrImp() : _mediator(new DevMgrMediator) {}

    ObjPtrRet<DevMgrSyncSeqAcc> createSyncSeqAcc() override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        LkGuard const guard(mediator->getLock());
        mediator->expectNotClosed();
        return DevMgrSyncSeqAcc::create(mediator);
    }

    ObjPtrRet<DevMgrStreamAcc> createStreamAcc() override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        LkGuard const guard(mediator->getLock());
        mediator->expectNotClosed();
        return DevMgrStreamAcc::create(mediator);
    }

    ObjPtrRet<DevMgrPropertyAcc> createPropertyAcc() override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        LkGuard const guard(mediator->getLock());
        mediator->expectNotClosed();
        return DevMgrPropertyAcc::create(mediator);
    }

    RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        return mediator->obtainPrtcl(name);
    }

    ObjPtrRet<DevMgrSeqSupervisor> createSeqSupervisor(LiString const &config) override
    {
        RCShdPtr<DevMgrMediator> const mediator = _mediator;
        return DevMgrSeqSupervisor::create(mediator, config);
    }

    void setFailureHandler(RCShdPtr<DevMgrFailureHandler> handler) override
    {
        _mediator->setFailureHandler(handler);
    }

    DevMgrCloseReport close(double seconds) override { return _mediator->close(seconds); }

private:
    RCShdPtr<DevMgrMediator> _mediator;
};

} // namespace

DevMgr::~DevMgr() noexcept(false) = default;

ObjPtrRet<DevMgr> DevMgr::create()
{
    return makeObj<DevMgrImp>();
}

} // namespace Zv
