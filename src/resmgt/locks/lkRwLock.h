// The read-write lock.
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/locks/lkThreadId.h"

#include <iosfwd>

namespace Zv {

/// Many readers or one writer. A writer that waits keeps new readers out.
///
/// The constness of the object chooses: `lock`, `tryLock` and `spinLock` of a non-const object write, those of a const
/// object read, so `LkGuard<LkRwLock>` writes and `LkGuard<LkRwLock const>` reads. There is no recursion: who holds the
/// lock for writing and asks for it again, for whatever, waits for ever; so does a reader who asks again while a writer
/// waits. The lock has no owner and tests none: who unlocks it without holding it breaks it. A thread that is killed
/// while it waits stays counted, a writer so that no reader comes in again. A wait that fails is a failed assertion; it
/// is no longer counted, and keeps no other thread out. The name is not copied.
class ZVRESMGT_EXPORT ZV_CAPABILITY("rwlock") LkRwLock
{
public:
    explicit LkRwLock(char const *name);
    LkRwLock(char const *name, LkMutexAttr const &attr);
    LkRwLock(LkRwLock const &) = delete;
    LkRwLock &operator=(LkRwLock const &) = delete;

    bool lock() ZV_ACQUIRE() { return writeLock(); }
    bool lock() const ZV_ACQUIRE_SHARED() { return readLock(); }
    [[nodiscard]] bool tryLock() ZV_TRY_ACQUIRE(true) { return tryWriteLock(); }
    [[nodiscard]] bool tryLock() const ZV_TRY_ACQUIRE_SHARED(true) { return tryReadLock(); }
    bool spinLock(unsigned tries) ZV_ACQUIRE() { return spinWriteLock(tries); }
    bool spinLock(unsigned tries) const ZV_ACQUIRE_SHARED() { return spinReadLock(tries); }

    /// Blocks until no writer holds the lock and none waits for it. Always true.
    bool readLock() const ZV_ACQUIRE_SHARED();
    /// Blocks until nobody holds the lock. Always true.
    bool writeLock() const ZV_ACQUIRE();
    /// Never wait for another holder. A read lock is refused also where a writer waits.
    [[nodiscard]] bool tryReadLock() const ZV_TRY_ACQUIRE_SHARED(true);
    [[nodiscard]] bool tryWriteLock() const ZV_TRY_ACQUIRE(true);
    /// Try up to `tries` times, 0 standing for 2^32, then block. Always true.
    bool spinReadLock(unsigned tries) const ZV_ACQUIRE_SHARED();
    bool spinWriteLock(unsigned tries) const ZV_ACQUIRE();
    /// Lets go of either kind. Only for who holds it: a free lock would be locked for writing by it.
    void unlock() const ZV_THREAD_ANNOTATION(release_generic_capability());

    /// The names that the guards of the standard library call. `try_lock` goes by the constness of the object, as
    /// `tryLock` does, and the others read.
    [[nodiscard]] bool try_lock() ZV_TRY_ACQUIRE(true) { return tryWriteLock(); }
    [[nodiscard]] bool try_lock() const ZV_TRY_ACQUIRE_SHARED(true) { return tryReadLock(); }
    void lock_shared() const ZV_ACQUIRE_SHARED() { readLock(); }
    [[nodiscard]] bool try_lock_shared() const ZV_TRY_ACQUIRE_SHARED(true) { return tryReadLock(); }
    void unlock_shared() const ZV_RELEASE_SHARED() { unlock(); }

    /// What some thread holds, for checks and reports: a write lock on a non-const object, a read lock on a const one.
    bool isLocked() { return isWriteLock(); }
    bool isLocked() const { return isReadLock(); }
    /// The same: the lock has no owner.
    bool isLockedByThread() { return isWriteLock(); }
    bool isLockedByThread() const { return isReadLock(); }
    bool isWriteLock() const;
    bool isReadLock() const;
    /// Whether anybody holds the lock, of either kind.
    bool isLockedInline() const;
    /// Whether a writer holds the lock or waits for it: new readers have to wait.
    bool waitForWriters() const;

    char const *getName() const noexcept { return _name; }
    /// "name ", name, " rwLock ", the state (readers, -1 a writer, 0 free), " wr wait ", waiting writers, " rd wait ",
    /// waiting readers.
    void dump(std::ostream &stream) const;

private:
    char const *_name;
    LkMutex _lock;
    bool readLockSlowly() const;
    bool writeLockSlowly() const;
    void unlockSlowly() const;
    void withdrawReader() const;
    void withdrawWriter() const;
    void clearFlag(unsigned long long flag) const;
    int getState() const;

    // The state: readers, -1 a writer, 0 free; and above it a flag for each kind of those who wait. The flags change
    // under _lock alone, the state without it where no flag is in the way.
    unsigned long long mutable _rwLock;
    LkPulse _readers;
    // Written under _lock; the questions read them without.
    unsigned mutable _waitingWriters;
    unsigned mutable _waitingReaders;
    LkPulse _writers;
    LkThreadId mutable _writer;
    bool mutable _isWriterCalled; // a pulse is on its way to a waiting writer
};

} // namespace Zv
