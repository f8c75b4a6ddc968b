// LkLock

#include <resmgt/locks.h>

void use(Zv::LkLock const &lock, Zv::LkPulse const &pulse)
{
    Zv::LkGuard const guard(lock);
    pulse.wait(guard);
}
