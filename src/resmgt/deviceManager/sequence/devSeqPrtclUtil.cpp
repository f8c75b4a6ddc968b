#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"

#include "resmgt/deviceManager/devMgrACO.h"

namespace Zv {

namespace {

class NullANO final : public DevClonableANO
{
public:
    void performExecute() override {}
    ObjPtrRet<DevClonableANO> clone() const override { return makeObj<NullANO>(); }
};

} // namespace

DevSeqPrtclUtil::DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl> prtcl)
    : DevSeqPrtclUtil(prtcl, nullptr, makeObj<NullANO>(), makeObj<NullANO>(), makeObj<NullANO>(),
                      makeObj<NullANO>(), makeObj<NullANO>(), makeObj<NullANO>())
{}

DevSeqPrtclUtil::DevSeqPrtclUtil(RCShdPtr<DevMDSyncSeqPrtcl> prtcl, RCShdPtr<DevMgrFifo> fifo,
                                 ObjPtr<DevClonableANO> ready, ObjPtr<DevClonableANO> lock,
                                 ObjPtr<DevClonableANO> aborted, ObjPtr<DevClonableANO> stopped,
                                 ObjPtr<DevClonableANO> recover, ObjPtr<DevClonableANO> abort)
    : _prtcl(prtcl),
      _fifo(fifo),
      _readyANO(ready),
      _lockANO(lock),
      _abortedANO(aborted),
      _stoppedANO(stopped),
      _recoverANO(recover),
      _abortANO(abort)
{}

DevSeqPrtclUtil::~DevSeqPrtclUtil() = default;

void DevSeqPrtclUtil::start()
{
    ObjPtr<DevACO> aco = complete(_readyANO);
    ObjPtr<DevANO> recovery = _recoverANO->clone();
    ObjPtr<DevANO> abortion = _abortANO->clone();
    _prtcl->performStart(aco, recovery, abortion);
}

void DevSeqPrtclUtil::sync(DtTime const &latency)
{
    _prtcl->performSync(complete(_lockANO), latency);
}

void DevSeqPrtclUtil::sync(DtTimeMark const &mark)
{
    _prtcl->performSync(complete(_lockANO), mark);
}

void DevSeqPrtclUtil::recover()
{
    _prtcl->performRecover(complete(_readyANO));
}

void DevSeqPrtclUtil::stop()
{
    _prtcl->performStop(complete(_stoppedANO));
}

void DevSeqPrtclUtil::abort()
{
    _prtcl->performAbort(complete(_abortedANO));
}

DtTime DevSeqPrtclUtil::getLatency()
{
    return _prtcl->getLatency();
}

DtTimeMark DevSeqPrtclUtil::getMark()
{
    return _prtcl->getMark();
}

ObjPtrRet<DevACO> DevSeqPrtclUtil::complete(ObjPtr<DevClonableANO> const &prototype) const
{
    return makeObj<DevMgrACO>(prototype->clone(), _fifo);
}

} // namespace Zv
