#include "resmgt/threads/mtThreadEndWindows.private.h"

#include "platform/services.h"
#include "zvbase/failures.h"

namespace Zv {

MtThreadEndWindows::MtThreadEndWindows(Function function)
    : _flsIndex(::FlsAlloc(onEnd)), _function(function)
{
    ZV_SYS_ASSERT(_flsIndex != FLS_OUT_OF_INDEXES);
}

void MtThreadEndWindows::ask()
{
    ZV_SYS_ASSERT(::FlsSetValue( _flsIndex, this ));
}

void MtThreadEndWindows::onEnd(void *self)
{
    static_cast<MtThreadEndWindows *>(self)->_function();
}

} // namespace Zv
