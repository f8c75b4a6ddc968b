// A sequence protocol without a device.
#pragma once

#include "resmgt/deviceProtocol/devMDSyncSeqPrtcl.h"
#include "resmgt/export.h"

namespace Zv {

/// Destroys whatever it is given and does nothing, so that nothing ever completes. Its latency is
/// zero, its mark the default one.
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
