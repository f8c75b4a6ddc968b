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

/// What a device keeps to report on its own initiative. The report never runs on the device's thread, which would wait
/// there for the tree's lock while the tree may wait for the device's queue. Whichever way the device goes, executing
/// it as often as it likes, notifying it, or sending it to itself, each of them makes one report.
class ReportANO final : public DevANO
{
public:
    ReportANO(ObjPtr<DevClonableANO> prototype, RCShdPtr<DevMgrFifo> const &fifo)
        : _prototype(prototype), _fifo(fifo)
    {
        setACO(makeReport());
    }

    void performExecute() override
    {
        ObjPtr<DevACO> const spent = releaseACO();
        ObjPtr<DevACO> const report = makeReport();
        report->performExecute();
    }

private:
    ObjPtrRet<DevACO> makeReport() const { return makeObj<DevMgrACO>(_prototype->clone(), _fifo); }

    ObjPtr<DevClonableANO> _prototype;
    RCShdPtr<DevMgrFifo> _fifo;
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
    ObjPtr<DevANO> recovery = keep(_recoverANO);
    ObjPtr<DevANO> abortion = keep(_abortANO);
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

ObjPtrRet<DevANO> DevSeqPrtclUtil::keep(ObjPtr<DevClonableANO> const &prototype) const
{
    if (_fifo.isNull())
        return prototype->clone();
    return makeObj<ReportANO>(prototype->clone(), _fifo);
}

} // namespace Zv
