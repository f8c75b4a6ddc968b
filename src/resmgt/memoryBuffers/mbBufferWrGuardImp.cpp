#include "resmgt/memoryBuffers/mbBufferWrGuardImp.h"

namespace Zv {

MbBufferWrGuardImp::MbBufferWrGuardImp() noexcept = default;

MbBufferWrGuardImp::MbBufferWrGuardImp(MbBuffer const &buffer)
    : MbBufferGuard(buffer.getImp(), MbEvent::WRLOCK)
{}

MbBufferWrGuardImp::MbBufferWrGuardImp(MbBufferWrGuardImp const &other)
    : MbBufferGuard(other.imp(), MbEvent::WRDUP)
{}

MbBufferWrGuardImp &MbBufferWrGuardImp::operator=(MbBufferWrGuardImp const &other)
{
    assign(other.imp(), MbEvent::WRDUP);
    return *this;
}

MbBufferWrGuardImp::~MbBufferWrGuardImp() noexcept(false) = default;

} // namespace Zv
