#include "resmgt/threads/mtOpaqueDataWindows.private.h"

#include "platform/services.h"
#include "zvbase/failures.h"

namespace Zv {

MtOpaqueDataImp::~MtOpaqueDataImp() noexcept(false) = default;

MtOpaqueDataWindows::MtOpaqueDataWindows() : _tlsIndex(::TlsAlloc())
{
    ZV_SYS_ASSERT(_tlsIndex != 0xFFFFFFFF);
}

MtOpaqueDataWindows::~MtOpaqueDataWindows() noexcept(false)
{
    ZV_SYS_ASSERT_IN_DESTRUCTOR(::TlsFree( _tlsIndex ) == TRUE);
}

void *MtOpaqueDataWindows::getSpecific() const
{
    return ::TlsGetValue(_tlsIndex);
}

void MtOpaqueDataWindows::setSpecific(void *data) const
{
    ZV_SYS_ASSERT(::TlsSetValue( _tlsIndex, data ) != 0);
}

} // namespace Zv
