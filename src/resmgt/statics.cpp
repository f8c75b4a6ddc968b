// All statics of the library that need construction, in the order in which they come to life while the library loads.
// No thread runs yet, and nothing here is ever destroyed: threads may outlive `main`.

#include "resmgt/literals/literalsStatics.private.h"
#include "resmgt/locks/locksStatics.private.h"
#include "resmgt/memoryBuffers/memoryBuffersStatics.private.h"
#include "resmgt/packages.private.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "resmgt/xml/xmlStatics.private.h"
#include "zvbase/trace.h"

namespace Zv {

namespace PackageStatics {
Immortal<InInit<ZvInit::containers>> containers;
Immortal<InInit<ZvInit::deviceManager>> deviceManager;
Immortal<InInit<ZvInit::deviceProtocol>> deviceProtocol;
Immortal<InInit<ZvInit::dynamicAllocation>> dynamicAllocation;
} // namespace PackageStatics

namespace {
// Made now, while nobody can race for it.
[[maybe_unused]] LiStringImp * const emptyBody = LiString::getEmptyImp();
} // namespace

namespace PackageStatics {
Immortal<InInit<ZvInit::literals>> literals;
}

namespace LiteralsStatics {
Immortal<LiDate> epoch;
}

LkMutexAttr const &lockDefaultMutexAttr = LkMutexAttr::getDefaultAttr();
EnvIntVar lockYieldVar("ZV_LOCK_YIELD", 0);

namespace PackageStatics {
Immortal<InInit<ZvInit::locks>> locks;
}

namespace MemoryBuffersStatics {
TraceLevel * const mbBuffersLevel = Trace::registerLevel("MbBuffers", __FILE__);
}

namespace PackageStatics {
Immortal<InInit<ZvInit::memoryBuffers>> memoryBuffers;
}

namespace ThreadsStatics {
Immortal<MtSpecificData<MtLogger::QueueAdapter>> logQueue("Log_Queue");
Immortal<MtSpecificData<MtTrace>> traces("MtTraceMgr");
Immortal<MtThreadEndWindows> threadEnd(MtLogger::forgetThread);
EnvIntVar noRealTime("ZV_THREAD_NO_REALTIME", 0);
EnvIntVar runOn("ZV_RUNON", 1);
TraceLevel * const threadLevel = Trace::registerLevel("MtThread", __FILE__);
} // namespace ThreadsStatics

TraceLevel const &lockUtilTraceLevel = *Trace::registerLevel("MtUtil", __FILE__);

namespace PackageStatics {
Immortal<InInit<ZvInit::resmgt>> resmgt;
Immortal<InInit<ZvInit::smartPtrs>> smartPtrs;
Immortal<InInit<ZvInit::syncEngine>> syncEngine;
Immortal<InInit<ZvInit::threadExtensions>> threadExtensions;
} // namespace PackageStatics

namespace ThreadsStatics {
EnvIntVar forceRealTime("ZV_THREAD_FORCE_REALTIME", 0);
}

namespace PackageStatics {
Immortal<InInit<ZvInit::threads>> threads;
Immortal<InInit<ZvInit::xml>> xml;
} // namespace PackageStatics

namespace XmlStatics {
Immortal<LiString> const indentStep("    ");
}

} // namespace Zv
