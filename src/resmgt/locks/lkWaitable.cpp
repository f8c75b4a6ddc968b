// The virtual functions of the classes that threads wait on. They are not in the sources of the
// platform forms, so that a test can replace the functions of these at link time.

#include "resmgt/locks/lkWaitable.h"

#include "resmgt/locks/lkCondVar.h"
#include "resmgt/locks/lkPulse.h"

namespace Zv {

LkWaitable::~LkWaitable() noexcept(false) = default;

// ---- LkCondVar

LkCondVar::~LkCondVar() noexcept(false) = default;

void LkCondVar::performWait(LkMutex const &mutex) const
{
    _imp.wait(mutex);
}

bool LkCondVar::performTimedWait(LkMutex const &mutex, double seconds) const
{
    return _imp.timedWait(mutex, seconds);
}

// ---- LkPulse

LkPulse::~LkPulse() noexcept(false) = default;

void LkPulse::performWait(LkMutex const &mutex) const
{
    _imp.wait(mutex);
}

bool LkPulse::performTimedWait(LkMutex const &mutex, double seconds) const
{
    return _imp.timedWait(mutex, seconds);
}

} // namespace Zv
