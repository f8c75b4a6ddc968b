#include "resmgt/threads/threadsStatics.private.h"

#include "zvbase/trace.h"

namespace Zv::ThreadsStatics {

Immortal<MtSpecificData<MtLogger::QueueAdapter>> logQueue("Log_Queue");
Immortal<MtSpecificData<MtTrace>> traces("MtTraceMgr");
EnvIntVar noRealTime("ZV_THREAD_NO_REALTIME", 0);
EnvIntVar runOn("ZV_RUNON", 1);
TraceLevel * const threadLevel = Trace::registerLevel("MtThread", __FILE__);
EnvIntVar forceRealTime("ZV_THREAD_FORCE_REALTIME", 0);

} // namespace Zv::ThreadsStatics
