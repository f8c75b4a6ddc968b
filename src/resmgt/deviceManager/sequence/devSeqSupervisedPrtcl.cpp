#include "resmgt/deviceManager/sequence/devSeqSupervisedPrtcl.private.h"

#include "resmgt/deviceManager/devMgrDevice.private.h"
#include "resmgt/deviceManager/sequence/devSeqSupervision.private.h"

namespace Zv {

namespace {

using Record = DevSeqRecord;

/// Exception that a machine gets when it must no longer call its device.
class Abandoned final : public ExBase
{
public:
    Abandoned() : ExBase(__FILE__, __LINE__)
    {
        setReason("The machines of this sequence are no longer used.");
    }
    Abandoned *clone() const override { return new Abandoned(*this); }
};

/// Request that a device keeps, to report of its own accord. The device may execute it any number
/// of times, notify it, or send it to its own queue. Each of these makes one report.
class Notification final : public DevANO
{
public:
    Notification(DevSeqSupervision &supervision, std::size_t device, Record::Report report)
        : _supervision(&supervision), _device(device), _report(report)
    {
        setACO(makeACO(
            [supervision = _supervision, device, report] { supervision->report(device, report); }));
    }

    void performExecute() override
    {
        ObjPtr<DevACO> const spent = releaseACO();
        _supervision->report(_device, _report);
    }

private:
    RCShdPtr<DevSeqSupervision> _supervision;
    std::size_t _device;
    Record::Report _report;
};

} // namespace

DevSeqCompletion::DevSeqCompletion(DevSeqSupervision &supervision, std::size_t device)
    : _supervision(&supervision), _device(device)
{}

DevSeqCompletion::~DevSeqCompletion()
{
    if (_serial)
        _supervision->drop(_device, _serial, nullptr);
}

void DevSeqCompletion::begin(Record::Device const &device)
{
    _serial = device.serial;
    _span.begin("device", Record::nameOf(device.step), std::string_view(device.name));
}

void DevSeqCompletion::performExecute()
{
    _span.end();
    _supervision->complete(_device, _serial);
}

void DevSeqCompletion::performFail(std::exception_ptr const &failure)
{
    _span.end();
    _supervision->drop(_device, _serial, failure);
}

DevSeqSupervisedPrtcl::DevSeqSupervisedPrtcl(DevSeqSupervision &supervision, std::size_t device,
                                             RCShdPtr<DevMDSyncSeqPrtcl> const &prtcl,
                                             DevMgrDevice &managed)
    : _supervision(supervision), _device(device), _prtcl(prtcl), _managed(&managed)
{}

void DevSeqSupervisedPrtcl::performStart(ObjPtr<DevACO>, ObjPtr<DevANO>, ObjPtr<DevANO>)
{
    ObjPtr<DevANO> recover = makeObj<Notification>(_supervision, _device, Record::WANTS_RECOVERY);
    ObjPtr<DevANO> abort = makeObj<Notification>(_supervision, _device, Record::WANTS_ABORT);
    perform(Record::START, [&](ObjPtr<DevACO> aco) { _prtcl->performStart(aco, recover, abort); });
}

void DevSeqSupervisedPrtcl::performSync(ObjPtr<DevACO>, DtTimeMark const &mark)
{
    perform(Record::SYNC, [&](ObjPtr<DevACO> aco) { _prtcl->performSync(aco, mark); });
}

void DevSeqSupervisedPrtcl::performSync(ObjPtr<DevACO>, DtTime const &latency)
{
    perform(Record::SYNC, [&](ObjPtr<DevACO> aco) { _prtcl->performSync(aco, latency); });
}

void DevSeqSupervisedPrtcl::performRecover(ObjPtr<DevACO>)
{
    perform(Record::RECOVER, [this](ObjPtr<DevACO> aco) { _prtcl->performRecover(aco); });
}

void DevSeqSupervisedPrtcl::performStop(ObjPtr<DevACO>)
{
    perform(Record::STOP, [this](ObjPtr<DevACO> aco) { _prtcl->performStop(aco); });
}

void DevSeqSupervisedPrtcl::performAbort(ObjPtr<DevACO>)
{
    perform(Record::ABORT, [this](ObjPtr<DevACO> aco) { _prtcl->performAbort(aco); });
}

DtTime DevSeqSupervisedPrtcl::getLatency()
{
    DtTime latency;
    call(Record::LATENCY, nullptr, [&] { latency = _prtcl->getLatency(); });
    _supervision.setLatency(_device, latency);
    return latency;
}

DtTimeMark DevSeqSupervisedPrtcl::getMark()
{
    DtTimeMark mark;
    call(Record::MARK, nullptr, [&] { mark = _prtcl->getMark(); });
    return mark;
}

void DevSeqSupervisedPrtcl::stateChanged(std::int32_t state)
{
    _supervision.stateChanged(_device, state);
}

void DevSeqSupervisedPrtcl::refused(std::int32_t event)
{
    _supervision.refused(_device, event);
}

template <class Call>
void DevSeqSupervisedPrtcl::perform(Record::Step step, Call performStep)
{
    auto * const completion = new DevSeqCompletion(_supervision, _device);
    ObjPtr<DevACO> aco(completion);
    call(step, completion, [&] { performStep(aco); });
}

template <class Call>
void DevSeqSupervisedPrtcl::call(Record::Step step, DevSeqCompletion *completion, Call perform)
{
    if (!_supervision.beginCall(_device, step, completion))
        throw Abandoned();
    std::exception_ptr failure;
    try {
        DevMgrDevice::Call const managed(*_managed);
        perform();
    } catch (...) {
        failure = std::current_exception();
    }
    if (!_supervision.endCall(_device, failure))
        throw Abandoned();
}

} // namespace Zv
