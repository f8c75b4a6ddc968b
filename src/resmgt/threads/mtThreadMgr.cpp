#include "resmgt/threads/mtThreadMgr.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadMgrWinNT.private.h"
#include "zvbase/lgTrace.h"

#include <sstream>

namespace Zv {

ZV_DEFINE_SINGLETON(MtThreadMgr, MtThreadMgrWinNT);

MtThreadMgr::RealTimeParam MtThreadMgr::_realTimeParam = REAL_TIME_NOT_STATED;

MtThreadMgr::~MtThreadMgr() noexcept(false) = default;

MtThread *MtThreadMgr::findCurrentThread()
{
    return getInstance().findThread(LkThreadId(LkThreadId::CURRENT_THREAD));
}

void MtThreadMgr::indicateAppIsRealTime(bool required)
{
    _realTimeParam = required ? REAL_TIME_REQUIRED : REAL_TIME_WANTED;
}

MtThreadMgr::RealTimeParam MtThreadMgr::getRealTimeParam()
{
    return _realTimeParam;
}

void MtThreadMgr::threadIdChanged(MtThread *, LkThreadId const &) {}

ObjPtrRet<MtThread> MtThreadMgr::createMainThread(MtThreadFactory &factory)
{
    return factory.createMainThread("main", *this);
}

std::ostream &operator<<(std::ostream &os, MtThreadMgr const &manager)
{
    manager.dump(os);
    return os;
}

void printThreadMgr()
{
    std::ostringstream text;
    text << MtThreadMgr::getInstance();
    LgTrace::print(text.str().c_str());
}

} // namespace Zv
