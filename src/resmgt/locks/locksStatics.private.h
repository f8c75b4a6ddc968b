// Statics of the locks that are built while the library loads, in the one order that holds for all of its statics.
#pragma once

#include "resmgt/locks/lkMutexAttr.h"
#include "zvbase/envVar.h"
#include "zvbase/traceLevel.h"

namespace Zv {

/// Has the first singleton of the process made, before any thread runs.
extern LkMutexAttr const &lockDefaultMutexAttr;
/// ZV_LOCK_YIELD.
extern EnvIntVar lockYieldVar;
/// "MtUtil".
extern TraceLevel const &lockUtilTraceLevel;

} // namespace Zv
