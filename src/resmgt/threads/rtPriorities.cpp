#include "resmgt/threads/rtPriorities.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/rtPrioritiesWinNT.private.h"

namespace Zv {

ZV_DEFINE_SINGLETON(RtPriorities, RtPrioritiesWinNT);

RtPriorities::~RtPriorities() noexcept(false) = default;

} // namespace Zv
