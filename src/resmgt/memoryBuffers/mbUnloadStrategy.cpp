#include "resmgt/memoryBuffers/mbUnloadStrategy.h"

#include <ostream>

namespace Zv {

MbUnloadStrategy::MbUnloadStrategy() = default;
MbUnloadStrategy::MbUnloadStrategy(MbUnloadStrategy const &) = default;
MbUnloadStrategy &MbUnloadStrategy::operator=(MbUnloadStrategy const &) = default;
MbUnloadStrategy::~MbUnloadStrategy() noexcept(false) = default;

void MbUnloadStrategy::dump(std::ostream &stream) const
{
    stream << getName();
}

void MbUnloadStrategy::reserve(std::size_t) {}

} // namespace Zv
