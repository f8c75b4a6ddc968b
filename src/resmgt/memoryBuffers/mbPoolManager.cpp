#include "resmgt/memoryBuffers/mbPoolManager.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "zvbase/failures.h"
#include "zvbase/traceCaught.private.h"

#include <ostream>
#include <sstream>
#include <utility>

namespace Zv {

namespace {

/// The mutex of the buffer that needs memory: let go while its thread waits or unloads another buffer, and taken back.
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

MbPoolManager::MbPoolManager(LiString const &name, ObjPtr<MbUnloadStrategy> strategy)
    // The locks keep a pointer to the characters, which this manager's copy of the name keeps alive.
    : _mutex(name.getChars()),
      _pulse(name.getChars(), LkPulse::WAKE_ALL),
      _name(name),
      _strategy(strategy),
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
        // Taken back when the manager's mutex is free again.
        BufferMutex mutex(*buffer);
        LkGuard<LkMutex const> guard(_mutex);
        if (tryAllocate(buffer))
            return;
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

/// A buffer may come again without a region: where the result of an operation throws, it waits for another one.
void MbPoolManager::deallocateRegion(MbBufferImp *buffer)
{
    if (!buffer->getRegionStart())
        return;
    LkGuard<LkMutex const> guard(_mutex);
    performDeallocate(buffer);
    --_nbRegions;
    announceMemory();
}

void MbPoolManager::bufferNotUnloadable(MbBufferImp *buffer)
{
    LkGuard<LkMutex const> guard(_mutex);
    _strategy->removeBuffer(buffer);
}

void MbPoolManager::bufferUnloadable(MbBufferImp *buffer)
{
    LkGuard<LkMutex const> guard(_mutex);
    _strategy->insertBuffer(buffer);
    announceMemory();
}

/// The stream is not ours: it may block, or use a buffer, so it is written without the mutex.
void MbPoolManager::dump(std::ostream &stream) const
{
    std::ostringstream text;
    {
        LkGuard<LkMutex const> guard(_mutex);
        _strategy->dump(text);
    }
    stream << "Name = " << _name << '\n' << "Unload strategy = " << text.str();
}

/// Who gets memory here can be unlocked: the place among those to unload is his before he has it.
bool MbPoolManager::tryAllocate(MbBufferImp *buffer)
{
    _strategy->reserve(_nbRegions + 1);
    if (!performAllocate(buffer))
        return false;
    ZV_ASSERT(buffer->getRegionStart() != 0);
    ++_nbRegions;
    return true;
}

/// The victim is free to go on with its life as soon as `_mutex` is: it may be locked, which makes it pass over the
/// event, or lose its last reference, which leaves it to us. No lock is held when it is deleted, and the client's
/// protocol with it.
void MbPoolManager::unloadVictim(LkGuard<LkMutex const> &guard) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    MbBufferImp * const victim = _strategy->selectVictim();
    victim->addKeepAlive();
    guard.unlock();
    try {
        victim->receive(MbEvent::UNLOAD);
    } catch (...) {
        // Why it could not be unloaded is told, and not what its end throws.
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

/// Waiters are counted, so that a pulse is sent only for somebody. It wakes them all.
void MbPoolManager::announceMemory()
{
    if (std::exchange(_waiters, 0) != 0)
        _pulse.pulse();
}

} // namespace Zv
