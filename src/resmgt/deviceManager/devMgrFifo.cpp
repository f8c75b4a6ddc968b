#include "resmgt/deviceManager/devMgrFifo.h"

namespace Zv {

DevMgrFifo::DevMgrFifo(int capacity) : DevANOFifo("DevMgrFifo", capacity) {}

DevMgrFifo::~DevMgrFifo() = default;

} // namespace Zv
