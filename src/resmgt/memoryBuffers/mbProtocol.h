// What a client does for its buffers.
#pragma once

#include "resmgt/export.h"

#include <cstdint>

namespace Zv {

class LkAsyncHandle;

/// The client's part of a buffer: where its contents come from and where they go. A buffer owns one and calls it; a
/// client derives from it.
///
/// The defaults form a chain: `load` leads to `reload`, `sync` to `unload`, an asynchronous form to the synchronous
/// one, and `reload` and `unload` do nothing. A client whose contents can be read and written back overrides these two
/// and has them all.
///
/// All operations run on the thread that caused them (that of a guard, of a call of `MbBuffer`, or of any thread that
/// needs memory: `unload`), without any lock of the library. They may use other buffers. The memory is the buffer's data
/// and its size in bytes; it is valid during the call, for asynchronous operations until their completion. Nobody else
/// reaches the buffer meanwhile: who wants it waits. A call that locks or syncs this very buffer from here fails an
/// assertion; `asyncSync`, `free` and, in `unload` and `free`, `prefetch` take effect when the operation is over. In
/// `free` the first two find nothing left to do, and in that of the last reference none of them is possible.
///
/// An exception takes the buffer back to the state in which it was, and goes on to whoever caused the operation. One
/// from `unlocked` therefore leaves the buffer locked, one from the four results of loading and reloading leaves it
/// waiting for another completion, and one from `free` when the last reference goes leaves the object behind, loaded
/// and unloadable: these had better not throw.
class ZVRESMGT_EXPORT MbProtocol
{
public:
    MbProtocol();
    MbProtocol(MbProtocol const &);
    MbProtocol &operator=(MbProtocol const &);
    virtual ~MbProtocol() noexcept(false);

    /// Fills the memory of a buffer that has no contents yet. Calls `reload`.
    virtual void load(void *memory, std::uint64_t size);
    /// Begins to fill it. The end is reported to the handle, once, from any thread, also before this returns; an
    /// exception stands for an operation that was never begun. Calls `asyncReload`.
    virtual void asyncLoad(void *memory, std::uint64_t size, LkAsyncHandle *handle);
    /// The memory is filled. Calls `asyncReloadSucceeded`.
    virtual void asyncLoadSucceeded();
    /// It could not be filled, and is gone. Calls `asyncReloadFailed`.
    virtual void asyncLoadFailed();
    /// Brings back the contents of a buffer that was unloaded. Nothing: a buffer then comes back with undefined
    /// contents.
    virtual void reload(void *memory, std::uint64_t size);
    /// Begins to bring them back, as `asyncLoad` does. Calls `reload` here and now, and reports its end; what it throws
    /// becomes a failure.
    virtual void asyncReload(void *memory, std::uint64_t size, LkAsyncHandle *handle);
    virtual void asyncReloadSucceeded();
    virtual void asyncReloadFailed();
    /// The last guard is gone; from the end of this call on the buffer may be unloaded at any moment.
    virtual void unlocked(void *memory, std::uint64_t size);
    /// Writes the contents back. Calls `unload`.
    virtual void sync(void *memory, std::uint64_t size);
    /// Begins to write them back. Calls `sync` here and now, and reports its end; what it throws becomes a failure.
    virtual void asyncSync(void *memory, std::uint64_t size, LkAsyncHandle *handle);
    virtual void asyncSyncSucceeded();
    virtual void asyncSyncFailed();
    /// The memory is about to go: the last chance to write the contents back. Any thread that needs memory.
    virtual void unload(void *memory, std::uint64_t size);
    /// The contents are not wanted any more, and the memory is about to go.
    virtual void free(void *memory, std::uint64_t size);
    /// The buffer has been loaded for a writer. Not called where a writer finds it loaded already.
    virtual void markDirty(void *memory, std::uint64_t size);
};

} // namespace Zv
