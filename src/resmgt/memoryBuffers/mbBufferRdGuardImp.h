// The guard that reads.
#pragma once

#include "resmgt/memoryBuffers/mbBufferGuard.h"

namespace Zv {

/// Holds a buffer for reading, and its memory in place, for as long as it lives. Any number of them, in any threads,
/// share a buffer; a writer waits until all are gone. It is made anywhere and used by one thread at a time.
///
/// **Blocks**: the constructor blocks while another thread holds a write guard, while the buffer is being loaded, and
/// while its manager has no free memory. A thread that already holds a write guard on this buffer deadlocks. This is not
/// detected.
///
/// **Throws**: if an operation of this buffer's protocol throws, or one of a buffer that had to be unloaded for it, the
/// exception comes out of the constructor. Then there is no guard, and no hold.
///
/// The last guard to go calls the protocol's `unlocked` from its destructor; what that throws comes out of it, unless
/// another exception is passing.
class ZVRESMGT_EXPORT MbBufferRdGuardImp : public MbBufferGuard
{
public:
    /// Null.
    MbBufferRdGuardImp() noexcept;
    /// Locks the buffer for reading; null for a null handle.
    explicit MbBufferRdGuardImp(MbBuffer const &buffer);
    /// A second hold.
    MbBufferRdGuardImp(MbBufferRdGuardImp const &other);
    /// Lets go of the buffer held, then takes a hold on the other's; nothing where both hold the same one. Null where
    /// that throws.
    MbBufferRdGuardImp &operator=(MbBufferRdGuardImp const &other);
    ~MbBufferRdGuardImp() noexcept(false);

    /// The data, valid as long as a guard holds the buffer. Null throws `RCEx::ExNullPtr`.
    void const *getMemory() const { return memory(); }
};

} // namespace Zv
