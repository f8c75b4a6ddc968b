// The statics of the package. They are built in one place, in this order, and never destroyed.
#pragma once

#include "resmgt/threads/mtLogger.private.h"
#include "resmgt/threads/mtSpecificData.h"
#include "resmgt/threads/mtThreadEndWindows.private.h"
#include "resmgt/threads/mtTrace.private.h"
#include "zvbase/envVar.h"
#include "zvbase/immortal.h"
#include "zvbase/traceLevel.h"

namespace Zv::ThreadsStatics {

/// What each thread has of the logger: "Log_Queue".
extern Immortal<MtSpecificData<MtLogger::QueueAdapter>> logQueue;
/// What each thread has of `MtTraceMgr`: "MtTraceMgr". It outlives the manager, as threads may.
extern Immortal<MtSpecificData<MtTrace>> traces;
/// Frees both in threads that the library did not make; in its own they are gone by then.
extern Immortal<MtThreadEndWindows> threadEnd;
/// ZV_THREAD_NO_REALTIME, 0: read at each `MtThreadMgr::setRealTime`.
extern EnvIntVar noRealTime;
/// ZV_RUNON, 1: whether threads are placed on processors when they start.
extern EnvIntVar runOn;
/// "MtThread"
extern TraceLevel * const threadLevel;
/// ZV_THREAD_FORCE_REALTIME, 0: read when the package comes up.
extern EnvIntVar forceRealTime;

} // namespace Zv::ThreadsStatics
