#include "zvbase/lgQueue.h"

#include "zvbase/lgLogImp.private.h"
#include "zvbase/lgQueueImp.private.h"
#include "zvbase/lgReader.h"

#include <utility>

namespace Zv {

// ---- LgStream

LgStream::LgStream(LgQueueImp &queue, LgLineBuffer &buffer)
    : LgText(&buffer, &buffer), _queue(queue)
{}

LgStream::~LgStream() = default;

std::size_t LgStream::getNumCharacters() const noexcept
{
    return _queue._ring.getNbFree();
}

// ---- LgQueue

LgQueue::LgQueue(unsigned long threadId) : _imp(new LgQueueImp(*this, threadId)) {}

LgQueue::~LgQueue()
{
    // Waits for a reader that is inside of the queue. Makes other readers forget it.
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
    _imp->_observer = std::move(observer);
}

void LgQueue::creatorExit()
{
    {
        BaseGuard const guard(LgLogImp::_registryLock);
        LgRegistry &registry = LgLogImp::getRegistryInForce();
        if (!LgLogImp::isOwnRegistryInForce() && registry.hasQueue(this)) {
            // From here on the reader may delete the queue.
            _imp->_hasExited.store(true, ZvPlatform::Order::RELEASE);
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
