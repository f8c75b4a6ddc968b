#include "resmgt/deviceProtocol/devMDStdAccessPrtcl.h"

#include "resmgt/deviceProtocol/devSenderWait.h"
#include "resmgt/locks/lkUnnamedSema.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/priorityRelation.h"
#include "resmgt/threads/rtPriorities.h"
#include "zvbase/failures.h"

namespace Zv {

namespace {

/// Holds the device's thread, after its last request, until it has been told to stop.
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
    if (_thread && _thread->isRunning()) {
        _fifo->close(); // the device that these requests were for is gone
        _fifo->open();
        endThread(makeANO([] {}));
    }
}

void DevMDStdAccessPrtcl::performOpen()
{
    if (_fifo.isNull() || _threadProtocol.isNull() || _anoFactory.isNull())
        RCExUtil::throwExNullPtr();
    _fifo->open();
    _thread = MtThreadFactory::getInstance().createThread(_name, _threadProtocol, true, 0);
    try {
        _relation = makeObj<PriorityRelation>("std-device", getPriority(),
                                              PriorityRelation::LESS_EQUAL, _thread->getPriority());
        _thread->start();
        LkUnnamedSema executed(_name.getChars(), 0);
        ZV_ASSERT(executed.getErrno() == 0);
        auto const failure =
            send(_anoFactory->createOpenANO(), makeACO([&executed] { executed.post(); }));
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
    endThread(_anoFactory->createCloseANO());
}

Priority &DevMDStdAccessPrtcl::getPriority()
{
    return RtPriorities::getInstance().getRealTimePriority();
}

std::exception_ptr DevMDStdAccessPrtcl::send(ObjPtr<DevMDStdANO> ano, ObjPtr<DevACO> aco)
{
    ano->setBaseACO(aco);
    return _fifo->send(ano);
}

std::exception_ptr DevMDStdAccessPrtcl::stopAfter(ObjPtr<DevMDStdANO> last)
{
    ObjPtr<SynchronizeACO> aco(new SynchronizeACO(_name));
    ObjPtr<DevSenderWait> sender(aco->createSender());
    std::exception_ptr const failure = send(last, aco);

    // The device's thread goes on in any case: it stands still on an object that is destroyed with it.
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

void DevMDStdAccessPrtcl::endThread(ObjPtr<DevMDStdANO> last)
{
    std::exception_ptr const failure = stopAfter(last);
    _thread->join();
    _fifo->close();
    if (failure)
        std::rethrow_exception(failure);
}

void DevMDStdAccessPrtcl::rollBackOpen()
{
    if (_thread->isRunning()) {
        try {
            endThread(makeANO([] {}));
        } catch (...) { // the failure that has led here says more
        }
    }
    if (_thread->isRunning())
        return; // the destructor tries again
    _relation = nullptr;
    _thread = nullptr;
}

} // namespace Zv
