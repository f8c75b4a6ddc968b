#include "resmgt/memoryBuffers/mbBufferImp.h"

#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbProtocol.h"
#include "resmgt/memoryBuffers/mbStates.private.h"
#include "resmgt/memoryBuffers/mbUntoldUses.private.h"
#include "zvbase/failures.h"
#include "zvbase/scope.private.h"
#include "zvbase/traceCaught.private.h"
#include "zvbase/traceEvents.h"

#include <bit>
#include <cstddef>
#include <utility>

namespace Zv {

using namespace ZvPlatform;

namespace {

/// Only the word of a buffer of the silent machine is ever open. The tracing machine traces each
/// event.
MbState const *stateOf(MbStateId id)
{
    return MbStates<false>::the[static_cast<std::size_t>(id)];
}

/// The state of each mode of the word.
constexpr MbStateId stateIds[] = {MbStateId::LOADED,
                                  MbStateId::RD_LOCKED,
                                  MbStateId::WR_LOCKED,
                                  MbStateId::BEING_UNLOCKED,
                                  MbStateId::UNLOADED,
                                  MbStateId::BEING_RD_RELOADED,
                                  MbStateId::BEING_WR_RELOADED,
                                  MbStateId::BEING_UNLOADED};

MbState const *stateOf(MbWord::Mode mode)
{
    return stateOf(stateIds[mode]);
}

/// Returns the word with one hold more, or 0 if only the state can handle the event.
std::uint64_t withHold(std::uint64_t word, MbEvent event)
{
    if (MbWord::isClosed(word) || (word & MbWord::HOLDS) == MbWord::HOLDS)
        return 0;
    MbWord::Mode const locked = event == MbEvent::RDLOCK ? MbWord::RD_LOCKED : MbWord::WR_LOCKED;
    if (MbWord::modeOf(word) == MbWord::LOADED && event != MbEvent::WRDUP)
        return (word | locked | MbWord::IS_NOTED) + MbWord::HOLD;
    if (MbWord::modeOf(word) == locked && event != MbEvent::WRLOCK)
        return word + MbWord::HOLD;
    return 0;
}

} // namespace

MbBufferImp::MbBufferImp(LiString const &name, MbState const *initialState,
                         RCShdPtr<MbManager> const &manager, ObjPtr<MbProtocol> protocol, int size,
                         MbAlignment const &alignment)
    // The mutex and the pulse keep a pointer to the characters, which `_name` keeps alive.
    : _word(MbWord::CLOSED),
      _untoldUses(nullptr),
      _lastUse(0),
      _nextNoted(nullptr),
      _unlocker(0),
      _mover(0),
      _manager(manager),
      _protocol(protocol),
      _regionStart(0),
      _dataStart(0),
      _dataEnd(0),
      _regionEnd(0),
      _alignment(alignment),
      _size(size),
      _mutex(name.getChars()),
      _pulse(name.getChars(), LkPulse::WAKE_ALL),
      _keepAlive(1),
      _name(name),
      _state(initialState),
      _lockCount(0),
      _pending(0),
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
    underMutex([&] { deliver(event); });
}

/// Calls `function` under the mutex, while no guard changes the word.
template <class Function>
void MbBufferImp::underMutex(Function function)
{
    LkGuard guard(_mutex);
    close();
    try {
        function();
    } catch (...) {
        // The exception of the event is thrown, and an exception of the end is traced.
        try {
            endIfAbandoned(guard);
        } catch (...) {
            traceCaught(__FILE__, __LINE__);
        }
        throw;
    }
    open();
    endIfAbandoned(guard);
}

void MbBufferImp::addHold(MbEvent event)
{
    std::uint64_t word = _word.load(Order::RELAXED);
    while (std::uint64_t const held = withHold(word, event)) {
        bool const mustNote = (held & ~word & MbWord::IS_NOTED) != 0;
        if (_word.compare_exchange_strong(word, held + REFERENCE, Order::ACQ_REL, Order::RELAXED)) {
            if (mustNote)
                _untoldUses->note(this);
            return;
        }
    }
    if (load(event))
        return;
    incReferenceCount();
    try {
        receive(event);
    } catch (...) {
        decReferenceCount();
        throw;
    }
}

void MbBufferImp::releaseHold()
{
    std::uint64_t word = _word.load(Order::RELAXED);
    while (!MbWord::isClosed(word) && MbWord::isLocked(word)) {
        std::uint64_t const released = word - MbWord::HOLD;
        if ((released & MbWord::HOLDS) != 0) {
            if (_word.compare_exchange_strong(word, released - REFERENCE, Order::ACQ_REL,
                                              Order::RELAXED))
                return;
        } else if (_untoldUses) {
            MbState const * const former = stateOf(MbWord::modeOf(word));
            // No other thread writes this while this thread has the last hold.
            _unlocker.store(LkThreadId(LkThreadId::CURRENT_THREAD).getNumber(), Order::RELAXED);
            if (_word.compare_exchange_strong(word,
                                              MbWord::withMode(released, MbWord::BEING_UNLOCKED),
                                              Order::ACQ_REL, Order::RELAXED))
                return finishUnlock(former);
        } else {
            break;
        }
    }
    AtScopeEnd const release([this] { decReferenceCount(); });
    receive(MbEvent::UNLOCK);
}

/// Does the rest of an unlock, after the last guard has set the mode to `BEING_UNLOCKED`. Releases
/// the reference of the guard.
void MbBufferImp::finishUnlock(MbState const *former)
{
    auto const release = [this] { decReferenceCount(); };
    std::uint64_t unlocked;
    try {
        _protocol->unlocked(reinterpret_cast<void *>(_dataStart), _dataEnd - _dataStart);
        unlocked = tryUnlock();
    } catch (...) {
        AtScopeEnd const last(release);
        throwIn(former);
    }
    if (unlocked == 0) { // Another thread has closed the word.
        AtScopeEnd const last(release);
        underMutex([&]() ZV_NO_THREAD_SAFETY_ANALYSIS {
            _state = former;
            run(stateOf(MbStateId::LOADED), LkThreadId());
        });
    } else if (unlocked < REFERENCE) {
        destroy();
    }
}

/// Ends the mode `BEING_UNLOCKED`, and releases the reference of the guard. Returns the new word,
/// or 0 if the word is closed.
std::uint64_t MbBufferImp::tryUnlock()
{
    std::uint64_t word = _word.load(Order::RELAXED);
    if ((word & MbWord::IN_STRATEGY) != 0)
        _lastUse.store(_untoldUses->tellTime(_lastUse.load(Order::RELAXED)), Order::RELAXED);
    while (!MbWord::isClosed(word) && (word & MbWord::IN_STRATEGY) != 0) {
        std::uint64_t const unlocked = MbWord::withMode(word, MbWord::LOADED) - REFERENCE;
        if (_word.compare_exchange_strong(word, unlocked, Order::ACQ_REL, Order::RELAXED))
            return unlocked;
    }
    return MbWord::isClosed(word) ? 0 : getPoolManager().insertOpen(*this);
}

bool MbBufferImp::load(MbEvent event)
{
    bool const isRead = event == MbEvent::RDLOCK;
    if (MbWord::modeOf(_word.load(Order::RELAXED)) != MbWord::UNLOADED ||
        (!isRead && event != MbEvent::WRLOCK))
        return false;
    MbWord::Mode const loading = isRead ? MbWord::BEING_RD_RELOADED : MbWord::BEING_WR_RELOADED;
    MbWord::Mode const locked = isRead ? MbWord::RD_LOCKED : MbWord::WR_LOCKED;
    if (!getPoolManager().allocateOpen(*this, loading))
        return false;
    try {
        void * const memory = reinterpret_cast<void *>(_dataStart);
        std::uint64_t const size = _dataEnd - _dataStart;
        TraceEvents::Slice const slice("buffer", "reload", std::string_view(_name));
        _protocol->reload(memory, size);
        if (!isRead)
            _protocol->markDirty(memory, size);
    } catch (...) {
        // If the mutex of the manager was abandoned, that failure is the one to throw.
        try {
            getPoolManager().deallocateRegion(this);
        } catch (...) {
            failLoad();
        }
        failLoad();
    }
    if (tryMove(loading, locked + MbWord::HOLD))
        return true;
    // Another thread has closed the word.
    try {
        underMutex([&]() ZV_NO_THREAD_SAFETY_ANALYSIS {
            addLock();
            try {
                run(stateOf(locked), LkThreadId());
            } catch (...) {
                undoLock();
                throw;
            }
        });
    } catch (...) {
        decReferenceCount();
        throw;
    }
    return true;
}

void MbBufferImp::failLoad()
{
    AtScopeEnd const release([this] { decReferenceCount(); });
    throwIn(stateOf(MbStateId::UNLOADED));
}

/// Returns to the state before a step that has failed, and throws the present exception.
void MbBufferImp::throwIn(MbState const *former)
{
    underMutex([&]() ZV_NO_THREAD_SAFETY_ANALYSIS {
        fallBack(former);
        endRun(LkThreadId());
    });
    throw;
}

void MbBufferImp::callUnload()
{
    TraceEvents::Slice const slice("buffer", "unload", std::string_view(_name));
    _protocol->unload(reinterpret_cast<void *>(_dataStart), _dataEnd - _dataStart);
}

void MbBufferImp::finishUnload()
{
    underMutex(
        [&]() ZV_NO_THREAD_SAFETY_ANALYSIS { run(stateOf(MbStateId::UNLOADED), LkThreadId()); });
}

void MbBufferImp::failUnload()
{
    throwIn(stateOf(MbStateId::LOADED));
}

std::uint64_t MbBufferImp::tryMove(std::uint64_t from, std::uint64_t to)
{
    std::uint64_t word = _word.load(Order::RELAXED);
    while (static_cast<std::uint32_t>(word) == from) {
        std::uint64_t const moved = word - from + to;
        if (_word.compare_exchange_strong(word, moved, Order::ACQ_REL, Order::RELAXED))
            return moved;
    }
    return 0;
}

bool MbBufferImp::beginMove(std::uint64_t from, std::uint64_t to)
{
    // In this mode no thread moves the buffer, and the manager's mutex keeps others from beginning.
    if (static_cast<std::uint32_t>(_word.load(Order::RELAXED)) != from)
        return false;
    _mover.store(LkThreadId(LkThreadId::CURRENT_THREAD).getNumber(), Order::RELAXED);
    return tryMove(from, to) != 0;
}

/// If the word of an unloaded or unlocked buffer is open, its manager is one that has opened it.
MbPoolManager &MbBufferImp::getPoolManager() const
{
    return static_cast<MbPoolManager &>(*_manager);
}

/// Opens the word if the buffer rests in a state that has a mode, and neither a thread nor an event
/// waits for the next change.
void MbBufferImp::open()
{
    if (_pending != 0 || _waiters != 0 || !_transientStateOwner.isNull())
        return;
    std::uint64_t opened;
    if (_state == stateOf(MbStateId::LOADED) && _untoldUses)
        opened = MbWord::LOADED | MbWord::IN_STRATEGY;
    else if (_state == stateOf(MbStateId::UNLOADED) && _untoldUses)
        opened = MbWord::UNLOADED;
    else if (_lockCount <= (_untoldUses ? 0 : 1) || _lockCount > MbWord::MAXIMUM_OF_HOLDS)
        return; // If the manager must be told each use, a single hold gains nothing.
    else if (_state == stateOf(MbStateId::RD_LOCKED))
        opened = MbWord::RD_LOCKED;
    else if (_state == stateOf(MbStateId::WR_LOCKED))
        opened = MbWord::WR_LOCKED;
    else
        return;
    opened |= static_cast<std::uint64_t>(_lockCount) * MbWord::HOLD;

    constexpr std::uint64_t KEPT = MbWord::IS_NOTED | (0 - REFERENCE);
    std::uint64_t word = _word.load(Order::RELAXED);
    while (!_word.compare_exchange_strong(word, (word & KEPT) | opened, Order::ACQ_REL,
                                          Order::RELAXED)) {
    }
}

/// Closes the word, and takes over what guards have done to it.
void MbBufferImp::close()
{
    std::uint64_t word = _word.load(Order::RELAXED);
    do {
        if (MbWord::isClosed(word))
            return;
    } while (!_word.compare_exchange_strong(word, word | MbWord::CLOSED, Order::ACQ_REL,
                                            Order::RELAXED));

    _state = stateOf(MbWord::modeOf(word));
    _lockCount = static_cast<std::int32_t>((word & MbWord::HOLDS) / MbWord::HOLD);
    if (MbWord::modeOf(word) == MbWord::BEING_UNLOCKED)
        _transientStateOwner = LkThreadId(_unlocker.load(Order::RELAXED));
    else if (MbWord::isBeingMoved(word))
        _transientStateOwner = LkThreadId(_mover.load(Order::RELAXED));
    if (MbWord::modeOf(word) != MbWord::LOADED && (word & MbWord::IN_STRATEGY) != 0)
        _manager->bufferNotUnloadable(this);
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
    std::uint64_t const word = _word.load(Order::ACQUIRE);
    if (!MbWord::isClosed(word))
        return MbWord::modeOf(word) <= MbWord::WR_LOCKED;
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
    run(next, formerOwner);
}

/// Does what `changeState` does. The calling thread is the owner already.
void MbBufferImp::run(MbState const *next, LkThreadId formerOwner)
{
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
            undoLock();
        }
        throw;
    }
}

/// Gives back a lock that has succeeded, because a postponed event has failed. The last hold
/// unlocks the buffer.
void MbBufferImp::undoLock()
{
    try {
        deliver(MbEvent::UNLOCK);
    } catch (...) {
        traceCaught(__FILE__, __LINE__);
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
    close();
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
            close();
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
