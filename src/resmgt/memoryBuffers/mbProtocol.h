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
/// **Threads**: an operation runs on the thread that caused it. That is the thread of a guard or of a call of
/// `MbBuffer`, the thread that reports a completion, or, for `unload`, any thread that needs memory. No lock of the
/// library is held. No other thread reaches the buffer meanwhile: it waits. The memory is the buffer's data, and its
/// size is in bytes. It is valid during the call, for asynchronous operations until their completion.
///
/// An operation may use other buffers. Only `unload` must not lock, sync or prefetch another buffer of the same manager.
/// For the buffer that needs the memory this fails an assertion, and for another one the thread may wait for memory for
/// ever.
///
/// A call that locks or syncs this very buffer from an operation fails an assertion. `asyncSync`, `free` and, in `unload`
/// and `free`, `prefetch` take effect when the operation is over. If the operation begins an asynchronous one, they take
/// effect when that has completed. In `free` the first two find nothing left to do. In the `free` of the last reference
/// none of them is possible. If the last handle goes inside an operation, the thread of the operation ends the buffer
/// afterwards.
///
/// **Throws**: if an operation throws, the buffer goes back to the state in which it was, and the exception goes on to the
/// caller that caused the operation. These operations should not throw:
/// - `unlocked`: the buffer stays locked.
/// - The six results, from `asyncLoadSucceeded` to `asyncSyncFailed`: the buffer waits for another completion. The code
///   that has reported the result must report one again. Until then every thread that wants the buffer waits, and so does
///   the last handle. After `asyncLoadFailed` or `asyncReloadFailed` the memory is gone, so only a failure may be
///   reported: a success throws `MbEx::ExIllegalTransition`.
/// - `free`, when the last reference goes: the object is left behind. It stays loaded, and its manager may unload it.
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
    /// exception means an operation that was never begun, so no end must be reported besides it. Calls
    /// `asyncReload`.
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
