#include "resmgt/locks/lkCondVar.h"

namespace Zv {

LkCondVar::~LkCondVar() noexcept(false) = default;

void LkCondVar::performWait(LkMutex const &mutex) const
{
    _imp.wait(mutex);
}

bool LkCondVar::performTimedWait(LkMutex const &mutex, double seconds) const
{
    return _imp.timedWait(mutex, seconds);
}

} // namespace Zv
