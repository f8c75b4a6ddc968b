#include "resmgt/deviceManager/devMgrFifo.h"

#include "resmgt/deviceManager/devMgrFifo.private.h"
#include "resmgt/deviceProtocol/devANOTrace.h"
#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/deviceProtocol/devReceiverWait.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkGuard.h"
#include "resmgt/locks/lkLock.h"
#include "resmgt/locks/lkSema.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadStart.private.h"
#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"
#include "zvbase/threadAnnotations.h"
#include "zvbase/trace.h"
#include "zvbase/traceCaught.private.h"

#include <exception>

namespace Zv {

// ---- DevMgrFifo, DevMgrACO

DevMgrFifo::DevMgrFifo(int capacity) : DevANOFifo("DevMgrFifo", capacity) {}

DevMgrFifo::~DevMgrFifo() = default;

DevMgrACO::DevMgrACO(ObjPtr<DevANO> ano, RCShdPtr<DevMgrFifo> fifo) : _ano(ano), _fifo(fifo) {}

DevMgrACO::~DevMgrACO() = default;

void DevMgrACO::performExecute()
{
    DevANOQueueEntry entry(_ano);
    _fifo->admit(entry);
}

// ---- DevMgrThread

/// Executes the requests of the queue, one after the other, until it is told to stop.
class ANOThreadProtocol : public MtThreadProtocol
{
public:
    explicit ANOThreadProtocol(RCShdPtr<DevMgrFifo> const &fifo)
        : _fifo(fifo), _handlerLock("DevMgr failure handler")
    {}

    /// Destroys a request only when the next one has arrived.
    void performExecute(MtThread *) override
    {
        ObjPtr<DevANO> ano;
        while (_end.load(ZvPlatform::Order::RELAXED) == NOT_ENDED) {
            DevANOQueueEntry next(_fifo->consume());
            attempt(nullptr, [&ano] { ano = nullptr; });
            ano = next.release();
            attempt(ano.get(), [&ano] {
                DevANOTrace::Execution const execution(*ano);
                ano->performExecute();
                ano->notify();
            });
        }
        if (_end.load(ZvPlatform::Order::RELAXED) == LEFT_BEHIND)
            attempt(nullptr, [this] { _fifo->close(); });
    }

    /// Makes the thread end, and close the queue then.
    void leaveBehind() { _end.store(LEFT_BEHIND, ZvPlatform::Order::RELAXED); }

    void performStop(MtThread *) override
    {
        End none = NOT_ENDED;
        _end.compare_exchange_strong(none, STOPPED, ZvPlatform::Order::RELAXED,
                                     ZvPlatform::Order::RELAXED);
    }

    void setFailureHandler(RCShdPtr<DevMgrFailureHandler> handler)
    {
        // The former handler is destroyed with the argument, without the lock.
        LkGuard const guard(_handlerLock);
        handler.swap(_handler);
    }

private:
    enum End
    {
        NOT_ENDED,
        STOPPED,
        LEFT_BEHIND
    };

    template <class Action>
    void attempt(DevANO const *ano, Action action)
    {
        try {
            action();
        } catch (...) {
            if (!std::current_exception()) // the system cancels this thread
                throw;
            DevMgrFailure const failure = describe(ano);
            RCShdPtr<DevMgrFailureHandler> const handler = getHandler();
            if (handler.isNull())
                throw;
            handler->handle(failure);
        }
    }

    /// Returns a description of the caught exception, and writes it to the trace.
    static DevMgrFailure describe(DevANO const *ano) noexcept
    {
        DevMgrFailure failure;
        std::exception_ptr const exception = std::current_exception();
        try {
            if (auto const * const source = dynamic_cast<DevMgrFailureSource const *>(ano))
                failure = source->getFailure();
        } catch (...) {
            // There is no memory for a description.
        }
        failure.exception = exception;
        try {
            ZV_TRACE(*Trace::MainTraceLevel, "Unhandled exception on \"DevMgr ANO\". " << failure);
        } catch (...) {
            // There is no memory for the line.
        }
        return failure;
    }

    RCShdPtr<DevMgrFailureHandler> getHandler() const
    {
        LkGuard const guard(_handlerLock);
        return _handler;
    }

    RCShdPtr<DevMgrFifo> _fifo;
    LkLock _handlerLock;
    RCShdPtr<DevMgrFailureHandler> _handler ZV_GUARDED_BY(_handlerLock);
    ZvPlatform::Shared<End> _end{NOT_ENDED};
};

/// Semaphores by which the closing thread and the manager's thread meet. Both own them, because each
/// of the two may be the last one that uses them.
struct DevMgrMeeting : RCBase<LkCounter<long>>
{
    DevReceiverWait wait{"DevMgr SynchronizedCloseANO"};
    LkSema hasArrived{"DevMgr SynchronizedCloseANO", 0};
};

namespace {

/// Blocks the manager's thread when it has executed all requests that were queued before, until the
/// closing thread has stopped it.
class SynchronizedCloseANO : public DevANO
{
public:
    explicit SynchronizedCloseANO(RCShdPtr<DevMgrMeeting> const &meeting) : _meeting(meeting) {}

    void performExecute() override
    {
        _meeting->hasArrived.post();
        _meeting->wait.post();
        _meeting->wait.wait();
    }

    /// Must not be called. Each closing has a request of its own.
    virtual ObjPtrRet<DevANO> clone() const { ZV_ABORT_PROGRAM(); }

private:
    RCShdPtr<DevMgrMeeting> _meeting;
};

} // namespace

DevMgrThread::DevMgrThread(RCShdPtr<DevMgrFifo> const &fifo)
    : _fifo(fifo), _meeting(makeShd<DevMgrMeeting>())
{
    auto * const protocol = new ANOThreadProtocol(fifo);
    _protocol = ObjPtr<MtThreadProtocol>(protocol);
    _executor = protocol;
    auto * const close = new SynchronizedCloseANO(_meeting);
    _close = ObjPtr<DevANO>(close);
    _last = close;
    _closer = makeObj<DevSenderWait>(_meeting->wait);
    _thread = MtThreadFactory::getInstance().createThread("DevMgr ANO", _protocol, true, 0);
    _relation = makeObj<PriorityRelation>("DevMgr ANO", DevMDStdAccessPrtcl::getPriority(),
                                          PriorityRelation::EQUAL, _thread->getPriority());
    try {
        startWithoutMeeting(*_thread);
    } catch (...) {
        // The start may fail after the thread has begun to run.
        if (_thread->isRunning())
            end();
        throw;
    }
}

DevMgrThread::~DevMgrThread() noexcept(false)
{
    if (_end == NOT_ENDED)
        end();
    else if (_end == LEFT_BEHIND)
        static_cast<void>(_thread.release());
}

bool DevMgrThread::isCurrentThread() const
{
    return _thread->getThreadId().isCurrentThread();
}

bool DevMgrThread::end(double seconds)
{
    sendClose();
    bool const hasArrived = _meeting->hasArrived.timedWait(seconds);
    _end = hasArrived ? ENDED : LEFT_BEHIND;
    try {
        if (hasArrived) {
            finish();
        } else {
            _executor->leaveBehind();
            _thread->stop();
            _closer->post(); // for a thread that executes `_close` late
            _fifo->leaveBehind(_last);
        }
    } catch (...) { // thrown by the destructor of a request
        traceCaught(__FILE__, __LINE__);
    }
    return hasArrived;
}

void DevMgrThread::setFailureHandler(RCShdPtr<DevMgrFailureHandler> const &handler)
{
    _executor->setFailureHandler(handler);
}

void DevMgrThread::end()
{
    sendClose();
    finish();
}

void DevMgrThread::finish()
{
    _closer->wait();
    _thread->stop();
    _closer->post();
    _thread->join();
    _fifo->close();
}

/// Queues `_close` even if the queue is full, because a thread that hangs never makes room.
void DevMgrThread::sendClose()
{
    DevANOQueueEntry entry(_close);
    try {
        _fifo->admit(entry);
    } catch (...) {
        _close = entry.release();
        throw;
    }
}

} // namespace Zv
