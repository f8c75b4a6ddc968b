// The handle of a buffer.
#pragma once

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/smartPtrs/rcShdEngPtr.h"

namespace Zv {

/// A named block of memory whose contents belong to a client's protocol and whose memory belongs to a manager. It may
/// lose its memory whenever nobody holds a lock on it, and has it back, possibly elsewhere, when it is locked again: the
/// guards `MbBufferRdGuardImp` and `MbBufferWrGuardImp` are the only way to it.
///
///     RCShdPtr<MbManager> manager(new MbHeapManager("frames", 64 << 20, makeObj<MbUnloadLRU>(0)));
///     MbBufferSimpleFactory factory(MbStateMachine::getInstance(false).getInitialState(), manager);
///     MbBuffer frame = factory.create("frame 1", makeObj<FrameProtocol>(file), frameSize, MbAlignment(4095, 0, 0));
///     ...
///     MbBufferRdGuardImp guard(frame);
///     show(guard.getMemory());
///
/// A small value: copies share the buffer, and none of them keeps its memory in place. The last handle or guard to go
/// ends the buffer: it waits until no other thread runs a transition of it and no asynchronous operation is under way,
/// calls the protocol's `free` if there are contents that were not synched, and gives its memory back. A failure comes out
/// of the handle's destructor or assignment, or is traced while another exception passes; the buffer is never deleted then.
/// If the last handle goes inside a call of the buffer's own protocol, the thread of that call ends the buffer afterwards.
/// A failure then comes out of the operation that led to the call.
///
/// Any thread may use a buffer at any time, by a handle of its own. A null handle throws `RCEx::ExNullPtr` at all that is
/// asked of it but `isNull` and `isUniqueOwner`.
class ZVRESMGT_EXPORT MbBuffer
{
public:
    /// Null.
    MbBuffer() noexcept;
    explicit MbBuffer(RCShdEngPtr<MbBufferImp> imp);
    MbBuffer(MbBuffer const &);
    MbBuffer(MbBuffer &&) noexcept;
    MbBuffer const &operator=(MbBuffer const &);
    MbBuffer const &operator=(MbBuffer &&);
    ~MbBuffer() noexcept(false);

    bool isNull() const noexcept { return _imp.isNull(); }
    /// Whether there is no other handle and no guard. False for null.
    bool isUniqueOwner() const { return _imp.isUnique(); }

    /// Returns the name, which is valid as long as the buffer. Takes the buffer's mutex. No thread keeps that while it
    /// waits, calls the protocol or unloads another buffer.
    char const *getName() const;
    /// Bytes.
    int getSize() const { return _imp->getSize(); }
    MbAlignment const &getAlignment() const { return _imp->getAlignment(); }
    /// Returns whether a guard can be had without loading. False during every transition. Takes the buffer's mutex like
    /// `getName`.
    bool isLoaded() const;

    /// Begins to load a buffer that is not loaded, by the protocol's `asyncLoad` or `asyncReload`. A buffer that is loaded
    /// and not locked becomes the most recently used.
    ///
    /// **Blocks** while the manager has no free memory, while another thread unloads or frees the buffer, and as long as
    /// the call of the protocol takes: by default that is the whole `reload`.
    void prefetch();
    /// Writes the contents back and returns when that is done. Does nothing if there is nothing to write.
    ///
    /// **Blocks** while there are guards, those of the calling thread among them, while another thread runs a transition,
    /// and until an asynchronous operation under way has completed.
    void sync();
    /// Begins to write the contents back. If the buffer is locked, this takes effect when the last guard is gone.
    ///
    /// **Blocks** while another thread runs a transition, until an asynchronous operation under way has completed, and as
    /// long as the call of the protocol takes: by default that is the whole `sync`.
    void asyncSync();
    /// Gives the contents up: the next guard loads anew. If the buffer is locked, this takes effect when the last guard is
    /// gone.
    ///
    /// **Blocks** while another thread runs a transition and until an asynchronous operation under way has completed.
    void free();

    /// For whoever builds on the buffer itself.
    RCShdEngPtr<MbBufferImp> const &getImp() const noexcept { return _imp; }

private:
    RCShdEngPtr<MbBufferImp> _imp;
};

} // namespace Zv
