#include "resmgt/deviceManager/sequence/noopedSyncSeqProtocol.h"

namespace Zv {

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
