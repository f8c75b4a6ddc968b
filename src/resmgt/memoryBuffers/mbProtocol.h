// Interface through which a memory buffer loads and writes back its contents (applications).
#pragma once

#include "resmgt/export.h"

#include <cstddef>
#include <cstdint>
#include <span>

namespace Zv {

class LkAsyncHandle;

/// Supplies the contents of a buffer. A client derives from it, and a factory passes it to the
/// buffer, which calls it.
///
///     #include <algorithm>
///
///     class Silence : public MbProtocol
///     {
///     public:
///         void reload(void *memory, std::uint64_t size) override
///         {
///             auto const data = getData(memory, size);
///             std::fill(data.begin(), data.end(), std::byte{0});
///         }
///     };
///
/// The defaults form a chain: `load` calls `reload`, `sync` calls `unload`, an asynchronous
/// operation calls the synchronous one, and `reload` and `unload` do nothing. So a client whose
/// contents can be read and written back overrides these two.
///
/// **Threads**: an operation runs on the thread that caused it. That is the thread of a guard or of
/// a call of `MbBuffer`, the thread that reports a completion, or, for `unload`, any thread that
/// needs memory. No lock of the library is held. No other thread reaches the buffer meanwhile: it
/// waits. The memory is the buffer's data, and its size is in bytes. It is valid during the call,
/// and for an asynchronous operation until its completion.
///
/// An operation may use other buffers. Only `unload` must not lock, sync or prefetch another buffer
/// of the same manager. For the buffer that needs the memory this fails an assertion. For any other
/// buffer the thread may wait for memory without end.
///
/// If an operation locks or syncs its own buffer, an assertion fails. `asyncSync`, `free` and, in
/// `unload` and `free`, `prefetch` take effect when the operation is over. If the operation begins
/// an asynchronous one, they take effect when that has completed. In `free` the first two find
/// nothing left to do. In the `free` of the last reference none of them is possible. If the last
/// handle is destroyed inside an operation, the thread of the operation ends the buffer afterwards.
///
/// **Throws**: if an operation throws, the buffer returns to the state in which it was, and the
/// exception goes on to the caller that caused the operation. These operations should not throw:
/// - `unlocked`: the buffer stays locked.
/// - The six results, from `asyncLoadSucceeded` to `asyncSyncFailed`: the buffer waits for another
///   completion. The code that has reported the result must report one again. Until then every
///   thread that wants the buffer waits, and so does the last handle. After `asyncLoadFailed` or
///   `asyncReloadFailed` the memory is gone, so only a failure may be reported: a success throws
///   `MbEx::ExIllegalTransition`.
/// - `free`, when the last reference is gone: the object is left behind. It stays loaded, and its
///   manager may evict it.
///
/// **Owns**: a buffer owns its protocol.
class ZVRESMGT_EXPORT MbProtocol
{
public:
    MbProtocol();
    MbProtocol(MbProtocol const &);
    MbProtocol &operator=(MbProtocol const &);
    virtual ~MbProtocol() noexcept(false);

    /// Fills the memory of a buffer that has no contents yet. By default calls `reload`.
    virtual void load(void *memory, std::uint64_t size);
    /// Begins to fill the memory of a buffer that has no contents yet. The end must be reported to
    /// the handle, once. Any thread may report it, even before this operation has returned. If this
    /// operation throws, it has not begun anything, and must not report an end. By default calls
    /// `asyncReload`.
    virtual void asyncLoad(void *memory, std::uint64_t size, LkAsyncHandle *handle);
    /// Called when `asyncLoad` has succeeded. By default calls `asyncReloadSucceeded`.
    virtual void asyncLoadSucceeded();
    /// Called when `asyncLoad` has failed and the memory is gone. By default calls
    /// `asyncReloadFailed`.
    virtual void asyncLoadFailed();
    /// Brings back the contents of a buffer that was evicted. By default does nothing, so that the
    /// contents are undefined.
    virtual void reload(void *memory, std::uint64_t size);
    /// Begins to bring back the contents of a buffer that was evicted. The end must be reported as
    /// for `asyncLoad`. By default calls `reload`, and reports its end. If `reload` throws, it
    /// reports a failure.
    virtual void asyncReload(void *memory, std::uint64_t size, LkAsyncHandle *handle);
    /// Called when `asyncReload` has succeeded. By default does nothing.
    virtual void asyncReloadSucceeded();
    /// Called when `asyncReload` has failed and the memory is gone. By default does nothing.
    virtual void asyncReloadFailed();
    /// Called when the last guard is gone. After this call the buffer may be evicted at any moment.
    /// By default does nothing.
    virtual void unlocked(void *memory, std::uint64_t size);
    /// Writes the contents back. By default calls `unload`.
    virtual void sync(void *memory, std::uint64_t size);
    /// Begins to write the contents back. The end must be reported as for `asyncLoad`. By default
    /// calls `sync`, and reports its end. If `sync` throws, it reports a failure.
    virtual void asyncSync(void *memory, std::uint64_t size, LkAsyncHandle *handle);
    /// Called when `asyncSync` has succeeded. By default does nothing.
    virtual void asyncSyncSucceeded();
    /// Called when `asyncSync` has failed. By default does nothing.
    virtual void asyncSyncFailed();
    /// Called before the buffer is evicted. It is the last chance to write the contents back. By
    /// default does nothing.
    virtual void unload(void *memory, std::uint64_t size);
    /// Called before the contents are discarded and the memory is taken away. By default does
    /// nothing.
    virtual void free(void *memory, std::uint64_t size);
    /// Called when the buffer has been loaded for a write guard. Not called if the buffer was
    /// loaded already. By default does nothing.
    virtual void markDirty(void *memory, std::uint64_t size);

protected:
    /// Returns the memory of an operation as a span.
    [[nodiscard]] static std::span<std::byte> getData(void *memory, std::uint64_t size) noexcept
    {
        return {static_cast<std::byte *>(memory), static_cast<std::size_t>(size)};
    }
};

} // namespace Zv
