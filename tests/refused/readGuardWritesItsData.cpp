// assignment of read-only location

#include <resmgt/memoryBuffers.h>

void use(Zv::MbBuffer const &buffer)
{
    Zv::MbBufferRdGuardImp const guard(buffer);
    guard.getData()[0] = std::byte{1};
}
