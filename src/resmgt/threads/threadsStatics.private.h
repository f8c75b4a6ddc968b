// Statics of the package `threads`. They are built in one place, in this order, and never
// destroyed.
#pragma once

#include "resmgt/threads/mtLogger.private.h"
#include "resmgt/threads/mtSpecificData.h"
#include "resmgt/threads/mtThreadEndWindows.private.h"
#include "resmgt/threads/mtTraceMgr.private.h"
#include "zvbase/envVar.h"
#include "zvbase/immortal.h"
#include "zvbase/traceLevel.h"

namespace Zv::ThreadsStatics {

/// The log queue of each thread: "Log_Queue".
extern Immortal<MtSpecificData<MtLogger::QueueAdapter>> logQueue;
/// The trace of each thread: "MtTraceMgr". It outlives the trace manager, because threads may.
extern Immortal<MtSpecificData<MtTrace>> traces;
/// Frees both in threads that the library did not create. Its own threads have freed theirs by
/// then.
extern Immortal<MtThreadEndWindows> threadEnd;
/// `ZV_THREAD_NO_REALTIME`, 0: read by each `MtThreadMgr::setRealTime`.
extern EnvIntVar noRealTime;
/// `ZV_RUNON`, 1: whether threads are placed on processors when they start.
extern EnvIntVar runOn;
/// "MtThread"
extern TraceLevel * const threadLevel;
/// `ZV_THREAD_FORCE_REALTIME`, 0: read when the package is initialised.
extern EnvIntVar forceRealTime;

} // namespace Zv::ThreadsStatics
