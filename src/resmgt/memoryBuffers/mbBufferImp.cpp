#include "resmgt/memoryBuffers/mbBufferImp.h"

#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbProtocol.h"
#include "zvbase/failures.h"
#include "zvbase/scope.private.h"
#include "zvbase/traceCaught.private.h"

#include <bit>
#include <utility>

namespace Zv {

MbBufferImp::MbBufferImp(LiString const &name, MbState const *initialState,
                         RCShdPtr<MbManager> const &manager, ObjPtr<MbProtocol> protocol, int size,
                         MbAlignment const &alignment)
    // The mutex and the pulse keep a pointer to the characters, which `_name` keeps alive.
    : _mutex(name.getChars()),
      _pulse(name.getChars(), LkPulse::WAKE_ALL),
      _keepAlive(1),
      _name(name),
      _size(size),
      _alignment(alignment),
      _regionStart(0),
      _dataStart(0),
      _dataEnd(0),
      _regionEnd(0),
      _state(initialState),
      _lockCount(0),
      _pending(0),
      _manager(manager),
      _protocol(protocol),
      _waiters(0),
      _isAgain(false),
      _isAbandoned(false)
{
    ZV_ASSERT(size >= 0);
    if (!initialState)
        RCExUtil::throwExNullPtr();
    LkGuard guard(_mutex);
    _state->entering(this);
}

MbBufferImp::~MbBufferImp() noexcept(false)
{
    _protocol.reset();
}

void MbBufferImp::receive(MbEvent event)
{
    LkGuard guard(_mutex);
    try {
        deliver(event);
    } catch (...) {
        // The exception of the event is thrown, and an exception of the end is traced.
        try {
            endIfAbandoned(guard);
        } catch (...) {
            traceCaught(__FILE__, __LINE__);
        }
        throw;
    }
    endIfAbandoned(guard);
}

void MbBufferImp::performSucceeded()
{
    receive(MbEvent::ASYNC_OP_SUCCEEDED);
}

void MbBufferImp::performFailed()
{
    receive(MbEvent::ASYNC_OP_FAILED);
}

bool MbBufferImp::isLoaded() const
{
    LkGuard guard(_mutex);
    return _state->isLoaded();
}

LiString MbBufferImp::copyName() const
{
    LkGuard guard(_mutex);
    return _name;
}

void MbBufferImp::setRegion(std::uint64_t start, std::uint64_t size)
{
    _dataStart = _alignment.roundUpToAlignment(start);
    _dataEnd = _dataStart + static_cast<std::uint64_t>(_size);
    _regionStart = start;
    _regionEnd = start + size;
}

void MbBufferImp::clearRegion() noexcept
{
    _regionStart = _dataStart = _dataEnd = _regionEnd = 0;
}

void MbBufferImp::releaseKeepAlive()
{
    if (--_keepAlive == 0)
        delete this;
}

void MbBufferImp::changeState(MbState const *next)
{
    LkThreadId const formerOwner = _transientStateOwner;
    _transientStateOwner.setCurrentThread();
    try {
        enterStates(next);
        // The thread is still the owner. So if the state is waiting for a completion, an event is
        // postponed again and not waited for. The completion may be in this mask.
        if (_pending != 0)
            deliverEvents(std::exchange(_pending, 0));
    } catch (...) {
        endRun(formerOwner);
        throw;
    }
    endRun(formerOwner);
}

/// Changes from state to state, and returns to the first one if one of them throws.
void MbBufferImp::enterStates(MbState const *next)
{
    MbState const * const former = _state;
    try {
        while (next) {
            _state->leaving(this);
            _state = next;
            next = _state->entering(this);
        }
    } catch (...) {
        fallBack(former);
        throw;
    }
}

/// The caller throws its own exception. An exception on the way back is traced, unless it is an
/// assertion.
void MbBufferImp::fallBack(MbState const *former)
{
    try {
        _state->leaving(this);
    } catch (...) {
        traceCaught(__FILE__, __LINE__);
    }
    _state = former;
    try {
        ZV_ASSERT(_state->entering( this ) == 0);
    } catch (AssertionFailed const &) {
        throw;
    } catch (...) {
        traceCaught(__FILE__, __LINE__);
    }
}

/// Wakes every waiter, even if the run has failed.
void MbBufferImp::endRun(LkThreadId formerOwner)
{
    _transientStateOwner = formerOwner;
    announceChange();
}

void MbBufferImp::changeStateForLock(MbState const *next, int formerCount)
{
    MbState const * const former = _state;
    try {
        changeState(next);
    } catch (...) {
        if (_state == former) {
            _lockCount = formerCount;
        } else {
            // The lock has succeeded, and a postponed event has failed. The last hold unlocks the
            // buffer.
            try {
                deliver(MbEvent::UNLOCK);
            } catch (...) {
                traceCaught(__FILE__, __LINE__);
            }
        }
        throw;
    }
}

/// Wakes all waiters. They are counted, so that no pulse is sent if there is none.
void MbBufferImp::announceChange()
{
    if (std::exchange(_waiters, 0) != 0)
        _pulse.pulse();
}

void MbBufferImp::sleepUntilChange()
{
    ++_waiters;
    _pulse.waitNextPulse(_mutex);
}

void MbBufferImp::waitForChange()
{
    ZV_ASSERT(! _transientStateOwner.isCurrentThread());
    sleepUntilChange();
    _isAgain = true;
}

void MbBufferImp::deliver(MbEvent event)
{
    while (!deliverOnce(event)) {
    }
}

/// Returns false if the state has waited, so that the event must be delivered to the state that is
/// current now.
bool MbBufferImp::deliverOnce(MbEvent event)
{
    dispatch(event);
    return !std::exchange(_isAgain, false);
}

void MbBufferImp::deliverEvents(std::uint32_t mask)
{
    for (; mask != 0; mask &= mask - 1)
        deliver(static_cast<MbEvent>(std::uint32_t{1} << std::countr_zero(mask)));
}

void MbBufferImp::dispatch(MbEvent event)
{
    using Operation = void (MbState::*)(MbBufferImp *) const;
    // In the order of the events' bits.
    static constexpr Operation operations[] = {
        &MbState::rdlock,   &MbState::wrlock,           &MbState::wrdup,
        &MbState::prefetch, &MbState::asyncSync,        &MbState::sync,
        &MbState::unlock,   &MbState::unload,           &MbState::free,
        &MbState::destroy,  &MbState::asyncOpSucceeded, &MbState::asyncOpFailed};
    (_state->*operations[std::countr_zero(static_cast<std::uint32_t>(event))])(this);
}

void MbBufferImp::destroy()
{
    throwUnlessUnwinding(Unwinding::ofAny(), __FILE__, __LINE__, [this] {
        {
            LkGuard guard(_mutex);
            // A protocol call of this thread still uses the object. It ends the buffer when it
            // returns.
            if (_transientStateOwner.isCurrentThread()) {
                _isAbandoned = true;
                return;
            }
            // Another transition may have begun after each wait.
            do {
                while (!_transientStateOwner.isNull())
                    sleepUntilChange();
            } while (!deliverOnce(MbEvent::DESTROY));
        }
        releaseKeepAlive();
    });
}

void MbBufferImp::endIfAbandoned(LkGuard<LkMutex const> &guard)
{
    // While a transition runs, its thread is left to end the buffer. It calls this function when it
    // returns.
    if (!_isAbandoned || !_transientStateOwner.isNull()) [[likely]]
        return;
    _isAbandoned = false;
    guard.unlock();
    destroy();
}

} // namespace Zv
