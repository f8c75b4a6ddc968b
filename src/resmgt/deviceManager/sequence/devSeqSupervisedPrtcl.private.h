// A device of a supervised sequence, as its machine calls it.
#pragma once

#include "resmgt/deviceManager/sequence/devSeqRecord.private.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"
#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/traceEvents.h"

#include <cstddef>
#include <cstdint>
#include <exception>

namespace Zv {

class DevMgrDevice;
class DevSeqSupervision;

/// The completion of one step of one device. It is run, told of a failure, or destroyed. Only the
/// first of these events counts.
class DevSeqCompletion final : public DevFailableACO
{
public:
    DevSeqCompletion(DevSeqSupervision &supervision, std::size_t device);
    ~DevSeqCompletion() override;

    void performExecute() override;
    void performFail(std::exception_ptr const &failure) override;

    /// Records that the device is asked for its present step.
    void begin(DevSeqRecord::Device const &device);

private:
    RCShdPtr<DevSeqSupervision> _supervision;
    std::size_t _device;
    std::uint32_t _serial = 0; // of the step; 0 before the device is asked for it
    TraceSpan _span;
};

/// Calls a device on behalf of its machine, and keeps the record. The device gets the completions
/// and notifications of the supervision. Those that the machine passes are not used.
class DevSeqSupervisedPrtcl final : public DevMDSyncSeqPrtcl, public DevSeqSMGuard
{
public:
    DevSeqSupervisedPrtcl(DevSeqSupervision &supervision, std::size_t device,
                          RCShdPtr<DevMDSyncSeqPrtcl> const &prtcl, DevMgrDevice &managed);

    void performStart(ObjPtr<DevACO>, ObjPtr<DevANO>, ObjPtr<DevANO>) override;
    void performSync(ObjPtr<DevACO>, DtTimeMark const &mark) override;
    void performSync(ObjPtr<DevACO>, DtTime const &latency) override;
    void performRecover(ObjPtr<DevACO>) override;
    void performStop(ObjPtr<DevACO>) override;
    void performAbort(ObjPtr<DevACO>) override;
    DtTime getLatency() override;
    DtTimeMark getMark() override;

    void stateChanged(std::int32_t state) override;
    void refused(std::int32_t event) override;

private:
    /// Calls the device for a step, with a new completion.
    template <class Call>
    void perform(DevSeqRecord::Step step, Call call);
    template <class Call>
    void call(DevSeqRecord::Step step, DevSeqCompletion *completion, Call call);

    DevSeqSupervision &_supervision; // owns the tree, and so this object
    std::size_t _device;
    RCShdPtr<DevMDSyncSeqPrtcl> _prtcl;
    RCShdPtr<DevMgrDevice> _managed; // the manager's object for `_prtcl`
};

} // namespace Zv
