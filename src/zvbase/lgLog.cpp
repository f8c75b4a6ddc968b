#include "zvbase/lgLog.h"

#include "zvbase/lgLogImp.private.h"
#include "zvbase/lgQueueImp.private.h"
#include "zvbase/lgReader.h"
#include "zvbase/platform/shared.h"

#include <utility>

namespace Zv {

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

constinit ZvPlatform::Shared<QueueFunction> queueFunction{nullptr}; // read without a lock
constinit LgRegistry *registryInForce ZV_GUARDED_BY(LgLogImp::_registryLock) = nullptr;
constinit LgRegistry *ownRegistry ZV_GUARDED_BY(LgLogImp::_registryLock) = nullptr;

} // namespace

constinit BaseLock LgLogImp::_readingLock;
constinit BaseLock LgLogImp::_registryLock;
constinit std::uint64_t LgLogImp::_generation = 0;
constinit ZvPlatform::Shared<std::uint64_t> LgLogImp::_registration{1};
constinit LgClock LgLogImp::_clock;

constinit ZvPlatform::Shared<bool> LgLog::_loggerActive{false};
constinit ZvPlatform::Shared<bool> LgLog::_blockingTrace{false};

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
    QueueFunction const function = queueFunction.load(ZvPlatform::Order::ACQUIRE);
    return function ? function() : nullptr;
}

void LgLog::setQueueFunction(LgQueue *(*function)())
{
    queueFunction.store(function, ZvPlatform::Order::RELEASE);
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
        LgLogImp::_registration.fetch_add(1, ZvPlatform::Order::RELAXED);
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
    queue->_imp->_registration.store(LgLogImp::_registration.load(ZvPlatform::Order::RELAXED),
                                     ZvPlatform::Order::RELAXED);
}

bool LgLog::creatorExit(unsigned long threadId)
{
    BaseGuard const guard(LgLogImp::_readingLock);
    for (LgQueue *queue : getRegistry().getQueues()) {
        // The system may use a thread's number again while the former thread's queue is still being
        // read.
        if (queue->getThreadId() == threadId &&
            !queue->_imp->_hasExited.load(ZvPlatform::Order::RELAXED)) {
            queue->creatorExit();
            return true;
        }
    }
    return false;
}

bool LgLog::isLoggerActive() noexcept
{
    // In one order with the announcement of a record.
    return _loggerActive.load(ZvPlatform::Order::SEQ_CST);
}

void LgLog::setLoggerActive(bool active) noexcept
{
    // A full barrier: the reader's last look at the queues comes after it.
    _loggerActive.exchange(active, ZvPlatform::Order::SEQ_CST);
}

bool LgLog::isBlockingTrace() noexcept
{
    return _blockingTrace.load(ZvPlatform::Order::RELAXED);
}

void LgLog::setBlockingTrace(bool blocking) noexcept
{
    _blockingTrace.store(blocking, ZvPlatform::Order::RELAXED);
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
