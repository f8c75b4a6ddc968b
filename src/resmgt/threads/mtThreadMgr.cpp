#include "resmgt/threads/mtThreadMgr.h"

#include "resmgt/threads/mtThreadFactory.h"
#include "zvbase/lgTrace.h"

#include <sstream>

namespace Zv {

// ---- MtThreadGroup

MtThreadGroup::~MtThreadGroup() noexcept(false) = default;

// ---- MtThreadMgr

MtThreadMgr::RealTimeParam MtThreadMgr::_realTimeParam = REAL_TIME_NOT_STATED;

MtThreadMgr::~MtThreadMgr() noexcept(false) = default;

MtThread *MtThreadMgr::findCurrentThread()
{
    return getInstance().findThread(LkThreadId(LkThreadId::CURRENT_THREAD));
}

void MtThreadMgr::indicateAppIsRealTime(bool required)
{
    indicateAppIsRealTime(required ? REAL_TIME_REQUIRED : REAL_TIME_WANTED);
}

void MtThreadMgr::indicateAppIsRealTime(RealTimeParam wish)
{
    _realTimeParam = wish;
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
