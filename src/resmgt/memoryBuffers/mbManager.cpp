#include "resmgt/memoryBuffers/mbManager.h"

#include "resmgt/dynamicAllocation/daSize.private.h"
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

/// Evicts a buffer, or waits for memory, and holds the mutex again. Calls `letGo` before it does
/// so.
template <class LetGo>
void MbPoolManager::makeRoom(LkGuard<LkMutex const> &guard, LetGo letGo)
{
    _untoldUses->tell(*_strategy);
    bool const hasVictim = !_strategy->isEmpty();
    if (!hasVictim && _nbRegions == 0)
        ZV_THROW(MbEx::ExNotEnoughMemory, "Buffer does not fit though nothing is allocated.");
    letGo();
    if (hasVictim)
        unloadVictim(guard);
    else
        waitForMemory(guard);
}

void MbPoolManager::allocateRegion(MbBufferImp *buffer)
{
    for (;;) {
        // It is locked again after the manager's mutex has been unlocked.
        BufferMutex mutex(*buffer);
        LkGuard guard(_mutex);
        if (tryAllocate(buffer))
            return;
        makeRoom(guard, [&] { mutex.letGo(); });
    }
}

bool MbPoolManager::allocateOpen(MbBufferImp &buffer, std::uint64_t mode)
{
    LkGuard guard(_mutex);
    if (!buffer.beginMove(MbWord::UNLOADED, mode + MbBufferImp::REFERENCE))
        return false;
    try {
        while (!tryAllocate(&buffer))
            makeRoom(guard, [] {});
    } catch (...) {
        guard.unlock();
        buffer.failLoad();
    }
    return true;
}

/// A buffer may have no region: if the failure of an operation throws, the buffer waits for another
/// completion.
void MbPoolManager::deallocateRegion(MbBufferImp *buffer)
{
    if (!buffer->getRegionStart())
        return;
    LkGuard guard(_mutex);
    _untoldUses->tell(*_strategy);
    releaseRegion(*buffer);
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

std::uint64_t MbPoolManager::insertOpen(MbBufferImp &buffer)
{
    LkGuard guard(_mutex);
    _untoldUses->tell(*_strategy);
    _strategy->insertBuffer(&buffer);
    std::uint64_t const word = buffer.tryMove(
        MbWord::BEING_UNLOCKED, (MbWord::LOADED | MbWord::IN_STRATEGY) - MbBufferImp::REFERENCE);
    if (word != 0)
        announceMemory();
    else
        _strategy->removeBuffer(&buffer);
    return word;
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
/// that is derived from one of these may count the calls, and a manager may pass them on to this
/// one.
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
    // A load has failed, and found the mutex abandoned when it was to give the region back.
    if (buffer->getRegionStart() != 0) [[unlikely]]
        releaseRegion(*buffer);
    _strategy->reserve(_nbRegions + 1);
    _untoldUses->reserve(_nbRegions + 1);
    if (!performAllocate(buffer))
        return false;
    ZV_ASSERT(buffer->getRegionStart() != 0);
    ++_nbRegions;
    return true;
}

/// Calls `operation`, and releases the keep-alive count. The buffer may have lost its last
/// reference meanwhile, and is deleted here then, with its protocol and without a lock.
template <class Operation>
void MbPoolManager::releaseAfter(MbBufferImp &buffer, Operation operation)
{
    try {
        operation();
    } catch (...) {
        // The exception of the operation is thrown, and an exception of the deletion is traced.
        try {
            buffer.releaseKeepAlive();
        } catch (...) {
            traceCaught(__FILE__, __LINE__);
        }
        throw;
    }
    buffer.releaseKeepAlive();
}

void MbPoolManager::unloadVictim(LkGuard<LkMutex const> &guard) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    MbBufferImp &victim = *_strategy->selectVictim();
    if (victim.beginMove(MbWord::LOADED | MbWord::IN_STRATEGY, MbWord::BEING_UNLOADED)) {
        unloadOpen(victim, guard);
        return;
    }
    // As soon as `_mutex` is free, the victim may be locked, and then ignores the event.
    victim.addKeepAlive();
    guard.unlock();
    releaseAfter(victim, [&] { victim.receive(MbEvent::UNLOAD); });
    guard.relock();
}

/// Evicts a buffer in the mode `BEING_UNLOADED`. Until the end of the mode it cannot be deleted.
void MbPoolManager::unloadOpen(MbBufferImp &victim,
                               LkGuard<LkMutex const> &guard) ZV_NO_THREAD_SAFETY_ANALYSIS
{
    _strategy->removeBuffer(&victim);
    guard.unlock();
    try {
        victim.callUnload();
        guard.relock();
    } catch (...) {
        victim.addKeepAlive();
        releaseAfter(victim, [&] { victim.failUnload(); });
    }
    releaseRegion(victim);
    if (victim.tryMove(MbWord::BEING_UNLOADED, MbWord::UNLOADED) != 0)
        return;
    // Another thread has closed the word.
    victim.addKeepAlive();
    guard.unlock();
    releaseAfter(victim, [&] { victim.finishUnload(); });
    guard.relock();
}

void MbPoolManager::releaseRegion(MbBufferImp &buffer)
{
    performDeallocate(&buffer);
    --_nbRegions;
    announceMemory();
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
    char * const memory = new (std::nothrow) char[toMemorySize(total)];
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
