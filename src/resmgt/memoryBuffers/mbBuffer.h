// Handle of a memory buffer, and the guards that lock it (applications).
#pragma once

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/smartPtrs/rcShdEngPtr.h"

#include <cstddef>
#include <span>

namespace Zv {

/// A handle to a named buffer. The contents of a buffer belong to the client's protocol, and its
/// memory belongs to a manager. While no guard holds the buffer, the manager may evict it. The next
/// guard loads it again, possibly at another address. The guards `MbBufferRdGuardImp` and
/// `MbBufferWrGuardImp` are the only way to the memory.
///
///     RCShdPtr<MbManager> const manager(
///         new MbHeapManager("frames", 64 << 20, ObjPtr<MbUnloadStrategy>(new MbUnloadLRU(0))));
///     MbState const * const initial = MbStateMachine::getInstance(false).getInitialState();
///     MbBufferSimpleFactory factory(initial, manager);
///     MbBuffer const frame = factory.create("frame 1", 4096);
///     {
///         MbBufferWrGuardImp const guard(frame);
///         guard.getData()[0] = std::byte{1};
///     }
///     MbBufferRdGuardImp const guard(frame);
///     std::byte const first = guard.getData()[0];
///
/// **Threads**: a buffer is thread-safe. A handle is a value: each thread needs its own.
///
/// **Throws** `RCEx::ExNullPtr` if the handle is null, except from `isNull` and `isUniqueOwner`.
///
/// **Owns**: copies of a handle share the buffer. They do not keep its memory in place. When the
/// last handle or guard is destroyed, it ends the buffer. It waits until no other thread runs a
/// transition of the buffer and no asynchronous operation is under way. It calls the protocol's
/// `free` if there are contents that were not synched, and then gives the memory back.
///
/// If ending the buffer fails, the exception leaves the destructor or the assignment of the handle.
/// If another exception is being handled, the failure is traced instead. In both cases the buffer
/// is never deleted. If the last handle is destroyed inside a call of the buffer's own protocol,
/// the thread of that call ends the buffer afterwards. A failure then leaves the operation that led
/// to the call.
class ZVRESMGT_EXPORT MbBuffer
{
public:
    /// Makes a null handle.
    MbBuffer() noexcept;
    /// Makes a handle to the buffer of a factory.
    explicit MbBuffer(RCShdEngPtr<MbBufferImp> imp);
    MbBuffer(MbBuffer const &);
    MbBuffer(MbBuffer &&) noexcept;
    MbBuffer const &operator=(MbBuffer const &);
    MbBuffer const &operator=(MbBuffer &&);
    ~MbBuffer() noexcept(false);

    bool isNull() const noexcept { return _imp.isNull(); }
    /// Returns true if there is no other handle and no guard. Returns false if the handle is null.
    bool isUniqueOwner() const { return _imp.isUnique(); }

    /// Returns the name. It is valid as long as the buffer. Takes the buffer's mutex, which no
    /// thread keeps while it waits, calls the protocol or evicts another buffer.
    char const *getName() const;
    /// Returns the size in bytes.
    int getSize() const { return _imp->getSize(); }
    MbAlignment const &getAlignment() const { return _imp->getAlignment(); }
    /// Returns true if a guard can be made without loading. Returns false during every transition.
    /// May take the buffer's mutex as `getName` does.
    bool isLoaded() const;

    /// Begins to load a buffer that is not loaded, by the protocol's `asyncLoad` or `asyncReload`.
    /// If the buffer is loaded and not locked, it becomes the most recently used one.
    ///
    /// **Blocks** while the manager has no free memory, while another thread unloads or frees the
    /// buffer, and as long as the call of the protocol takes. By default that is the whole
    /// `reload`.
    void prefetch();
    /// Writes the contents back, and returns when that is done. Does nothing if there is nothing to
    /// write.
    ///
    /// **Blocks** while there are guards, even those of the calling thread, while another thread
    /// runs a transition, and until an asynchronous operation that is under way has completed.
    void sync();
    /// Begins to write the contents back. If the buffer is locked, this takes effect when the last
    /// guard is gone.
    ///
    /// **Blocks** while another thread runs a transition, until an asynchronous operation that is
    /// under way has completed, and as long as the call of the protocol takes. By default that is
    /// the whole `sync`.
    void asyncSync();
    /// Discards the contents, so that the next guard calls `load`. If the buffer is locked, this
    /// takes effect when the last guard is gone.
    ///
    /// **Blocks** while another thread runs a transition, and until an asynchronous operation that
    /// is under way has completed.
    void free();

    /// Returns the object behind the handle, for factories and guards.
    RCShdEngPtr<MbBufferImp> const &getImp() const noexcept { return _imp; }

private:
    RCShdEngPtr<MbBufferImp> _imp;
};

/// The common base of `MbBufferRdGuardImp` and `MbBufferWrGuardImp`: a hold on a buffer and a
/// reference to it, or null.
class ZVRESMGT_EXPORT MbBufferGuard
{
public:
    bool isNull() const noexcept { return !_imp; }
    /// Returns a handle to the buffer, which is null if the guard is null.
    MbBuffer getBuffer() const { return MbBuffer(_imp); }

protected:
    /// Makes a null guard.
    MbBufferGuard() noexcept;
    /// Delivers `event` to the buffer if there is one. If that throws, there is no hold and no
    /// reference.
    MbBufferGuard(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event);
    ~MbBufferGuard() noexcept(false);
    MbBufferGuard(MbBufferGuard const &) = delete;
    MbBufferGuard &operator=(MbBufferGuard const &) = delete;

    /// Releases the hold, and delivers `event` to the other buffer. Does nothing if both are the
    /// same buffer. If it throws, the guard is null.
    void assign(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event);
    /// Returns a reference to the buffer, which may be null.
    RCShdEngPtr<MbBufferImp> imp() const { return _imp; }
    /// Returns the first byte of the data.
    void *memory() const
    {
        if (!_imp) [[unlikely]]
            RCExUtil::throwExNullPtr();
        return reinterpret_cast<void *>(_imp->getDataStart());
    }
    /// Returns the data.
    std::span<std::byte> data() const
    {
        return {static_cast<std::byte *>(memory()), static_cast<std::size_t>(_imp->getSize())};
    }

private:
    void letGo();

    MbBufferImp *_imp; // one operation of the buffer adds both the hold and the reference
};

/// Holds a buffer for reading, and keeps its memory in place. Any number of read guards, on any
/// threads, share a buffer. A write guard waits until all of them are gone.
///
///     std::size_t countZeros(MbBuffer const &buffer)
///     {
///         MbBufferRdGuardImp const guard(buffer);
///         auto const data = guard.getData();
///         return static_cast<std::size_t>(std::count(data.begin(), data.end(), std::byte{0}));
///     }
///
/// **Threads**: one thread at a time. The guard may be destroyed on another thread than the one
/// that made it.
///
/// **Blocks**: the constructor blocks while another thread holds a write guard, while the buffer is
/// being loaded, and while its manager has no free memory. A thread that already holds a write
/// guard on this buffer deadlocks. This is not detected.
///
/// **Throws**: if an operation of the buffer's protocol throws while the buffer is loaded, the
/// exception leaves the constructor, and there is no guard. An exception of a buffer that had to be
/// evicted leaves the constructor, too. When the last guard is destroyed, it calls the protocol's
/// `unlocked`. An exception of that call leaves the destructor, unless another exception is being
/// handled.
class ZVRESMGT_EXPORT MbBufferRdGuardImp : public MbBufferGuard
{
public:
    /// Makes a null guard.
    MbBufferRdGuardImp() noexcept;
    /// Locks the buffer for reading. The guard is null if the handle is null.
    explicit MbBufferRdGuardImp(MbBuffer const &buffer);
    /// Locks the other guard's buffer once more.
    MbBufferRdGuardImp(MbBufferRdGuardImp const &other);
    /// Unlocks the buffer, and locks the other guard's buffer for reading. Does nothing if both
    /// guards hold the same buffer. If it throws, this guard is null.
    MbBufferRdGuardImp &operator=(MbBufferRdGuardImp const &other);
    ~MbBufferRdGuardImp() noexcept(false);

    /// Returns the first byte of the data, which is valid as long as a guard holds the buffer.
    /// Throws `RCEx::ExNullPtr` if the guard is null.
    void const *getMemory() const { return memory(); }
    /// Returns the data. It is valid, and throws, as `getMemory`.
    [[nodiscard]] std::span<std::byte const> getData() const { return data(); }
};

/// Holds a buffer for writing, and keeps its memory in place. No other guard holds the buffer,
/// except copies of this guard, which share the hold.
///
///     void clear(MbBuffer const &buffer)
///     {
///         MbBufferWrGuardImp const guard(buffer);
///         auto const data = guard.getData();
///         std::fill(data.begin(), data.end(), std::byte{0});
///     }
///
/// The protocol's `markDirty` is called if the buffer has to be loaded for this guard. It is not
/// called if the buffer is loaded already.
///
/// **Threads**: one thread at a time. The guard may be destroyed on another thread than the one
/// that made it.
///
/// **Blocks**: the constructor blocks while there is another guard on the buffer, while the buffer
/// is being loaded, and while its manager has no free memory. A thread that already holds a guard
/// on this buffer deadlocks. This is not detected.
///
/// **Throws** as `MbBufferRdGuardImp` does.
class ZVRESMGT_EXPORT MbBufferWrGuardImp : public MbBufferGuard
{
public:
    /// Makes a null guard.
    MbBufferWrGuardImp() noexcept;
    /// Locks the buffer for writing. The guard is null if the handle is null.
    explicit MbBufferWrGuardImp(MbBuffer const &buffer);
    /// Shares the other guard's hold. Does not block.
    MbBufferWrGuardImp(MbBufferWrGuardImp const &other);
    /// Unlocks the buffer, and shares the other guard's hold. Does nothing if both guards hold the
    /// same buffer. If it throws, this guard is null.
    MbBufferWrGuardImp &operator=(MbBufferWrGuardImp const &other);
    ~MbBufferWrGuardImp() noexcept(false);

    /// Returns the first byte of the data, which is valid as long as a guard holds the buffer.
    /// Throws `RCEx::ExNullPtr` if the guard is null.
    void *getMemory() const { return memory(); }
    /// Returns the data. It is valid, and throws, as `getMemory`.
    [[nodiscard]] std::span<std::byte> getData() const { return data(); }
};

} // namespace Zv
