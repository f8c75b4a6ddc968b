// Sequence protocol without a device (extenders).
#pragma once

#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"

namespace Zv {

/// A device that does nothing. It destroys the completions without running them, so no step of it
/// is ever finished. Its latency is zero, and its mark is unset.
class ZVRESMGT_EXPORT NoopedSyncSeqProtocol : public DevMDSyncSeqPrtcl
{
public:
    NoopedSyncSeqProtocol() = default;

    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override;
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark) override;
    void performSync(ObjPtr<DevACO> aco, DtTime const &latency) override;
    void performRecover(ObjPtr<DevACO> aco) override;
    void performStop(ObjPtr<DevACO> aco) override;
    void performAbort(ObjPtr<DevACO> aco) override;
    DtTime getLatency() override;
    DtTimeMark getMark() override;

protected:
    ~NoopedSyncSeqProtocol() override;
};

} // namespace Zv
