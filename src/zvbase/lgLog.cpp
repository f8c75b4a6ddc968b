#include "zvbase/lgLog.h"

#include "zvbase/lgLogImp.private.h"
#include "zvbase/lgQueueImp.private.h"
#include "zvbase/lgReader.h"
#include "zvbase/platform/interlocked.h"

#include <utility>

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

using QueueFunction = LgQueue *(*)();

/// The registry of a process without a logger. No reader serves it. The thread that ends a queue
/// writes its text.
class OwnRegistry : public LgRegistry
{
public:
    void addQueue(LgQueue *queue) override
    {
        BaseGuard const guard(_lock);
        if (queue)
            _queues.push_back(queue);
    }
    void removeQueue(LgQueue *queue) override
    {
        BaseGuard const guard(_lock);
        _queues.remove(queue);
    }
    List<LgQueue *> getQueues() override
    {
        BaseGuard const guard(_lock);
        return _queues;
    }

private:
    BaseLock _lock;
    List<LgQueue *> _queues ZV_GUARDED_BY(_lock);
};

constinit QueueFunction queueFunction = nullptr; // read without a lock
constinit LgRegistry *registryInForce ZV_GUARDED_BY(LgLogImp::_registryLock) = nullptr;
constinit LgRegistry *ownRegistry ZV_GUARDED_BY(LgLogImp::_registryLock) = nullptr;

} // namespace

constinit BaseLock LgLogImp::_readingLock;
constinit BaseLock LgLogImp::_registryLock;
constinit std::uint64_t LgLogImp::_generation = 0;
constinit std::uint64_t LgLogImp::_registration = 1;
constinit LgClock LgLogImp::_clock;

bool LgLog::_loggerActive = false;
bool LgLog::_blockingTrace = false;

bool LgLogImp::isOwnRegistryInForce()
{
    return !registryInForce;
}

LgRegistry &LgLogImp::getRegistryInForce()
{
    if (registryInForce)
        return *registryInForce;
    if (!ownRegistry)
        ownRegistry = new OwnRegistry;
    return *ownRegistry;
}

LgQueue *LgLog::getQueue()
{
    QueueFunction const function = Interlocked::loadAcquire(queueFunction);
    return function ? function() : nullptr;
}

void LgLog::setQueueFunction(LgQueue *(*function)())
{
    Interlocked::storeRelease(queueFunction, function);
}

LgRegistry &LgLog::getRegistry()
{
    BaseGuard const guard(LgLogImp::_registryLock);
    return LgLogImp::getRegistryInForce();
}

ObjPtrRet<LgRegistry> LgLog::setRegistry(ObjPtr<LgRegistry> registry)
{
    BaseGuard const reading(LgLogImp::_readingLock);
    LgRegistry *queues = nullptr;
    ObjPtr<LgRegistry> former;
    {
        BaseGuard const guard(LgLogImp::_registryLock);
        queues = &LgLogImp::getRegistryInForce();
        former.reset(std::exchange(registryInForce, registry.release()));
        Interlocked::increment(LgLogImp::_registration);
    }
    ++LgLogImp::_generation;
    // After the exchange: from now on the thread that ends a line writes it.
    LgReader(queues, nullptr).flushAll();
    return ObjPtrRet<LgRegistry>(std::move(former));
}

void LgLog::registerQueue(LgQueue *queue)
{
    if (!queue)
        return;
    BaseGuard const guard(LgLogImp::_registryLock);
    LgRegistry &registry = LgLogImp::getRegistryInForce();
    if (!registry.hasQueue(queue))
        registry.addQueue(queue);
    Interlocked::storeRelaxed(queue->_imp->_registration,
                              Interlocked::loadRelaxed(LgLogImp::_registration));
}

bool LgLog::creatorExit(unsigned long threadId)
{
    BaseGuard const guard(LgLogImp::_readingLock);
    for (LgQueue *queue : getRegistry().getQueues()) {
        // The system may use a thread's number again while the former thread's queue is still being
        // read.
        if (queue->getThreadId() == threadId &&
            !Interlocked::loadAcquire(queue->_imp->_hasExited)) {
            queue->creatorExit();
            return true;
        }
    }
    return false;
}

bool LgLog::isLoggerActive() noexcept
{
    return Interlocked::loadAcquire(_loggerActive);
}

void LgLog::setLoggerActive(bool active) noexcept
{
    // A full barrier: the reader's last look at the queues comes after it.
    Interlocked::exchange(_loggerActive, active);
}

bool LgLog::isBlockingTrace() noexcept
{
    return Interlocked::loadAcquire(_blockingTrace);
}

void LgLog::setBlockingTrace(bool blocking) noexcept
{
    Interlocked::storeRelease(_blockingTrace, blocking);
}

void LgLog::flush()
{
    LgReader().flushAll();
}

// The analysis cannot follow a lock that is held from a constructor to a destructor.
LgLog::QueuesGuard::QueuesGuard() ZV_NO_THREAD_SAFETY_ANALYSIS
{
    LgLogImp::_readingLock.lock();
}

LgLog::QueuesGuard::~QueuesGuard() ZV_NO_THREAD_SAFETY_ANALYSIS
{
    LgLogImp::_readingLock.unlock();
}

} // namespace Zv
