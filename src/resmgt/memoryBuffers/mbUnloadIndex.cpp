#include "resmgt/memoryBuffers/mbUnloadIndex.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"

namespace Zv {

std::size_t MbUnloadHash::operator()(MbBufferImp const *buffer) const noexcept
{
    return reinterpret_cast<std::uintptr_t>(buffer) / sizeof(MbBufferImp);
}

} // namespace Zv
