#include "resmgt/deviceProtocol/devMDStdThreadProtocol.h"

#include "resmgt/deviceProtocol/devANOTrace.h"
#include "resmgt/threads/mtThread.h"
#include "zvbase/exBase.h"
#include "zvbase/platform/shared.h"

namespace Zv {

namespace {

void execute(ObjPtr<DevANO> ano)
{
    DevANOTrace::Execution const execution(*ano);
    try {
        ano->performExecute();
    } catch (...) {
        if (!ano->notifyFailure(std::current_exception()))
            throw;
        return;
    }
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

bool DevMDStdThreadProtocol::timedConsume(double seconds)
{
    DevANOQueueEntry entry;
    if (!_fifo->timedConsume(entry, seconds))
        return false;
    execute(entry.release());
    return true;
}

DevMDStdLoopThreadProtocol::DevMDStdLoopThreadProtocol(RCShdPtr<DevMDStdFifo> const &fifo)
    : DevMDStdThreadProtocol(fifo)
{}

DevMDStdLoopThreadProtocol::~DevMDStdLoopThreadProtocol() = default;

// There is no `catch (...)`, because the exception with which the system cancels a thread must
// pass.
template <class Action>
void DevMDStdLoopThreadProtocol::attempt(Action action)
{
    auto const handle = [this] {
        if (_isDeviceGone)
            throw;
        performFailed(std::current_exception());
    };
    try {
        action();
    } catch (ExBase const &) {
        handle();
    } catch (std::exception const &) {
        handle();
    }
}

void DevMDStdLoopThreadProtocol::performExecute(MtThread *)
{
    while (!_stopRequested.load(ZvPlatform::Order::ACQUIRE)) {
        double seconds = NO_WORK; // if the work fails, the next request is served first
        attempt([&] { seconds = performWork(); });
        attempt([&] { serve(seconds); });
    }
}

// A device that is destroyed on its own thread stops that thread from there.
void DevMDStdLoopThreadProtocol::performStop(MtThread *thread)
{
    if (thread && thread->getThreadId().isCurrentThread())
        _isDeviceGone = true;
    _stopRequested.store(true, ZvPlatform::Order::RELEASE);
}

double DevMDStdLoopThreadProtocol::performWork()
{
    return NO_WORK;
}

void DevMDStdLoopThreadProtocol::performFailed(std::exception_ptr const &failure)
{
    std::rethrow_exception(failure);
}

void DevMDStdLoopThreadProtocol::serve(double seconds)
{
    if (seconds == NO_WORK)
        consume();
    else if (seconds > 0)
        timedConsume(seconds);
    else
        tryConsume();
}

} // namespace Zv
