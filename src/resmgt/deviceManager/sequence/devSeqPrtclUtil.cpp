#include "resmgt/deviceManager/sequence/devSeqPrtclUtil.h"

#include "resmgt/deviceManager/devMgrFifo.h"
#include "zvbase/traceEvents.h"

#include <utility>

namespace Zv {

namespace {

class NullANO final : public DevClonableANO
{
public:
    void performExecute() override {}
    ObjPtrRet<DevClonableANO> clone() const override { return makeObj<NullANO>(); }
};

/// Queues the reports of one kind that a device makes of its own accord. They are queued even if
/// the queue is full, because the calling thread may hold the tree's lock. If enough of them wait,
/// further ones are dropped, so that a device that reports again and again cannot fill the memory.
class Reports : public RCBase<LkCounter<long>>
{
public:
    Reports(ObjPtr<DevClonableANO> prototype, RCShdPtr<DevMgrFifo> const &fifo)
        : _prototype(prototype), _fifo(fifo)
    {}

    void send()
    {
        if (_nbWaiting.getValue() >= DevSeqPrtclUtil::MAX_WAITING_REPORTS)
            return;
        DevANOQueueEntry entry(makeObj<Waiting>(*this));
        _fifo->admit(entry);
    }

private:
    /// A report in the queue. It counts until it is executed or destroyed.
    class Waiting final : public DevANO
    {
    public:
        explicit Waiting(Reports &reports) : _reports(&reports), _ano(reports._prototype->clone())
        {
            ++_reports->_nbWaiting;
        }
        ~Waiting() override { leave(); }

        void performExecute() override
        {
            leave();
            _ano->performExecute();
        }

    private:
        void leave()
        {
            if (RCShdPtr<Reports> const reports = std::move(_reports); !reports.isNull())
                --reports->_nbWaiting;
        }

        RCShdPtr<Reports> _reports; // null when the report no longer counts
        ObjPtr<DevClonableANO> _ano;
    };

    ObjPtr<DevClonableANO> _prototype;
    RCShdPtr<DevMgrFifo> _fifo;
    LkCounter<long> _nbWaiting;
};

/// Request that a device keeps, to report of its own accord. The device may execute it any number
/// of times, notify it, or send it to its own queue. Each of these makes one report. The report
/// never runs on the device's thread. There it would wait for the tree's lock, while the tree may
/// wait for the device's queue.
class ReportANO final : public DevANO
{
public:
    ReportANO(ObjPtr<DevClonableANO> prototype, RCShdPtr<DevMgrFifo> const &fifo)
        : _reports(makeShd<Reports>(prototype, fifo))
    {
        setACO(makeACO([reports = _reports] { reports->send(); }));
    }

    void performExecute() override
    {
        ObjPtr<DevACO> const spent = releaseACO();
        _reports->send();
    }

private:
    RCShdPtr<Reports> _reports;
};

/// Completion of a step that a `TraceSession` shows.
class TracedACO final : public DevACO
{
public:
    TracedACO(ObjPtr<DevACO> aco, char const *step, LiString const &device) : _aco(aco)
    {
        _span.begin("device", step, std::string_view(device));
    }

    void performExecute() override
    {
        _span.end();
        _aco->performExecute();
    }

private:
    ObjPtr<DevACO> _aco;
    TraceSpan _span;
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
    ObjPtr<DevACO> aco = complete(_readyANO, "start");
    ObjPtr<DevANO> recovery = keep(_recoverANO);
    ObjPtr<DevANO> abortion = keep(_abortANO);
    _prtcl->performStart(aco, recovery, abortion);
}

void DevSeqPrtclUtil::sync(DtTime const &latency)
{
    _prtcl->performSync(complete(_lockANO, "sync"), latency);
}

void DevSeqPrtclUtil::sync(DtTimeMark const &mark)
{
    _prtcl->performSync(complete(_lockANO, "sync"), mark);
}

void DevSeqPrtclUtil::recover()
{
    _prtcl->performRecover(complete(_readyANO, "recover"));
}

void DevSeqPrtclUtil::stop()
{
    _prtcl->performStop(complete(_stoppedANO, "stop"));
}

void DevSeqPrtclUtil::abort()
{
    _prtcl->performAbort(complete(_abortedANO, "abort"));
}

DtTime DevSeqPrtclUtil::getLatency()
{
    return _prtcl->getLatency();
}

DtTimeMark DevSeqPrtclUtil::getMark()
{
    return _prtcl->getMark();
}

ObjPtrRet<DevACO> DevSeqPrtclUtil::complete(ObjPtr<DevClonableANO> const &prototype,
                                            char const *step) const
{
    ObjPtr<DevACO> aco = makeObj<DevMgrACO>(prototype->clone(), _fifo);
    // Without a queue, the completion is not the one that the device gets.
    if (TraceEvents::isOn() && !_fifo.isNull()) [[unlikely]]
        return makeObj<TracedACO>(aco, step, _name);
    return aco;
}

ObjPtrRet<DevANO> DevSeqPrtclUtil::keep(ObjPtr<DevClonableANO> const &prototype) const
{
    if (_fifo.isNull())
        return prototype->clone();
    return makeObj<ReportANO>(prototype->clone(), _fifo);
}

// ---- NoopedSyncSeqProtocol

NoopedSyncSeqProtocol::~NoopedSyncSeqProtocol() = default;

void NoopedSyncSeqProtocol::performStart(ObjPtr<DevACO>, ObjPtr<DevANO>, ObjPtr<DevANO>) {}
void NoopedSyncSeqProtocol::performSync(ObjPtr<DevACO>, DtTimeMark const &) {}
void NoopedSyncSeqProtocol::performSync(ObjPtr<DevACO>, DtTime const &) {}
void NoopedSyncSeqProtocol::performRecover(ObjPtr<DevACO>) {}
void NoopedSyncSeqProtocol::performStop(ObjPtr<DevACO>) {}
void NoopedSyncSeqProtocol::performAbort(ObjPtr<DevACO>) {}

DtTime NoopedSyncSeqProtocol::getLatency()
{
    return DtTime();
}

DtTimeMark NoopedSyncSeqProtocol::getMark()
{
    return DtTimeMark();
}

} // namespace Zv
