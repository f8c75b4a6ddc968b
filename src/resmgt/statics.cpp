// All statics of the library that need construction, in the order of their construction while the
// library is loaded. No thread runs yet. Nothing here is ever destroyed, because threads may run
// longer than `main`.

#include "resmgt/literals/literalsStatics.private.h"
#include "resmgt/locks/locksStatics.private.h"
#include "resmgt/memoryBuffers/memoryBuffersStatics.private.h"
#include "resmgt/packages.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "resmgt/xml/xmlStatics.private.h"
#include "zvbase/immortal.h"
#include "zvbase/trace.h"

/// Defines the package of a tag and its one object, which enters the package.
#define ZV_PACKAGE_OBJECT(Name)                                                                    \
    template class InInit<ZvInit::Name>;                                                           \
    namespace {                                                                                    \
    Immortal<InInit<ZvInit::Name>> Name##Package;                                                  \
    }

namespace Zv {

ZV_PACKAGE_OBJECT(containers)
ZV_PACKAGE_OBJECT(deviceManager)
ZV_PACKAGE_OBJECT(deviceProtocol)
ZV_PACKAGE_OBJECT(dynamicAllocation)

namespace {
// Constructed now, while no other thread can use it.
[[maybe_unused]] LiStringImp * const emptyBody = LiString::getEmptyImp();
} // namespace

ZV_PACKAGE_OBJECT(literals)

namespace LiteralsStatics {
Immortal<LiDate> epoch;
}

LkMutexAttr const &lockDefaultMutexAttr = LkMutexAttr::getDefaultAttr();
EnvIntVar lockYieldVar("ZV_LOCK_YIELD", 0);

ZV_PACKAGE_OBJECT(locks)

namespace MemoryBuffersStatics {
TraceLevel * const mbBuffersLevel = Trace::registerLevel("MbBuffers", __FILE__);
}

ZV_PACKAGE_OBJECT(memoryBuffers)

namespace ThreadsStatics {
Immortal<MtSpecificData<MtLogger::QueueAdapter>> logQueue("Log_Queue");
Immortal<MtSpecificData<MtTrace>> traces("MtTraceMgr");
Immortal<MtThreadEndWindows> threadEnd(MtLogger::forgetThread);
EnvIntVar noRealTime("ZV_THREAD_NO_REALTIME", 0);
EnvIntVar runOn("ZV_RUNON", 1);
TraceLevel * const threadLevel = Trace::registerLevel("MtThread", __FILE__);
} // namespace ThreadsStatics

TraceLevel const &lockUtilTraceLevel = *Trace::registerLevel("MtUtil", __FILE__);

ZV_PACKAGE_OBJECT(resmgt)
ZV_PACKAGE_OBJECT(smartPtrs)
ZV_PACKAGE_OBJECT(syncEngine)
ZV_PACKAGE_OBJECT(threadExtensions)

namespace ThreadsStatics {
EnvIntVar forceRealTime("ZV_THREAD_FORCE_REALTIME", 0);
}

ZV_PACKAGE_OBJECT(threads)
ZV_PACKAGE_OBJECT(xml)

namespace XmlStatics {
Immortal<LiString> const indentStep("    ");
}

} // namespace Zv
