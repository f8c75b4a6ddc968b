#include "resmgt/deviceProtocol/devMDStdThreadProtocol.h"

#include "platform/interlocked.h"
#include "zvbase/exBase.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

void execute(ObjPtr<DevANO> ano)
{
    ano->performExecute();
    ano->notify();
}

} // namespace

DevMDStdThreadProtocol::DevMDStdThreadProtocol(RCShdPtr<DevMDStdFifo> const &fifo) : _fifo(fifo) {}

DevMDStdThreadProtocol::~DevMDStdThreadProtocol() = default;

void DevMDStdThreadProtocol::consume()
{
    execute(_fifo->consume().release());
}

bool DevMDStdThreadProtocol::tryConsume()
{
    DevANOQueueEntry entry;
    if (!_fifo->tryConsume(entry))
        return false;
    execute(entry.release());
    return true;
}

DevMDStdLoopThreadProtocol::DevMDStdLoopThreadProtocol(RCShdPtr<DevMDStdFifo> const &fifo)
    : DevMDStdThreadProtocol(fifo)
{}

DevMDStdLoopThreadProtocol::~DevMDStdLoopThreadProtocol() = default;

void DevMDStdLoopThreadProtocol::performExecute(MtThread *)
{
    while (!Interlocked::loadAcquire(_stopRequested)) {
        // No clause for everything: an exception that ends the thread from outside must pass.
        try {
            consume();
        } catch (ExBase const &) {
            performFailed(std::current_exception());
        } catch (std::exception const &) {
            performFailed(std::current_exception());
        }
    }
}

void DevMDStdLoopThreadProtocol::performStop(MtThread *)
{
    Interlocked::storeRelease(_stopRequested, true);
}

void DevMDStdLoopThreadProtocol::performFailed(std::exception_ptr const &failure)
{
    std::rethrow_exception(failure);
}

} // namespace Zv
