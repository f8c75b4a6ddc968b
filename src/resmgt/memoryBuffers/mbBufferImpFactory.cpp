#include "resmgt/memoryBuffers/mbBufferImpFactory.h"

#include "resmgt/memoryBuffers/mbManager.h"
#include "resmgt/memoryBuffers/mbProtocol.h"

namespace Zv {

RCShdEngPtr<MbBufferImp> MbBufferImpFactory::create(LiString const &name,
                                                    MbState const *initialState,
                                                    RCShdPtr<MbManager> const &manager,
                                                    ObjPtr<MbProtocol> protocol, int size,
                                                    MbAlignment const &alignment)
{
    return RCShdEngPtr<MbBufferImp>(
        new MbBufferImp(name, initialState, manager, protocol, size, alignment));
}

} // namespace Zv
