#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"

#include "resmgt/deviceProtocol/devReceiverWait.h"
#include "resmgt/locks/lkUnnamedSema.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/priorityRelation.h"
#include "resmgt/threads/rtPriorities.h"
#include "zvbase/failures.h"

namespace Zv {

namespace {

/// Blocks the device's thread after its last request, until the thread has been told to stop.
class SynchronizeACO final : public DevACO
{
public:
    explicit SynchronizeACO(LiString const &name) : _receiver(name) {}

    void performExecute() override
    {
        _receiver.post();
        _receiver.wait();
    }
    ObjPtrRet<DevSenderWait> createSender() { return makeObj<DevSenderWait>(_receiver); }

private:
    DevReceiverWait _receiver;
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
    if (_thread.isNull()) {
        if (!_fifo.isNull())
            _fifo->close(); // no thread will execute what is queued
        return;
    }
    if (!_thread->isRunning())
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
    if (_fifo.isNull() || _threadProtocol.isNull() || _anoFactory.isNull())
        RCExUtil::throwExNullPtr();
    try {
        _fifo->open();
        _thread = MtThreadFactory::getInstance().createThread(_name, _threadProtocol, true, 0);
        _relation = makeObj<PriorityRelation>("std-device", getPriority(),
                                              PriorityRelation::LESS_EQUAL, _thread->getPriority());
        _thread->start();
        LkUnnamedSema executed(_name.getChars(), 0);
        ZV_ASSERT(executed.getErrno() == 0);
        ObjPtr<DevMDStdANO> request(_anoFactory->createOpenANO());
        request->setBaseACO(makeACO([&executed] { executed.post(); }));
        auto const failure = _fifo->send(request);
        executed.wait();
        if (failure)
            std::rethrow_exception(failure);
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

Priority &DevMDStdAccessPrtcl::getPriority()
{
    return RtPriorities::getInstance().getRealTimePriority();
}

std::exception_ptr DevMDStdAccessPrtcl::stopAfter(ObjPtr<DevMDStdANO> last, Send send)
{
    ObjPtr<SynchronizeACO> aco(new SynchronizeACO(_name));
    ObjPtr<DevSenderWait> sender(aco->createSender());
    last->setBaseACO(aco);
    std::exception_ptr const failure = ((*_fifo).*send)(last);

    // The device's thread must be released in any case: it waits on an object that this thread
    // destroys.
    struct Release
    {
        DevSenderWait &sender;
        ~Release() { sender.post(); }
    };
    sender->wait();
    Release release{*sender};
    _thread->stop();
    return failure;
}

void DevMDStdAccessPrtcl::endThread(ObjPtr<DevMDStdANO> last, Send send)
{
    std::exception_ptr const failure = stopAfter(last, send);
    _thread->join();
    _fifo->close();
    if (failure)
        std::rethrow_exception(failure);
}

// The thread cannot wait for its own end, so it is not joined.
void DevMDStdAccessPrtcl::abandonThread()
{
    MtThread * const thread = _thread.release();
    thread->stop();
    _fifo->close();
}

void DevMDStdAccessPrtcl::rollBackOpen()
{
    try {
        if (_thread.isNull() || !_thread->isRunning())
            _fifo->close(); // releases the threads that wait for the device
        else
            endThread(makeANO([] {}), &DevANOFifo::send);
    } catch (...) { // the caller throws the failure of the opening, which says more
    }
    if (!_thread.isNull() && _thread->isRunning())
        return; // the destructor tries again
    _relation = nullptr;
    _thread = nullptr;
}

} // namespace Zv
