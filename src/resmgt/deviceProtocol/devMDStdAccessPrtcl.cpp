#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"

#include "resmgt/deviceProtocol/devReceiverWait.h"
#include "resmgt/locks/lkNamedSema.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadStart.private.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/scope.private.h"

namespace Zv {

namespace {

/// Wakes the thread that opens the device when the first request has ended, and passes it the
/// exception of that request.
class OpenedACO final : public DevFailableACO
{
public:
    OpenedACO(LkUnnamedSema &ended, std::exception_ptr &failure) : _ended(ended), _failure(failure)
    {}

    void performExecute() override { _ended.post(); }
    void performFail(std::exception_ptr const &failure) override
    {
        _failure = failure;
        _ended.post();
    }

private:
    LkUnnamedSema &_ended;
    std::exception_ptr &_failure;
};

/// Blocks the device's thread after its last request, until the thread has been told to stop.
class SynchronizeACO final : public DevFailableACO
{
public:
    SynchronizeACO(LiString const &name, std::exception_ptr &failure)
        : _receiver(name), _failure(failure)
    {}

    void performExecute() override
    {
        _receiver.post();
        _receiver.wait();
    }
    void performFail(std::exception_ptr const &failure) override
    {
        _failure = failure;
        performExecute();
    }
    ObjPtrRet<DevSenderWait> createSender() { return makeObj<DevSenderWait>(_receiver); }

private:
    DevReceiverWait _receiver;
    std::exception_ptr &_failure;
};

} // namespace

DevMDStdAccessANOFactory::~DevMDStdAccessANOFactory() noexcept(false) = default;

DevMDStdAccessPrtcl::DevMDStdAccessPrtcl(LiString const &name, RCShdPtr<DevMDStdFifo> fifo,
                                         ObjPtr<DevMDStdThreadProtocol> threadProtocol,
                                         ObjPtr<DevMDStdAccessANOFactory> anoFactory)
    : _name(name), _fifo(fifo), _threadProtocol(threadProtocol), _anoFactory(anoFactory)
{}

DevMDStdAccessPrtcl::~DevMDStdAccessPrtcl()
{
    closeUnopened();
    if (_thread.isNull() || !_thread->isRunning())
        return;
    bool const isOnItsOwnThread = _thread->getThreadId().isCurrentThread();
    if (isOnItsOwnThread)
        abandonThread();
    else
        endThread(makeANO([] {}),
                  &DevANOFifo::sendLast); // other requests may refer to destroyed members
    ZV_ASSERT_IN_DESTRUCTOR(!isOnItsOwnThread);
}

void DevMDStdAccessPrtcl::performOpen()
{
    if (!_thread.isNull())
        RCExUtil::throwExNullPtr(); // this is not the first call
    try {
        if (_fifo.isNull() || _threadProtocol.isNull() || _anoFactory.isNull())
            RCExUtil::throwExNullPtr();
        _fifo->open();
        _thread = MtThreadFactory::getInstance().createThread(_name, _threadProtocol, true, 0);
        _relation = makeObj<PriorityRelation>("std-device", getPriority(),
                                              PriorityRelation::LESS_EQUAL, _thread->getPriority());
        startWithoutMeeting(*_thread); // the first request is waited for below
        LkUnnamedSema ended(_name.getChars(), 0);
        ZV_ASSERT(ended.getErrno() == 0);
        std::exception_ptr failure;
        ObjPtr<DevMDStdANO> request(_anoFactory->createOpenANO());
        request->setBaseACO(makeObj<OpenedACO>(ended, failure));
        auto const sendFailure = _fifo->send(request);
        ended.wait();
        FirstFailure(failure ? failure : sendFailure).rethrowAlways();
    } catch (...) {
        rollBackOpen();
        throw;
    }
}

void DevMDStdAccessPrtcl::performClose()
{
    ZV_ASSERT(_thread->isRunning());
    endThread(_anoFactory->createCloseANO(), &DevANOFifo::send);
}

// Without a thread, nothing executes the requests in the queue.
void DevMDStdAccessPrtcl::closeUnopened()
{
    if (_thread.isNull() && !_fifo.isNull())
        _fifo->close();
}

Priority &DevMDStdAccessPrtcl::getPriority()
{
    return RtPriorities::getInstance().getRealTimePriority();
}

std::exception_ptr DevMDStdAccessPrtcl::stopAfter(ObjPtr<DevMDStdANO> last, Send send)
{
    std::exception_ptr failure;
    ObjPtr<SynchronizeACO> aco(new SynchronizeACO(_name, failure));
    ObjPtr<DevSenderWait> sender(aco->createSender());
    last->setBaseACO(aco);
    std::exception_ptr const sendFailure = ((*_fifo).*send)(last);
    sender->wait();
    // The device's thread must be released in any case, because it waits on an object that this
    // thread destroys.
    AtScopeEnd const release([&sender] { sender->post(); });
    _thread->stop();
    return failure ? failure : sendFailure;
}

void DevMDStdAccessPrtcl::endThread(ObjPtr<DevMDStdANO> last, Send send)
{
    FirstFailure const failure(stopAfter(last, send));
    _thread->join();
    _fifo->close();
    failure.rethrowAlways();
}

// The calling thread is the device's thread. It cannot wait for its own end, so it is not joined.
void DevMDStdAccessPrtcl::abandonThread()
{
    MtThread * const thread = _thread.release();
    thread->stop();
    _fifo->close();
}

void DevMDStdAccessPrtcl::rollBackOpen()
{
    try {
        if (!_thread.isNull() && _thread->isRunning())
            endThread(makeANO([] {}), &DevANOFifo::send);
        else if (!_fifo.isNull())
            _fifo->close(); // releases the threads that wait for a request
    } catch (...) {
        // The caller rethrows the failure of the opening.
    }
    if (!_thread.isNull() && _thread->isRunning())
        return; // the destructor tries again
    _relation = nullptr;
    _thread = nullptr;
}

} // namespace Zv
