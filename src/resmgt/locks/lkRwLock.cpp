#include "resmgt/locks/lkRwLock.h"

#include "zvbase/platform/interlocked.h"
#include "zvbase/traceEvents.h"

#include <ostream>

namespace Zv {

using namespace ZvPlatform::Interlocked;

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
    Word word = loadRelaxed(_rwLock);
    while (isOpenToReaders(word))
        if (compareExchange(_rwLock, word, word + 1))
            return true;
    return false;
}

bool LkRwLock::tryWriteLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    Word word = loadRelaxed(_rwLock);
    while (stateOf(word) == 0)
        if (compareExchange(_rwLock, word, withState(word, -1))) {
            _writer.setCurrentThread();
            return true;
        }
    return false;
}

bool LkRwLock::readLockSlowly() const
{
    TraceEvents::LockWait const wait(_name);
    LkGuard const guard(_lock);
    Word word = loadRelaxed(_rwLock);
    for (;;) {
        if (isOpenToReaders(word)) {
            // The lock is taken and the flag is cleared, or kept for other readers, in one step.
            if (compareExchange(_rwLock, word,
                                withFlag(word + 1, READERS_WAIT, _waitingReaders != 0)))
                return true;
        } else if (word & READERS_WAIT || compareExchange(_rwLock, word, word | READERS_WAIT)) {
            storeRelease(_waitingReaders, _waitingReaders + 1);
            try {
                _readers.waitNextPulse(guard);
            } catch (...) {
                withdrawReader();
                throw;
            }
            storeRelease(_waitingReaders, _waitingReaders - 1);
            word = loadRelaxed(_rwLock);
        }
    }
}

bool LkRwLock::writeLockSlowly() const
{
    TraceEvents::LockWait const wait(_name);
    LkGuard const guard(_lock);
    Word word = loadRelaxed(_rwLock);
    for (;;) {
        if (stateOf(word) == 0) {
            if (compareExchange(_rwLock, word,
                                withFlag(withState(word, -1), WRITERS_WAIT, _waitingWriters != 0)))
                break;
        } else if (word & WRITERS_WAIT || compareExchange(_rwLock, word, word | WRITERS_WAIT)) {
            storeRelease(_waitingWriters, _waitingWriters + 1);
            try {
                _writers.wait(guard);
            } catch (...) {
                withdrawWriter();
                throw;
            }
            storeRelease(_waitingWriters, _waitingWriters - 1);
            _isWriterCalled = false;
            word = loadRelaxed(_rwLock);
        }
    }
    _writer.setCurrentThread();
    return true;
}

/// Takes back the count and the flag of a reader whose wait fails.
void LkRwLock::withdrawReader() const
{
    storeRelease(_waitingReaders, _waitingReaders - 1);
    if (_waitingReaders == 0)
        clearFlag(READERS_WAIT);
}

/// Takes back the count and the flag of a writer whose wait fails. The writer may have used up a
/// pulse, and it may have been the only one that kept readers out.
void LkRwLock::withdrawWriter() const
{
    storeRelease(_waitingWriters, _waitingWriters - 1);
    _isWriterCalled = false;
    if (_waitingWriters == 0) {
        clearFlag(WRITERS_WAIT);
        if (_waitingReaders != 0 && getState() >= 0)
            _readers.pulse();
    } else if (getState() == 0) {
        _isWriterCalled = true;
        _writers.pulse();
    }
}

void LkRwLock::clearFlag(unsigned long long flag) const
{
    Word word = loadRelaxed(_rwLock);
    while (!compareExchange(_rwLock, word, word & ~flag)) {
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
    Word word = loadRelaxed(_rwLock);
    if (stateOf(word) < 0)
        _writer.reset();
    while (!(word & (WRITERS_WAIT | READERS_WAIT)))
        if (compareExchange(_rwLock, word, unlocked(word)))
            return;
    unlockSlowly();
}

void LkRwLock::unlockSlowly() const
{
    bool callsWriter = false;
    bool callsReaders = false;
    {
        LkGuard const guard(_lock);
        Word word = loadRelaxed(_rwLock);
        while (!compareExchange(_rwLock, word, unlocked(word))) {
        }
        if (_waitingWriters != 0) {
            // One pulse until a writer has come: further ones would wake later waits for nothing.
            callsWriter = stateOf(unlocked(word)) == 0 && !_isWriterCalled;
            _isWriterCalled = _isWriterCalled || callsWriter;
        } else {
            callsReaders = _waitingReaders != 0;
        }
    }
    if (callsWriter)
        _writers.pulse();
    else if (callsReaders)
        _readers.pulse();
}

int LkRwLock::getState() const
{
    return stateOf(loadAcquire(_rwLock));
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
    return getState() < 0 || loadAcquire(_waitingWriters) != 0;
}

void LkRwLock::dump(std::ostream &stream) const
{
    stream << "name " << _name << " rwLock " << getState() << " wr wait "
           << loadAcquire(_waitingWriters) << " rd wait " << loadAcquire(_waitingReaders);
}

} // namespace Zv
