#include "resmgt/memoryBuffers/mbBufferGuard.h"

#include "zvbase/scope.private.h"

namespace Zv {

MbBufferGuard::MbBufferGuard() noexcept = default;

MbBufferGuard::MbBufferGuard(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event) : _imp(imp)
{
    if (!_imp.isNull())
        _imp->receive(event);
}

MbBufferGuard::~MbBufferGuard() noexcept(false)
{
    if (_imp.isNull())
        return;
    throwUnlessUnwinding(Unwinding::ofAny(), __FILE__, __LINE__, [this] { letGo(); });
}

void MbBufferGuard::assign(RCShdEngPtr<MbBufferImp> const &imp, MbEvent event)
{
    if (imp == _imp)
        return;
    RCShdEngPtr<MbBufferImp> next(imp);
    if (!_imp.isNull())
        letGo();
    if (!next.isNull())
        next->receive(event);
    _imp = std::move(next);
}

/// Null from here on, whatever fails: the hold is given up.
void MbBufferGuard::letGo()
{
    // The reference outlasts the event, and goes before an exception does: two at once would end the process.
    RCShdEngPtr<MbBufferImp> held(std::move(_imp));
    held->receive(MbEvent::UNLOCK);
}

} // namespace Zv
