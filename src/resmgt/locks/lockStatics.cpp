#include "resmgt/locks/lockStatics.h"

#include "zvbase/trace.h"

namespace Zv {

LkMutexAttr const &lockDefaultMutexAttr = LkMutexAttr::getDefaultAttr();
EnvIntVar lockYieldVar("ZV_LOCK_YIELD", 0);
TraceLevel const &lockUtilTraceLevel = *Trace::registerLevel("MtUtil", __FILE__);

} // namespace Zv
