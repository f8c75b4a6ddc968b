// The guard that reads.
#pragma once

#include "resmgt/memoryBuffers/mbBufferGuard.h"

namespace Zv {

/// Holds a buffer for reading, and its memory in place, for as long as it lives. Any number of them, in any threads,
/// share a buffer; a writer waits until all are gone. It is made anywhere and used by one thread at a time.
///
/// Making one blocks: while a writer holds the buffer, while it is loaded, while its manager has no memory. That a thread
/// which holds a write guard would wait for itself, nobody tells it. The operation that fails, of this buffer's
/// protocol or of one that had to be unloaded for it, throws its exception here; then there is no guard.
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
