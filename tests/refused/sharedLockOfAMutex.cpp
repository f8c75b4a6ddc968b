// lock_shared

#include <resmgt/locks.h>

#include <shared_mutex>

void use(Zv::LkMutex const &mutex)
{
    std::shared_lock const guard(mutex);
}
