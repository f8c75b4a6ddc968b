#include "resmgt/locks/lkUtil.h"

#include "platform/services.h"
#include "resmgt/locks/locksStatics.private.h"
#include "resmgt/locks/mtUtil.h"

namespace Zv {

void LkUtil::yield()
{
    if (isYieldEnabled())
        MtUtil::yield();
}

bool LkUtil::isYieldEnabled()
{
    return lockYieldVar.getValue() != 0;
}

void LkUtil::enableYield()
{
    EnvVar::putEnv("ZV_LOCK_YIELD=1");
    lockYieldVar.refresh();
}

void LkUtil::disableYield()
{
    EnvVar::putEnv("ZV_LOCK_YIELD=0");
    lockYieldVar.refresh();
}

void LkUtil::performYield()
{
    ::Sleep(0);
}

std::uint32_t LkUtil::toMilliseconds(double seconds) noexcept
{
    double const milliseconds = seconds * 1000.0 + 0.5;
    if (!(milliseconds >= 1.0))
        return 0;
    static_assert(LONGEST_WAIT == INFINITE - 1);
    if (milliseconds >= static_cast<double>(INFINITE))
        return LONGEST_WAIT;
    return static_cast<std::uint32_t>(milliseconds);
}

} // namespace Zv
