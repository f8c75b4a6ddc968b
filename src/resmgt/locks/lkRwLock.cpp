#include "resmgt/locks/lkRwLock.h"

#include "platform/interlocked.h"

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

bool LkRwLock::readLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    LkGuard<LkMutex const> guard(_lock);
    while (waitForWriters()) {
        storeRelease(_waitingReaders, _waitingReaders + 1);
        _readers.waitNextPulse(guard);
        storeRelease(_waitingReaders, _waitingReaders - 1);
    }
    storeRelease(_rwLock, _rwLock + 1);
    return true;
}

bool LkRwLock::writeLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    LkGuard<LkMutex const> guard(_lock);
    while (_rwLock != 0) {
        storeRelease(_waitingWriters, _waitingWriters + 1);
        _writers.wait(guard);
        storeRelease(_waitingWriters, _waitingWriters - 1);
        _isWriterCalled = false;
    }
    storeRelease(_rwLock, -1);
    _writer.setCurrentThread();
    return true;
}

bool LkRwLock::tryReadLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    LkGuard<LkMutex const> guard(_lock);
    if (_rwLock < 0 || _waitingWriters != 0)
        return false;
    storeRelease(_rwLock, _rwLock + 1);
    return true;
}

bool LkRwLock::tryWriteLock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    LkGuard<LkMutex const> guard(_lock);
    if (_rwLock != 0)
        return false;
    storeRelease(_rwLock, -1);
    _writer.setCurrentThread();
    return true;
}

bool LkRwLock::spinReadLock(unsigned tries) const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    bool isOurs;
    do
        isOurs = tryReadLock();
    while (--tries != 0 && !isOurs);
    return isOurs || readLock();
}

bool LkRwLock::spinWriteLock(unsigned tries) const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    bool isOurs;
    do
        isOurs = tryWriteLock();
    while (--tries != 0 && !isOurs);
    return isOurs || writeLock();
}

void LkRwLock::unlock() const ZV_NO_THREAD_SAFETY_ANALYSIS
{
    bool callsWriter = false;
    bool callsReaders = false;
    {
        LkGuard<LkMutex const> guard(_lock);
        if (_rwLock < 0)
            _writer.reset();
        storeRelease(_rwLock, _rwLock >= 0 ? _rwLock - 1 : 0);
        if (_waitingWriters != 0) {
            // Once is enough until one of them has come: pulses that pile up would wake later waits for nothing.
            callsWriter = _rwLock == 0 && !_isWriterCalled;
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

bool LkRwLock::isWriteLock() const
{
    return loadAcquire(_rwLock) < 0;
}

bool LkRwLock::isReadLock() const
{
    return loadAcquire(_rwLock) > 0;
}

bool LkRwLock::isLockedInline() const
{
    return loadAcquire(_rwLock) != 0;
}

bool LkRwLock::waitForWriters() const
{
    return loadAcquire(_rwLock) < 0 || loadAcquire(_waitingWriters) != 0;
}

void LkRwLock::dump(std::ostream &stream) const
{
    stream << "name " << _name << " rwLock " << loadAcquire(_rwLock) << " wr wait "
           << loadAcquire(_waitingWriters) << " rd wait " << loadAcquire(_waitingReaders);
}

} // namespace Zv
