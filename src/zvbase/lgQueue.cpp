#include "zvbase/lgQueue.h"

#include "zvbase/lgLogImp.private.h"
#include "zvbase/lgQueueImp.private.h"
#include "zvbase/lgReader.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

LgQueueImp::LgQueueImp(LgQueue &owner, unsigned long threadId)
    : _owner(owner),
      _threadId(threadId),
      _ring(LgQueue::CAPACITY),
      _buffer(*this),
      _stream(*this, _buffer)
{}

LgQueue::LgQueue(unsigned long threadId) : _imp(new LgQueueImp(*this, threadId)) {}

LgQueue::~LgQueue()
{
    // A reader of it has ended before, and there is none afterwards.
    BaseGuard const guard(LgLogImp::_readingLock);
    ++LgLogImp::_generation;
}

unsigned long LgQueue::getThreadId() const noexcept
{
    return _imp->_threadId;
}

bool LgQueue::isFull() const noexcept
{
    return _imp->_ring.getNbFree() == 0;
}

bool LgQueue::isEmpty() const noexcept
{
    return _imp->_ring.isEmpty();
}

LgStream &LgQueue::getStream() noexcept
{
    return _imp->_stream;
}

std::uint64_t LgQueue::getNbLostLines() const noexcept
{
    return _imp->_ring.getNbLostLines();
}

void LgQueue::changeObserver(ObjPtr<Observer> observer)
{
    ObjPtr<Observer> former;
    BaseGuard const guard(LgLogImp::_readingLock);
    former.swap(_imp->_observer);
    _imp->_observer = observer;
}

void LgQueue::creatorExit()
{
    {
        BaseGuard const guard(LgLogImp::_registryLock);
        LgRegistry &registry = LgLogImp::getRegistryInForce();
        if (!LgLogImp::isOwnRegistryInForce() && registry.hasQueue(this)) {
            // The reader may delete the queue from here on.
            Interlocked::storeRelease(_imp->_hasExited, true);
            return;
        }
    }
    BaseGuard const guard(LgLogImp::_readingLock);
    LgReader(nullptr, this).flushAll();
    LgLog::getRegistry().removeQueue(this);
    delete this;
}

LgQueue::Observer::Observer() = default;
LgQueue::Observer::~Observer() = default;

LgQueue::SuppressGuard::SuppressGuard(LgQueue &queue) : _queue(*queue._imp)
{
    ++_queue._nbSuppressions;
}

LgQueue::SuppressGuard::~SuppressGuard()
{
    --_queue._nbSuppressions;
}

} // namespace Zv
