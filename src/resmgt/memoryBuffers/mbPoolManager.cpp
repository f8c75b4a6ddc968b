#include "resmgt/memoryBuffers/mbPoolManager.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"

#include <exception>
#include <ostream>
#include <utility>

namespace Zv {

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
    LkGuard<LkMutex const> guard(_mutex);
    while (!tryAllocate(buffer)) {
        if (_strategy->isEmpty())
            waitForMemory(guard, *buffer);
        else
            unloadVictim(guard);
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

void MbPoolManager::dump(std::ostream &stream) const
{
    LkGuard<LkMutex const> guard(_mutex);
    stream << "Name = " << _name << '\n' << "Unload strategy = ";
    _strategy->dump(stream);
}

/// Who gets memory here can be unlocked: the place among those to unload is his before he has it.
bool MbPoolManager::tryAllocate(MbBufferImp *buffer)
{
    _strategy->reserve(_nbRegions + 1);
    if (!performAllocate(buffer))
        return false;
    ++_nbRegions;
    return true;
}

/// The victim is free to go on with its life as soon as `_mutex` is: it may be locked, which makes it pass over the
/// event, or lose its last reference, which leaves it to us.
void MbPoolManager::unloadVictim(LkGuard<LkMutex const> &guard) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    struct Kept
    {
        explicit Kept(MbBufferImp *buffer) : _buffer(buffer) { _buffer->addKeepAlive(); }
        ~Kept() noexcept(false) { _buffer->releaseKeepAlive(); }

        MbBufferImp *_buffer;
    };

    {
        // Made under the mutex, and undone without it: it may delete the victim, and the client's protocol with it.
        Kept const victim(_strategy->selectVictim());
        guard.unlock();
        victim._buffer->receive(MbEvent::UNLOAD);
    }
    guard.relock();
}

/// Whoever has chosen our buffer as a victim before it came here must not wait for our memory in order to find out that
/// there is nothing to unload: for him the buffer's mutex is free meanwhile.
void MbPoolManager::waitForMemory(LkGuard<LkMutex const> &guard,
                                  MbBufferImp &buffer) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    bool const isChosen = buffer.isKeptAlive();
    if (isChosen)
        buffer.letGo();
    ++_waiters;
    _pulse.waitNextPulse(guard);
    if (isChosen) {
        guard.unlock();
        buffer.takeBack();
        guard.relock();
    }
}

/// Waiters are counted, so that a pulse is sent only for somebody. It wakes them all.
void MbPoolManager::announceMemory()
{
    if (std::exchange(_waiters, 0) != 0)
        _pulse.pulse();
}

} // namespace Zv
