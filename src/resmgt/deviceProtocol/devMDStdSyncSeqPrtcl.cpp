#include "resmgt/deviceProtocol/devMDStdSyncSeqPrtcl.h"

namespace Zv {

DevMDStdSyncSeqANOFactory::~DevMDStdSyncSeqANOFactory() noexcept(false) = default;

DevMDStdSyncSeqPrtcl::DevMDStdSyncSeqPrtcl(LiString const &name, RCShdPtr<DevMDStdFifo> fifo,
                                           ObjPtr<DevMDStdSyncSeqANOFactory> anoFactory)
    : _name(name), _fifo(fifo), _anoFactory(anoFactory)
{}

DevMDStdSyncSeqPrtcl::~DevMDStdSyncSeqPrtcl() = default;

void DevMDStdSyncSeqPrtcl::performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover,
                                        ObjPtr<DevANO> abort)
{
    send(_anoFactory->createStartANO(recover, abort), aco);
}

void DevMDStdSyncSeqPrtcl::performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark)
{
    send(_anoFactory->createSyncANO(mark), aco);
}

void DevMDStdSyncSeqPrtcl::performSync(ObjPtr<DevACO> aco, DtTime const &latency)
{
    send(_anoFactory->createSyncANO(latency), aco);
}

void DevMDStdSyncSeqPrtcl::performRecover(ObjPtr<DevACO> aco)
{
    send(_anoFactory->createRecoverANO(), aco);
}

void DevMDStdSyncSeqPrtcl::performStop(ObjPtr<DevACO> aco)
{
    send(_anoFactory->createStopANO(), aco);
}

void DevMDStdSyncSeqPrtcl::performAbort(ObjPtr<DevACO> aco)
{
    send(_anoFactory->createAbortANO(), aco);
}

void DevMDStdSyncSeqPrtcl::send(ObjPtr<DevMDStdANO> ano, ObjPtr<DevACO> aco)
{
    ano->setBaseACO(aco);
    DevANOQueueEntry entry(ano);
    _fifo->admit(entry);
}

} // namespace Zv
