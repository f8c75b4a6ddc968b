#include "resmgt/memoryBuffers/mbManager.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "resmgt/memoryBuffers/mbUntoldUses.private.h"
#include "zvbase/failures.h"
#include "zvbase/traceCaught.private.h"

#include <new>
#include <ostream>
#include <span>
#include <sstream>
#include <typeinfo>
#include <utility>

namespace Zv {

namespace {

/// The mutex of the buffer that needs memory. It is unlocked while the thread waits or evicts
/// another buffer, and locked again by the destructor.
class BufferMutex
{
public:
    explicit BufferMutex(MbBufferImp &buffer) : _buffer(buffer) {}
    ~BufferMutex() noexcept(false)
    {
        if (_isFree)
            _buffer.takeBack();
    }
    BufferMutex(BufferMutex const &) = delete;
    BufferMutex &operator=(BufferMutex const &) = delete;

    void letGo()
    {
        _buffer.letGo();
        _isFree = true;
    }

private:
    MbBufferImp &_buffer;
    bool _isFree = false;
};

} // namespace

MbManager::MbManager() = default;
MbManager::~MbManager() noexcept(false) = default;

MbPoolManager::MbPoolManager(LiString const &name, ObjPtr<MbUnloadStrategy> strategy)
    // The mutex and the pulse keep a pointer to the characters, which `_name` keeps alive.
    : _mutex(name.getChars()),
      _pulse(name.getChars(), LkPulse::WAKE_ALL),
      _name(name),
      _strategy(strategy),
      _untoldUses(new MbUntoldUses),
      _waiters(0),
      _nbRegions(0)
{}

MbPoolManager::~MbPoolManager() noexcept(false) = default;

LiString const &MbPoolManager::getName() const
{
    return _name;
}

void MbPoolManager::allocateRegion(MbBufferImp *buffer)
{
    for (;;) {
        // It is locked again after the manager's mutex has been unlocked.
        BufferMutex mutex(*buffer);
        LkGuard guard(_mutex);
        if (tryAllocate(buffer))
            return;
        _untoldUses->tell(*_strategy);
        bool const hasVictim = !_strategy->isEmpty();
        if (!hasVictim && _nbRegions == 0)
            ZV_THROW(MbEx::ExNotEnoughMemory, "Buffer does not fit though nothing is allocated.");
        mutex.letGo();
        if (hasVictim)
            unloadVictim(guard);
        else
            waitForMemory(guard);
    }
}

/// A buffer may have no region: if the failure of an operation throws, the buffer waits for another
/// completion.
void MbPoolManager::deallocateRegion(MbBufferImp *buffer)
{
    if (!buffer->getRegionStart())
        return;
    LkGuard guard(_mutex);
    _untoldUses->tell(*_strategy);
    performDeallocate(buffer);
    --_nbRegions;
    announceMemory();
}

void MbPoolManager::bufferNotUnloadable(MbBufferImp *buffer)
{
    LkGuard guard(_mutex);
    _untoldUses->tell(*_strategy);
    _strategy->removeBuffer(buffer);
}

void MbPoolManager::bufferUnloadable(MbBufferImp *buffer)
{
    LkGuard guard(_mutex);
    _untoldUses->tell(*_strategy);
    _strategy->insertBuffer(buffer);
    if (mayBeToldLater(*buffer))
        buffer->noteUsesIn(_untoldUses.get());
    announceMemory();
}

/// The stream may block, or use a buffer, so it is written without the mutex.
void MbPoolManager::dump(std::ostream &stream) const
{
    std::ostringstream text;
    {
        LkGuard guard(_mutex);
        _untoldUses->tell(*_strategy);
        _strategy->dump(text);
    }
    stream << "Name = " << _name << '\n' << "Unload strategy = " << text.str();
}

/// Returns true if no code outside of the library sees which buffers are in the strategy. A class
/// that is derived from one of these may count the calls, and a manager may pass them on to this one.
bool MbPoolManager::mayBeToldLater(MbBufferImp const &buffer) const
{
    std::type_info const &manager = typeid(*this);
    MbUnloadStrategy const &strategy = *_strategy;
    return &buffer.getManager() == this && typeid(strategy) == typeid(MbUnloadLRU) &&
           (manager == typeid(MbHeapManager) || manager == typeid(MbArenaManager));
}

/// Reserves the buffer's place in the strategy first, so that its unlock cannot fail.
bool MbPoolManager::tryAllocate(MbBufferImp *buffer)
{
    _strategy->reserve(_nbRegions + 1);
    _untoldUses->reserve(_nbRegions + 1);
    if (!performAllocate(buffer))
        return false;
    ZV_ASSERT(buffer->getRegionStart() != 0);
    ++_nbRegions;
    return true;
}

/// As soon as `_mutex` is free, the victim may be locked, and then ignores the event. Or it loses
/// its last reference, and is deleted here, with its protocol and without a lock.
void MbPoolManager::unloadVictim(LkGuard<LkMutex const> &guard) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    MbBufferImp * const victim = _strategy->selectVictim();
    victim->addKeepAlive();
    guard.unlock();
    try {
        victim->receive(MbEvent::UNLOAD);
    } catch (...) {
        // The exception of the event is thrown, and an exception of the deletion is traced.
        try {
            victim->releaseKeepAlive();
        } catch (...) {
            traceCaught(__FILE__, __LINE__);
        }
        throw;
    }
    victim->releaseKeepAlive();
}

void MbPoolManager::waitForMemory(LkGuard<LkMutex const> const &guard)
{
    ++_waiters;
    _pulse.waitNextPulse(guard);
}

/// Wakes all waiters. They are counted, so that no pulse is sent if there is none.
void MbPoolManager::announceMemory()
{
    if (std::exchange(_waiters, 0) != 0)
        _pulse.pulse();
}

MbHeapManager::MbHeapManager(LiString const &name, std::uint64_t maximumBytes,
                             ObjPtr<MbUnloadStrategy> strategy)
    : MbPoolManager(name, strategy), _maximum(maximumBytes), _allocated(0)
{}

MbHeapManager::~MbHeapManager() noexcept(false) = default;

std::uint64_t MbHeapManager::getAllocated() const
{
    LkGuard guard(getMutex());
    return _allocated;
}

bool MbHeapManager::performAllocate(MbBufferImp *buffer)
{
    std::uint64_t const size = static_cast<std::uint64_t>(buffer->getSize());
    std::uint64_t const total = size + buffer->getAlignment().getRoundUpMax(1);
    // If the sum is less than the size, it has wrapped around.
    if (total > _maximum || total < size)
        ZV_THROW(MbEx::ExNotEnoughMemory, "Buffer size larger then maximum allocated bytes.");
    if (total > _maximum - _allocated)
        return false;
    char * const memory = new (std::nothrow) char[total];
    if (!memory)
        ZV_THROW(MbEx::ExNotEnoughMemory, "Unable to allocate memory.");
    _allocated += total;
    buffer->setRegion(reinterpret_cast<std::uintptr_t>(memory), total);
    return true;
}

void MbHeapManager::performDeallocate(MbBufferImp *buffer)
{
    _allocated -= buffer->getRegionEnd() - buffer->getRegionStart();
    delete[] reinterpret_cast<char *>(buffer->getRegionStart());
    buffer->clearRegion();
}

MbArenaManager::MbArenaManager(LiString const &name, ObjPtr<DaArenaPool> pool,
                               ObjPtr<MbUnloadStrategy> strategy)
    : MbPoolManager(name, strategy), _pool(pool)
{}

MbArenaManager::~MbArenaManager() noexcept(false) = default;

bool MbArenaManager::performAllocate(MbBufferImp *buffer)
{
    std::uint64_t const alignment = buffer->getAlignment().getAlignmentMask() + 1;
    std::uint64_t const size = static_cast<std::uint64_t>(buffer->getSize());
    std::uint64_t const total = size + buffer->getAlignment().getRoundUpMax(alignment);
    // If the sum is less than the size, it has wrapped around.
    if (total > _pool->getSize() || total < size)
        ZV_THROW(MbEx::ExNotEnoughMemory, "Buffer size larger then total arena pool size.");
    void * const memory = _pool->allocate(total, alignment);
    if (!memory)
        return false;
    buffer->setRegion(reinterpret_cast<std::uintptr_t>(memory), total);
    return true;
}

void MbArenaManager::performDeallocate(MbBufferImp *buffer)
{
    _pool->deallocate(reinterpret_cast<void *>(buffer->getRegionStart()));
    buffer->clearRegion();
}

} // namespace Zv
