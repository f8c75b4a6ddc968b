// Buffers made of slices of two others.
#pragma once

#include "resmgt/memoryBuffers/mbBuffer.h"
#include "resmgt/memoryBuffers/mbManager.h"

namespace Zv {

class MbState;

/// Makes buffers whose contents are a slice of one buffer and, behind it, a slice of another: a view in one piece, as of
/// a frame that lies across the end of a ring. Loading it locks one source after the other for reading and copies; the
/// sources are loaded as need be. Nothing is written back to them.
///
/// If the view and a source have the same manager, its budget must have room for both at once. Otherwise loading the view
/// never ends its wait: it does not give up its own memory for its source. A thread that holds a write guard on a source and
/// loads the view deadlocks. Neither is detected.
class ZVRESMGT_EXPORT MbDualBufferFactory
{
public:
    /// `initialState` is `MbStateMachine::getInstance(trace).getInitialState()`.
    MbDualBufferFactory(MbState const *initialState, RCShdPtr<MbManager> const &manager);
    MbDualBufferFactory(MbDualBufferFactory const &);
    MbDualBufferFactory &operator=(MbDualBufferFactory const &);
    virtual ~MbDualBufferFactory() noexcept(false);

    /// The view of `size1` bytes of the first from `offset1` on and `size2` of the second from `offset2` on, named after
    /// both: "a - b". Asserts that the slices are not empty and lie within their buffers, and that the sum of their sizes
    /// is an `int`. The buffer keeps its sources alive. It has no alignment of its own.
    virtual MbBuffer create(MbBuffer const &buf1, int offset1, int size1, MbBuffer const &buf2,
                            int offset2, int size2);

private:
    MbState const *_initialState;
    RCShdPtr<MbManager> _manager;
};

} // namespace Zv
