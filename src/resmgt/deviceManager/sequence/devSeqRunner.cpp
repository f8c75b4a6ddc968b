#include "resmgt/deviceManager/sequence/devSeqRunner.private.h"

#include "resmgt/deviceManager/sequence/devSeqWaiters.private.h"
#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "zvbase/traceCaught.private.h"

#include <utility>

namespace Zv {

void DevSeqRunner::appoint(unsigned number)
{
    _number = number;
    _thread.reset();
    _isInObserver = false;
    setBusy();
}

void DevSeqRunner::enter(unsigned number)
{
    if (isPresent(number))
        _thread.setCurrentThread();
}

void DevSeqRunner::setBusy()
{
    _isBusy = true;
    proceed();
}

void DevSeqRunner::proceed()
{
    _busySince = DevSeqWaiters::now();
}

void DevSeqRunner::setInObserver(bool isIn)
{
    _isInObserver = isIn;
    proceed();
}

void DevSeqRunnerThread::start(ObjPtr<MtThreadProtocol> body)
{
    ObjPtr<MtThread> thread =
        MtThreadFactory::getInstance().createThread("DevMgr Seq", body, true, 0);
    ObjPtr<PriorityRelation> relation =
        makeObj<PriorityRelation>("DevMgr Seq", DevMDStdAccessPrtcl::getPriority(),
                                  PriorityRelation::EQUAL, thread->getPriority());
    try {
        thread->start();
    } catch (...) {
        // `start` may throw after the thread has begun to run.
        if (!thread->isRunning())
            throw;
        traceCaught(__FILE__, __LINE__);
    }
    leaveBehind();
    _thread = std::move(thread);
    _relation = std::move(relation);
}

void DevSeqRunnerThread::join()
{
    _thread->join();
    _relation = nullptr;
    _thread = nullptr;
}

void DevSeqRunnerThread::leaveBehind()
{
    static_cast<void>(_thread.release());
    static_cast<void>(_relation.release());
}

} // namespace Zv
