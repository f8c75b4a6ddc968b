#include "resmgt/threads/mtTraceMgr.private.h"

#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/lgTrace.h"

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
    return ThreadsStatics::traces->getPointee();
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
