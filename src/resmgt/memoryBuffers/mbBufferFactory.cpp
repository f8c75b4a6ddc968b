#include "resmgt/memoryBuffers/mbBufferFactory.h"

namespace Zv {

MbBufferFactory::MbBufferFactory() = default;
MbBufferFactory::MbBufferFactory(MbBufferFactory const &) = default;
MbBufferFactory &MbBufferFactory::operator=(MbBufferFactory const &) = default;
MbBufferFactory::~MbBufferFactory() noexcept(false) = default;

} // namespace Zv
