// The guard that writes.
#pragma once

#include "resmgt/memoryBuffers/mbBufferGuard.h"

namespace Zv {

/// Holds a buffer for writing, and its memory in place, for as long as it or a copy of it lives. Nobody else holds the
/// buffer meanwhile, for reading or writing; copies share the hold. All else is as with `MbBufferRdGuardImp`.
///
/// The protocol's `markDirty` is called if the buffer has to be loaded for this guard, but not if it is loaded already.
class ZVRESMGT_EXPORT MbBufferWrGuardImp : public MbBufferGuard
{
public:
    /// Null.
    MbBufferWrGuardImp() noexcept;
    /// Locks the buffer for writing; null for a null handle. A thread that holds a guard on it, of either kind, waits
    /// for itself.
    explicit MbBufferWrGuardImp(MbBuffer const &buffer);
    /// Shares the hold. Never waits.
    MbBufferWrGuardImp(MbBufferWrGuardImp const &other);
    /// Lets go of the buffer held, then shares the other's hold; nothing where both hold the same buffer. Null where that
    /// throws.
    MbBufferWrGuardImp &operator=(MbBufferWrGuardImp const &other);
    ~MbBufferWrGuardImp() noexcept(false);

    /// The data, valid as long as a guard holds the buffer. Null throws `RCEx::ExNullPtr`.
    void *getMemory() const { return memory(); }
};

} // namespace Zv
