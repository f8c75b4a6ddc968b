// Where all factories make their buffers.
#pragma once

#include "resmgt/memoryBuffers/mbBufferImp.h"
#include "resmgt/smartPtrs/rcShdEngPtr.h"

namespace Zv {

/// Makes the buffer behind a handle: for factories.
class ZVRESMGT_EXPORT MbBufferImpFactory
{
public:
    static RCShdEngPtr<MbBufferImp> create(LiString const &name, MbState const *initialState,
                                           RCShdPtr<MbManager> const &manager,
                                           ObjPtr<MbProtocol> protocol, int size,
                                           MbAlignment const &alignment);

    MbBufferImpFactory() = delete;
};

} // namespace Zv
