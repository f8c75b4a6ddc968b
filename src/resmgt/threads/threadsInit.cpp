// Initialisation and clean-up of the package `threads`.

#include "resmgt/packages.h"
#include "resmgt/threads/mtLogger.private.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtTraceMgr.private.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/failures.h"
#include "zvbase/hmHeapMgr.h"
#include "zvbase/trace.h"

namespace Zv {

namespace {

MtTraceMgr *traceManager = nullptr;

void decideOnRealTime()
{
    if (MtThreadMgr::getRealTimeParam() == MtThreadMgr::REAL_TIME_NOT_STATED) {
        ThreadsStatics::forceRealTime.refresh();
        if (ThreadsStatics::forceRealTime.getValue() > 0)
            MtThreadMgr::indicateAppIsRealTime(false);
    }
    if (MtThreadMgr::getRealTimeParam() == MtThreadMgr::REAL_TIME_NOT_STATED)
        return;
    MtThreadMgr &mgr = MtThreadMgr::getInstance();
    mgr.setRealTime(true);
    ZV_TRACE(*Trace::MainTraceLevel,
             "Real-time " << (mgr.isRealTime() ? "enabled." : "not enabled."));
}

} // namespace

template <>
void InInit<ZvInit::threads>::initPackage()
{
    HmHeapMgr::getInstance().warmUp();
    if (!traceManager) // a former initialisation may have failed after this
        traceManager = new MtTraceMgr(1);
    decideOnRealTime();
    MtThread::allowStart();
    MtLogger::startLogger();
}

template <>
void InInit<ZvInit::threads>::cleanupPackage()
{
    MtThreadMgr &mgr = MtThreadMgr::getInstance();
    if (mgr.isRealTime())
        mgr.setRealTime(false);
    MtLogger::stopLogger();
    ZV_ASSERT(traceManager);
    delete traceManager;
    traceManager = nullptr;
}

} // namespace Zv
