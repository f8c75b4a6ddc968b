#include "resmgt/deviceManager/devMgr.h"

#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/locks/lkGuard.h"

namespace Zv {

namespace {

class DevMgrImp : public DevMgr
{
public:
    DevMgrImp() : _mediator(new DevMgrMediator) {}

    ObjPtrRet<DevMgrSyncSeqAcc> createSyncSeqAcc() override
    {
        LkGuard<LkLock const> const guard(_mediator->getLock());
        return DevMgrSyncSeqAcc::create(_mediator);
    }

    ObjPtrRet<DevMgrStreamAcc> createStreamAcc() override
    {
        LkGuard<LkLock const> const guard(_mediator->getLock());
        return DevMgrStreamAcc::create(_mediator);
    }

    ObjPtrRet<DevMgrPropertyAcc> createPropertyAcc() override
    {
        LkGuard<LkLock const> const guard(_mediator->getLock());
        return DevMgrPropertyAcc::create(_mediator);
    }

    RCShdPtr<DevMDPrtcl> getPrtcl(LiString const &name) override
    {
        LkGuard<LkLock const> const guard(_mediator->getLock());
        _mediator->createPrtcl(name);
        return _mediator->getPrtcl(name);
    }

    ObjPtrRet<DevMgrSeqSupervisor> createSeqSupervisor(LiString const &config) override
    {
        return DevMgrSeqSupervisor::create(_mediator, config);
    }

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
