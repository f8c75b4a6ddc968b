#include "resmgt/deviceManager/devMgrFifo.h"

namespace Zv {

DevMgrFifo::DevMgrFifo(int capacity) : DevANOFifo("DevMgrFifo", capacity) {}

DevMgrFifo::~DevMgrFifo() = default;

DevMgrACO::DevMgrACO(ObjPtr<DevANO> ano, RCShdPtr<DevMgrFifo> fifo) : _ano(ano), _fifo(fifo) {}

DevMgrACO::~DevMgrACO() = default;

void DevMgrACO::performExecute()
{
    DevANOQueueEntry entry(_ano);
    _fifo->admit(entry);
}

} // namespace Zv
