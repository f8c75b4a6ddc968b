// The read guard and the write guard of a memory buffer (applications).
#pragma once

#include "resmgt/memoryBuffers/mbBuffer.h"

#include <cstddef>
#include <span>

namespace Zv {

/// The common base of `MbBufferRdGuardImp` and `MbBufferWrGuardImp`: a hold on a buffer and a
/// reference to it, or null.
class ZVRESMGT_EXPORT MbBufferGuard
{
public:
    bool isNull() const noexcept { return _imp.isNull(); }
    /// Returns a handle to the buffer, which is null if the guard is null.
    MbBuffer getBuffer() const { return MbBuffer(_imp); }

protected:
    /// Makes a null guard.
    MbBufferGuard() noexcept;
    /// Delivers `event` to the buffer if there is one. If that throws, there is no hold and no
    /// reference.
    MbBufferGuard(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event);
    ~MbBufferGuard() noexcept(false);
    MbBufferGuard &operator=(MbBufferGuard const &) = delete;

    /// Releases the hold, and delivers `event` to the other buffer. Does nothing if both are the
    /// same buffer. If it throws, the guard is null.
    void assign(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event);
    /// Returns the reference to the buffer, which may be null.
    RCShdEngPtr<MbBufferImp> const &imp() const noexcept { return _imp; }
    /// Returns the first byte of the data.
    void *memory() const { return reinterpret_cast<void *>(_imp->getDataStart()); }
    /// Returns the data.
    std::span<std::byte> data() const
    {
        return {static_cast<std::byte *>(memory()), static_cast<std::size_t>(_imp->getSize())};
    }

private:
    void letGo();

    RCShdEngPtr<MbBufferImp> _imp;
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
