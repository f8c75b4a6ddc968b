// Buffers that show slices of two other buffers as one (applications).
#pragma once

#include "resmgt/memoryBuffers/mbBuffer.h"
#include "resmgt/memoryBuffers/mbManager.h"

namespace Zv {

/// Makes buffers whose contents are a slice of one buffer and, behind it, a slice of another one.
/// An example is a frame that crosses the end of a ring, as a view in one piece. When the view is
/// loaded, it locks one source after the other for reading, and copies. The sources are loaded if
/// need be. Nothing is written back to them.
///
///     MbBuffer joinHalves(MbDualBufferFactory &views, MbBuffer const &a, MbBuffer const &b)
///     {
///         int const half = a.getSize() / 2;
///         return views.create(a, half, half, b, 0, b.getSize() / 2);
///     }
///
/// If the view and a source have the same manager, its budget must have room for both at once.
/// Otherwise loading the view waits without end, because the view does not give up its own memory
/// for its source. A thread that holds a write guard on a source and loads the view deadlocks.
/// Neither is detected.
///
/// **Threads**: thread-safe.
class ZVRESMGT_EXPORT MbDualBufferFactory
{
public:
    /// `initialState` must be `MbStateMachine::getInstance(trace).getInitialState()`.
    MbDualBufferFactory(MbState const *initialState, RCShdPtr<MbManager> const &manager);
    MbDualBufferFactory(MbDualBufferFactory const &);
    MbDualBufferFactory &operator=(MbDualBufferFactory const &);
    virtual ~MbDualBufferFactory() noexcept(false);

    /// Returns a view of `size1` bytes of `buf1` from `offset1` on, and of `size2` bytes of `buf2`
    /// from `offset2` on. The name of the view is made of both names, as "a - b". The view keeps
    /// its sources alive, and has no alignment. An assertion fails if a slice is empty or not
    /// within its buffer, or if the sum of the sizes is no `int`.
    [[nodiscard]] virtual MbBuffer create(MbBuffer const &buf1, int offset1, int size1,
                                          MbBuffer const &buf2, int offset2, int size2);

private:
    MbState const *_initialState;
    RCShdPtr<MbManager> _manager;
};

} // namespace Zv
