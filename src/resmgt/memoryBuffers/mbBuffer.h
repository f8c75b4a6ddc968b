// A memory buffer that may be evicted and loaded again (applications).
#pragma once

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/smartPtrs/rcShdEngPtr.h"

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
    /// Takes the buffer's mutex as `getName` does.
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

} // namespace Zv
