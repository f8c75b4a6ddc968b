// Static objects of the locks, which are built while the library loads.
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "zvbase/envVar.h"
#include "zvbase/traceLevel.h"

namespace Zv {

/// Creates the first singleton of the process before any thread runs.
extern LkMutexAttr const &lockDefaultMutexAttr;
/// The environment variable ZV_LOCK_YIELD.
extern EnvIntVar lockYieldVar;
/// The trace level "MtUtil".
extern TraceLevel const &lockUtilTraceLevel;

} // namespace Zv
