#include "resmgt/deviceManager/sequence/devSeqRunner.private.h"

#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadStart.private.h"
#include "zvbase/scope.private.h"
#include "zvbase/sleeper.h"
#include "zvbase/traceCaught.private.h"

#include <algorithm>
#include <utility>

namespace Zv {

// ---- DevSeqWaiters

DevSeqWaiters::DevSeqWaiters()
    : _work("DevSeqSupervision work", LkPulse::WAKE_ALL),
      _changed("DevSeqSupervision changed", LkPulse::WAKE_ALL)
{}

double DevSeqWaiters::now()
{
    return Sleeper::getInstance().getTime();
}

void DevSeqWaiters::waitForWork(Guard const &guard, double moment)
{
    wait(_work, _nbRunners, guard, moment);
}

void DevSeqWaiters::waitForChange(Guard const &guard, double moment)
{
    wait(_changed, _nbClients, guard, moment);
}

void DevSeqWaiters::wakeRunner() const
{
    if (_nbRunners)
        _work.pulse();
}

void DevSeqWaiters::wakeClients() const
{
    if (_nbClients)
        _changed.pulse();
}

void DevSeqWaiters::wait(LkPulse const &pulse, std::size_t &nbWaiting, Guard const &guard,
                         double moment)
{
    double const seconds = std::clamp(moment - now(), 0.001, LONGEST_WAIT);
    ++nbWaiting;
    AtScopeEnd const leaving([&nbWaiting] { --nbWaiting; });
    static_cast<void>(pulse.timedWaitNextPulse(guard, seconds)); // the caller looks at the record
}

// ---- DevSeqRunner, DevSeqRunnerThread

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
        startWithoutMeeting(*thread);
    } catch (...) {
        // The start may fail after the thread has begun to run.
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
