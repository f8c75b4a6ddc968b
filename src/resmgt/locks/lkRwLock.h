// Reader-writer lock (applications).
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/locks/lkThreadId.h"
#include "zvbase/platform/shared.h"

#include <iosfwd>

namespace Zv {

/// Lock that many readers or one writer can hold. A waiting writer keeps new readers out.
///
///     #include <shared_mutex>
///
///     Zv::LkRwLock lock("table");
///     {
///         std::shared_lock const reader(lock);
///     }
///     {
///         Zv::LkGuard const writer(lock);
///     }
///
/// `lock`, `tryLock`, `try_lock` and `spinLock` of a non-const object write, those of a `const`
/// object read. So `LkGuard` and `std::unique_lock` on a `const` lock read. `std::shared_lock`
/// always reads.
///
/// **Limits**: there is no recursion. A thread that holds the write lock and asks for either lock
/// deadlocks. So does a reader that asks for a read lock again while a writer waits. This is not
/// detected. If a waiting thread is killed, it stays counted, and after a killed writer no reader
/// gets the lock again.
///
/// **Threads**: thread-safe. The lock has no owner, so another thread may release it.
///
/// **Throws** `AssertionFailed` if a wait fails. The thread is no longer counted then and keeps no
/// other thread out.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the lock.
class ZVRESMGT_EXPORT ZV_CAPABILITY("rwlock") LkRwLock
{
public:
    explicit LkRwLock(char const *name);
    /// Builds a lock whose internal mutex has these attributes.
    LkRwLock(char const *name, LkMutexAttr const &attr);
    LkRwLock(LkRwLock const &) = delete;
    LkRwLock &operator=(LkRwLock const &) = delete;

    /// Takes the write lock, as `writeLock` does.
    bool lock() ZV_ACQUIRE() { return writeLock(); }
    /// Takes the read lock, as `readLock` does.
    bool lock() const ZV_ACQUIRE_SHARED() { return readLock(); }
    /// Tries to take the write lock, as `tryWriteLock` does.
    [[nodiscard]] bool tryLock() ZV_TRY_ACQUIRE(true) { return tryWriteLock(); }
    /// Tries to take the read lock, as `tryReadLock` does.
    [[nodiscard]] bool tryLock() const ZV_TRY_ACQUIRE_SHARED(true) { return tryReadLock(); }
    /// Takes the write lock, as `spinWriteLock` does.
    bool spinLock(unsigned tries) ZV_ACQUIRE() { return spinWriteLock(tries); }
    /// Takes the read lock, as `spinReadLock` does.
    bool spinLock(unsigned tries) const ZV_ACQUIRE_SHARED() { return spinReadLock(tries); }

    /// Takes the read lock. Always returns true. **Blocks** until no writer holds the lock or waits
    /// for it.
    bool readLock() const ZV_ACQUIRE_SHARED();
    /// Takes the write lock. Always returns true. **Blocks** until no thread holds the lock.
    bool writeLock() const ZV_ACQUIRE();
    /// Takes the read lock unless a writer holds the lock or waits for it. Does not wait for
    /// another thread.
    [[nodiscard]] bool tryReadLock() const ZV_TRY_ACQUIRE_SHARED(true);
    /// Takes the write lock if no thread holds the lock. Does not wait for another thread.
    [[nodiscard]] bool tryWriteLock() const ZV_TRY_ACQUIRE(true);
    /// Tries to take the read lock `tries` times, then **blocks** as `readLock` does. 0 tries mean
    /// 2^32. Always returns true.
    bool spinReadLock(unsigned tries) const ZV_ACQUIRE_SHARED();
    /// Tries to take the write lock `tries` times, then **blocks** as `writeLock` does. 0 tries
    /// mean 2^32. Always returns true.
    bool spinWriteLock(unsigned tries) const ZV_ACQUIRE();
    /// Releases a read or a write lock. The lock must be held: unlocking a free lock leaves it
    /// locked for writing.
    void unlock() const ZV_THREAD_ANNOTATION(release_generic_capability());

    /// Calls `tryWriteLock`. The guards of the standard library use this name and the following
    /// ones.
    [[nodiscard]] bool try_lock() ZV_TRY_ACQUIRE(true) { return tryWriteLock(); }
    /// Calls `tryReadLock`.
    [[nodiscard]] bool try_lock() const ZV_TRY_ACQUIRE_SHARED(true) { return tryReadLock(); }
    /// Calls `readLock`.
    void lock_shared() const ZV_ACQUIRE_SHARED() { readLock(); }
    /// Calls `tryReadLock`.
    [[nodiscard]] bool try_lock_shared() const ZV_TRY_ACQUIRE_SHARED(true) { return tryReadLock(); }
    /// Calls `unlock`.
    void unlock_shared() const ZV_RELEASE_SHARED() { unlock(); }

    /// Returns true if some thread holds the write lock. Use it for checks and reports only.
    bool isLocked() { return isWriteLock(); }
    /// Returns true if some thread holds the read lock. Use it for checks and reports only.
    bool isLocked() const { return isReadLock(); }
    /// Returns true if some thread holds the write lock: the lock has no owner.
    bool isLockedByThread() { return isWriteLock(); }
    /// Returns true if some thread holds the read lock: the lock has no owner.
    bool isLockedByThread() const { return isReadLock(); }
    /// Returns true if some thread holds the write lock.
    bool isWriteLock() const;
    /// Returns true if some thread holds the read lock.
    bool isReadLock() const;
    /// Returns true if some thread holds the lock, of either kind.
    bool isLockedInline() const;
    /// Returns true if a writer holds the lock or waits for it: new readers have to wait.
    bool waitForWriters() const;

    char const *getName() const noexcept { return _name; }
    /// Writes "name ", the name, " rwLock ", the state (the number of readers, -1 for a writer, 0
    /// if free), " wr wait ", the waiting writers, " rd wait " and the waiting readers.
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

    // The lower half is the state: the number of readers, -1 for a writer, 0 if free. Above it
    // there is a flag for waiting writers and one for waiting readers. The flags change under _lock
    // only. The state changes without _lock if no flag is set.
    ZvPlatform::Shared<unsigned long long> mutable _rwLock;
    LkPulse _readers;
    // Written under _lock, read without.
    ZvPlatform::Shared<unsigned> mutable _waitingWriters;
    ZvPlatform::Shared<unsigned> mutable _waitingReaders;
    LkPulse _writers;
    LkThreadId mutable _writer;
    bool mutable _isWriterCalled; // a pulse is on its way to a waiting writer
};

} // namespace Zv
