#include "resmgt/memoryBuffers/mbBufferRdGuardImp.h"

namespace Zv {

MbBufferRdGuardImp::MbBufferRdGuardImp() noexcept = default;

MbBufferRdGuardImp::MbBufferRdGuardImp(MbBuffer const &buffer)
    : MbBufferGuard(buffer.getImp(), MbEvent::RDLOCK)
{}

MbBufferRdGuardImp::MbBufferRdGuardImp(MbBufferRdGuardImp const &other)
    : MbBufferGuard(other.imp(), MbEvent::RDLOCK)
{}

MbBufferRdGuardImp &MbBufferRdGuardImp::operator=(MbBufferRdGuardImp const &other)
{
    assign(other.imp(), MbEvent::RDLOCK);
    return *this;
}

MbBufferRdGuardImp::~MbBufferRdGuardImp() noexcept(false) = default;

} // namespace Zv
