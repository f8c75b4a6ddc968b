#include "resmgt/syncEngine/seSourceProtocol.h"

namespace Zv {

SeSourceProtocol::~SeSourceProtocol() noexcept(false) = default;

std::ostream &operator<<(std::ostream &stream, SeSourceProtocol &source)
{
    return source.dump(stream);
}

} // namespace Zv
