#include "resmgt/threads/mtTraceMgr.private.h"

#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/lgTrace.h"
#include "zvbase/scope.private.h"

namespace Zv {

MtTraceMgr::MtTraceMgr(int isInCharge)
{
    if (isInCharge)
        install();
}

MtTraceMgr::~MtTraceMgr()
{
    retire();
}

Trace *MtTraceMgr::getTrace()
{
    static thread_local bool isMaking = false;
    if (isMaking)
        return &_nobodys;
    // What is made may fail, and its failure may be traced. That line does without it.
    TemporaryValue const making(isMaking, true);
    try {
        return ThreadsStatics::traces->getPointee();
    } catch (...) {
        return &_nobodys; // no line is lost for want of a name
    }
}

void MtTraceMgr::print(char const *text)
{
    LgTrace::print(text);
}

void MtTraceMgr::prepareThread()
{
    ThreadsStatics::traces->getPointee();
}

} // namespace Zv
