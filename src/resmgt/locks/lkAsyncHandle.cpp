#include "resmgt/locks/lkAsyncHandle.h"

namespace Zv {

LkAsyncHandle::LkAsyncHandle() = default;

LkAsyncHandle::LkAsyncHandle(LkAsyncHandle const &) = default;

LkAsyncHandle &LkAsyncHandle::operator=(LkAsyncHandle const &) = default;

LkAsyncHandle::~LkAsyncHandle() noexcept(false) = default;

} // namespace Zv
