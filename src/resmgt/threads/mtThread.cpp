#include "resmgt/threads/mtThread.h"

#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtSpecificData.h"
#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"

namespace Zv {

// ---- MtThreadProtocol

MtThreadProtocol::~MtThreadProtocol() noexcept(false) = default;

void MtThreadProtocol::performAttach(MtThread *) {}

void MtThreadProtocol::performDetach(MtThread *) {}

void MtThreadProtocol::performCanceled(MtThread *) {}

void MtThreadProtocol::performStop(MtThread *) {}

// ---- MtThread

constinit ZvPlatform::Shared<bool> MtThread::_canStart{false};

MtThread::~MtThread() noexcept(false) = default;

bool MtThread::isProcessorPlaceable() const
{
    return false;
}

int MtThread::getProcessorNb() const
{
    return -1;
}

void MtThread::setProcessorNb(int)
{
    ZV_THROW(MtEx::ExNotImplemented, "MtThread::setProcessorNb");
}

bool MtThread::canStart() const
{
    return _canStart.load(ZvPlatform::Order::RELAXED);
}

void MtThread::freeSpecificData()
{
    MtSpecificDataRegistry::getInstance().removeSpecificData();
}

void MtThread::allowStart()
{
    _canStart.store(true, ZvPlatform::Order::RELAXED);
}

} // namespace Zv
