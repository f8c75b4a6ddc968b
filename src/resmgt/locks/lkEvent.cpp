#include "resmgt/locks/lkEvent.h"

#include "platform/services.h"
#include "resmgt/locks/lkUtil.h"
#include "zvbase/failures.h"

#include <ostream>

namespace Zv {

LkEventWindows::LkEventWindows(char const *name, bool initialState)
    : _event(::CreateEventA(NULL, TRUE, initialState, NULL)), _name(name)
{
    ZV_SYS_ASSERT(_event!= NULL);
}

LkEventWindows::~LkEventWindows() noexcept(false)
{
    ZV_SYS_ASSERT_IN_DESTRUCTOR(::CloseHandle( _event ));
}

void LkEventWindows::set()
{
    ::SetEvent(_event);
}

void LkEventWindows::reset()
{
    ::ResetEvent(_event);
}

void LkEventWindows::wait() const
{
    ZV_SYS_ASSERT(::WaitForSingleObject( _event, INFINITE ) == WAIT_OBJECT_0);
}

bool LkEventWindows::timedWait(double seconds) const
{
    DWORD const ret = ::WaitForSingleObject(_event, LkUtil::toMilliseconds(seconds));
    ZV_SYS_ASSERT(ret == WAIT_OBJECT_0 || ret == WAIT_TIMEOUT);
    return ret == WAIT_OBJECT_0;
}

void LkEventWindows::dump(std::ostream &stream) const
{
    stream << _name;
}

} // namespace Zv
