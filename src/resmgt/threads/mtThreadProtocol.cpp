#include "resmgt/threads/mtThreadProtocol.h"

namespace Zv {

MtThreadProtocol::~MtThreadProtocol() noexcept(false) = default;

void MtThreadProtocol::performAttach(MtThread *) {}

void MtThreadProtocol::performDetach(MtThread *) {}

void MtThreadProtocol::performCanceled(MtThread *) {}

void MtThreadProtocol::performStop(MtThread *) {}

} // namespace Zv
