// ignoring return value

#include <resmgt/threadExtensions.h>

void use(Zv::MtRequestMgr &mgr)
{
    mgr.acquireTag();
}
