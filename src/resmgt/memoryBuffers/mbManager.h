// Who has the memory.
#pragma once

#include "resmgt/literals/liString.h"
#include "resmgt/smartPtrs/rcShdPtr.h"

#include <iosfwd>

namespace Zv {

class MbBufferImp;

/// The memory of a group of buffers, which share it. A client makes one, hands it to the factories of its buffers and
/// may `dump` it; the rest is between the buffers and their manager. Buffers keep their manager alive.
///
/// A buffer calls the four operations on itself with its mutex held; any thread that touches a buffer is such a caller.
class ZVRESMGT_EXPORT MbManager : public RCBase<LkCounter<long>>
{
public:
    ~MbManager() noexcept(false) override;

    virtual LiString const &getName() const = 0;
    /// Gives the buffer its region by `MbBufferImp::setRegion`. May block until other buffers let go of theirs, with the
    /// buffer's mutex free meanwhile. Throws `MbEx::ExNotEnoughMemory` where waiting does not help, and what another
    /// buffer's protocol throws when it is unloaded for this one.
    virtual void allocateRegion(MbBufferImp *buffer) = 0;
    /// Takes the region back. Does nothing if the buffer has none: the failed result of an operation may come twice.
    virtual void deallocateRegion(MbBufferImp *buffer) = 0;
    /// The buffer is in use or without memory from now on.
    virtual void bufferNotUnloadable(MbBufferImp *buffer) = 0;
    /// The buffer is loaded, and nobody uses it: it may be unloaded.
    virtual void bufferUnloadable(MbBufferImp *buffer) = 0;
    /// For debugging.
    virtual void dump(std::ostream &stream) const = 0;

protected:
    MbManager();
};

} // namespace Zv
