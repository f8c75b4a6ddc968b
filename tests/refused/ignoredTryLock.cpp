// error: ignoring return value

#pragma GCC diagnostic error "-Wunused-result"

#include <resmgt/locks.h>

void use(Zv::LkMutex const &mutex)
{
    mutex.tryLock();
}
