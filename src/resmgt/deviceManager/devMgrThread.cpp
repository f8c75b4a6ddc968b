#include "resmgt/deviceManager/devMgrThread.private.h"

#include "platform/interlocked.h"
#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"
#include "resmgt/deviceProtocol/devReceiverWait.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "zvbase/failures.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

/// Executes one entry of the queue after the other until it is told to stop.
class ANOThreadProtocol : public MtThreadProtocol
{
public:
    explicit ANOThreadProtocol(RCShdPtr<DevMgrFifo> const &fifo) : _fifo(fifo) {}

    /// An object lives on until the next one has arrived.
    void performExecute(MtThread *) override
    {
        ObjPtr<DevANO> ano;
        while (!Interlocked::loadAcquire(_stop)) {
            ano = _fifo->consume().release();
            ano->performExecute();
            ano->notify();
        }
    }

    void performStop(MtThread *) override { Interlocked::storeRelease(_stop, true); }

private:
    RCShdPtr<DevMgrFifo> _fifo;
    bool _stop = false;
};

/// Stops the thread where everything queued before has been executed.
class SynchronizedCloseANO : public DevANO
{
public:
    SynchronizedCloseANO() : _wait("DevMgr SynchronizedCloseANO") {}

    void performExecute() override
    {
        _hasArrived.post();
        _wait.post();
        _wait.wait();
    }

    /// There is one for each closing.
    virtual ObjPtrRet<DevANO> clone() const { ZV_ABORT_PROGRAM(); }

    DevReceiverWait &getWait() { return _wait; }
    /// Is posted when the thread has come here.
    LkSema &getArrival() { return _hasArrived; }

private:
    DevReceiverWait _wait;
    LkSema _hasArrived{"DevMgr SynchronizedCloseANO", 0};
};

} // namespace

DevMgrThread::DevMgrThread(RCShdPtr<DevMgrFifo> const &fifo)
    : _fifo(fifo), _protocol(new ANOThreadProtocol(fifo))
{
    auto * const close = new SynchronizedCloseANO;
    _close = ObjPtr<DevANO>(close);
    _closer = makeObj<DevSenderWait>(close->getWait());
    _hasArrived = &close->getArrival();
    _thread = MtThreadFactory::getInstance().createThread("DevMgr ANO", _protocol, true, 0);
    _relation = makeObj<PriorityRelation>("DevMgr ANO", DevMDStdAccessPrtcl::getPriority(),
                                          PriorityRelation::EQUAL, _thread->getPriority());
    try {
        _thread->start();
    } catch (...) {
        // What has failed may have come after the thread's beginning.
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
    bool const hasArrived = _hasArrived->timedWait(seconds);
    if (hasArrived)
        _closer->wait();
    _thread->stop();
    _closer->post(); // also for a thread that comes there late
    if (hasArrived)
        _thread->join();
    _end = hasArrived ? ENDED : LEFT_BEHIND;
    _fifo->close();
    return hasArrived;
}

void DevMgrThread::end()
{
    sendClose();
    _closer->wait();
    _thread->stop();
    _closer->post();
    _thread->join();
    _fifo->close();
}

/// The queue may be full of what the thread cannot execute any more.
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
