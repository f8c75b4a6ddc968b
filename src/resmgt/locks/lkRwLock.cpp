#include "resmgt/locks/lkRwLock.h"

#include "zvbase/platform/shared.h"
#include "zvbase/traceEvents.h"

#include <ostream>

namespace Zv {

LkRwLock::LkRwLock(char const *name) : LkRwLock(name, LkMutexAttr::getDefaultAttr()) {}

LkRwLock::LkRwLock(char const *name, LkMutexAttr const &attr)
    : _name(name),
      _lock(name, attr),
      _rwLock(0),
      _readers(name, LkPulse::WAKE_ALL),
      _waitingWriters(0),
      _waitingReaders(0),
      _writers(name, LkPulse::WAKE_ONE),
      _writer(LkThreadId::NULL_ID),
      _isWriterCalled(false)
{}

namespace {

using Word = unsigned long long;

constexpr Word STATE = 0xFFFFFFFF;
constexpr Word WRITERS_WAIT = STATE + 1;
constexpr Word READERS_WAIT = WRITERS_WAIT << 1;

int stateOf(Word word)
{
    return static_cast<int>(static_cast<unsigned>(word));
}

Word withState(Word word, int state)
{
    return (word & ~STATE) | static_cast<unsigned>(state);
}

Word withFlag(Word word, Word flag, bool isSet)
{
    return isSet ? word | flag : word & ~flag;
}

bool isOpenToReaders(Word word)
{
    return stateOf(word) >= 0 && !(word & WRITERS_WAIT);
}

Word unlocked(Word word)
{
    int const state = stateOf(word);
    return withState(word, state >= 0 ? state - 1 : 0);
}

} // namespace

bool LkRwLock::readLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    return tryReadLock() || readLockSlowly();
}

bool LkRwLock::writeLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    return tryWriteLock() || writeLockSlowly();
}

bool LkRwLock::tryReadLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    Word word = _rwLock.load(ZvPlatform::Order::RELAXED);
    while (isOpenToReaders(word))
        if (_rwLock.compare_exchange_strong(word, word + 1, ZvPlatform::Order::ACQUIRE,
                                            ZvPlatform::Order::RELAXED))
            return true;
    return false;
}

bool LkRwLock::tryWriteLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    Word word = _rwLock.load(ZvPlatform::Order::RELAXED);
    while (stateOf(word) == 0)
        if (_rwLock.compare_exchange_strong(word, withState(word, -1), ZvPlatform::Order::ACQUIRE,
                                            ZvPlatform::Order::RELAXED)) {
            _writer.setCurrentThread();
            return true;
        }
    return false;
}

bool LkRwLock::readLockSlowly() const
{
    TraceEvents::LockWait const wait(_name);
    LkGuard const guard(_lock);
    Word word = _rwLock.load(ZvPlatform::Order::RELAXED);
    for (;;) {
        if (isOpenToReaders(word)) {
            // The lock is taken and the flag is cleared, or kept for other readers, in one step.
            if (_rwLock.compare_exchange_strong(
                    word,
                    withFlag(word + 1, READERS_WAIT,
                             _waitingReaders.load(ZvPlatform::Order::RELAXED) != 0),
                    ZvPlatform::Order::ACQUIRE, ZvPlatform::Order::RELAXED))
                return true;
        } else if (word & READERS_WAIT || _rwLock.compare_exchange_strong(
                                              word, word | READERS_WAIT, ZvPlatform::Order::RELAXED,
                                              ZvPlatform::Order::RELAXED)) {
            _waitingReaders.store(_waitingReaders.load(ZvPlatform::Order::RELAXED) + 1,
                                  ZvPlatform::Order::RELAXED);
            try {
                _readers.waitNextPulse(guard);
            } catch (...) {
                withdrawReader();
                throw;
            }
            _waitingReaders.store(_waitingReaders.load(ZvPlatform::Order::RELAXED) - 1,
                                  ZvPlatform::Order::RELAXED);
            word = _rwLock.load(ZvPlatform::Order::RELAXED);
        }
    }
}

bool LkRwLock::writeLockSlowly() const
{
    TraceEvents::LockWait const wait(_name);
    LkGuard const guard(_lock);
    Word word = _rwLock.load(ZvPlatform::Order::RELAXED);
    for (;;) {
        if (stateOf(word) == 0) {
            if (_rwLock.compare_exchange_strong(
                    word,
                    withFlag(withState(word, -1), WRITERS_WAIT,
                             _waitingWriters.load(ZvPlatform::Order::RELAXED) != 0),
                    ZvPlatform::Order::ACQUIRE, ZvPlatform::Order::RELAXED))
                break;
        } else if (word & WRITERS_WAIT || _rwLock.compare_exchange_strong(
                                              word, word | WRITERS_WAIT, ZvPlatform::Order::RELAXED,
                                              ZvPlatform::Order::RELAXED)) {
            _waitingWriters.store(_waitingWriters.load(ZvPlatform::Order::RELAXED) + 1,
                                  ZvPlatform::Order::RELAXED);
            try {
                _writers.wait(guard);
            } catch (...) {
                withdrawWriter();
                throw;
            }
            _waitingWriters.store(_waitingWriters.load(ZvPlatform::Order::RELAXED) - 1,
                                  ZvPlatform::Order::RELAXED);
            _isWriterCalled = false;
            word = _rwLock.load(ZvPlatform::Order::RELAXED);
        }
    }
    _writer.setCurrentThread();
    return true;
}

/// Takes back the count and the flag of a reader whose wait fails.
void LkRwLock::withdrawReader() const
{
    _waitingReaders.store(_waitingReaders.load(ZvPlatform::Order::RELAXED) - 1,
                          ZvPlatform::Order::RELAXED);
    if (_waitingReaders.load(ZvPlatform::Order::RELAXED) == 0)
        clearFlag(READERS_WAIT);
}

/// Takes back the count and the flag of a writer whose wait fails. The writer may have used up a
/// pulse, and it may have been the only one that kept readers out.
void LkRwLock::withdrawWriter() const
{
    _waitingWriters.store(_waitingWriters.load(ZvPlatform::Order::RELAXED) - 1,
                          ZvPlatform::Order::RELAXED);
    _isWriterCalled = false;
    if (_waitingWriters.load(ZvPlatform::Order::RELAXED) == 0) {
        clearFlag(WRITERS_WAIT);
        if (_waitingReaders.load(ZvPlatform::Order::RELAXED) != 0 && getState() >= 0)
            _readers.pulse();
    } else if (getState() == 0) {
        _isWriterCalled = true;
        _writers.pulse();
    }
}

void LkRwLock::clearFlag(unsigned long long flag) const
{
    Word word = _rwLock.load(ZvPlatform::Order::RELAXED);
    while (!_rwLock.compare_exchange_strong(word, word & ~flag, ZvPlatform::Order::RELAXED,
                                            ZvPlatform::Order::RELAXED)) {
    }
}

bool LkRwLock::spinReadLock(unsigned tries) const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    bool isOurs = false;
    do
        isOurs = tryReadLock();
    while (--tries != 0 && !isOurs);
    return isOurs || readLock();
}

bool LkRwLock::spinWriteLock(unsigned tries) const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    bool isOurs = false;
    do
        isOurs = tryWriteLock();
    while (--tries != 0 && !isOurs);
    return isOurs || writeLock();
}

void LkRwLock::unlock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    Word word = _rwLock.load(ZvPlatform::Order::RELAXED);
    if (stateOf(word) < 0)
        _writer.reset();
    while (!(word & (WRITERS_WAIT | READERS_WAIT)))
        if (_rwLock.compare_exchange_strong(word, unlocked(word), ZvPlatform::Order::RELEASE,
                                            ZvPlatform::Order::RELAXED))
            return;
    unlockSlowly();
}

void LkRwLock::unlockSlowly() const
{
    bool callsWriter = false;
    bool callsReaders = false;
    {
        LkGuard const guard(_lock);
        Word word = _rwLock.load(ZvPlatform::Order::RELAXED);
        while (!_rwLock.compare_exchange_strong(word, unlocked(word), ZvPlatform::Order::RELEASE,
                                                ZvPlatform::Order::RELAXED)) {
        }
        if (_waitingWriters.load(ZvPlatform::Order::RELAXED) != 0) {
            // One pulse until a writer has come: further ones would wake later waits for nothing.
            callsWriter = stateOf(unlocked(word)) == 0 && !_isWriterCalled;
            _isWriterCalled = _isWriterCalled || callsWriter;
        } else {
            callsReaders = _waitingReaders.load(ZvPlatform::Order::RELAXED) != 0;
        }
    }
    if (callsWriter)
        _writers.pulse();
    else if (callsReaders)
        _readers.pulse();
}

int LkRwLock::getState() const
{
    return stateOf(_rwLock.load(ZvPlatform::Order::RELAXED));
}

bool LkRwLock::isWriteLock() const
{
    return getState() < 0;
}

bool LkRwLock::isReadLock() const
{
    return getState() > 0;
}

bool LkRwLock::isLockedInline() const
{
    return getState() != 0;
}

bool LkRwLock::waitForWriters() const
{
    return getState() < 0 || _waitingWriters.load(ZvPlatform::Order::RELAXED) != 0;
}

void LkRwLock::dump(std::ostream &stream) const
{
    stream << "name " << _name << " rwLock " << getState() << " wr wait "
           << _waitingWriters.load(ZvPlatform::Order::RELAXED) << " rd wait "
           << _waitingReaders.load(ZvPlatform::Order::RELAXED);
}

} // namespace Zv
