// What the two guards of a buffer have in common.
#pragma once

#include "resmgt/memoryBuffers/mbBuffer.h"

namespace Zv {

/// A hold on a buffer, or none; see MbBufferRdGuardImp and MbBufferWrGuardImp. A reference to the buffer comes with it.
class ZVRESMGT_EXPORT MbBufferGuard
{
public:
    bool isNull() const noexcept { return _imp.isNull(); }
    /// A handle to the buffer; null for a null guard.
    MbBuffer getBuffer() const { return MbBuffer(_imp); }

protected:
    MbBufferGuard() noexcept;
    /// Delivers `event` to the buffer, unless there is none. No hold, and no reference, where that throws.
    MbBufferGuard(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event);
    ~MbBufferGuard() noexcept(false);
    MbBufferGuard &operator=(MbBufferGuard const &) = delete;

    /// Lets go of the buffer held and takes the other's by `event`; nothing where the two are one. The guard is null
    /// where that throws.
    void assign(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event);
    RCShdEngPtr<MbBufferImp> const &imp() const noexcept { return _imp; }
    void *memory() const { return reinterpret_cast<void *>(_imp->getDataStart()); }

private:
    void letGo();

    RCShdEngPtr<MbBufferImp> _imp;
};

} // namespace Zv
