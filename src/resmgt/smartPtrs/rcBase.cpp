#include "resmgt/smartPtrs/rcBase.h"

namespace Zv {

template <class Counter>
RCBase<Counter>::~RCBase() noexcept(false) = default;

template <class Counter>
RCBaseWithDestroy<Counter>::~RCBaseWithDestroy() noexcept(false) = default;

template <class Counter>
void RCBaseWithDestroy<Counter>::destroy()
{
    delete this;
}

template class RCBase<LkCounter<long>>;
template class RCBase<int>;
template class RCBaseWithDestroy<LkCounter<long>>;
template class RCBaseWithDestroy<int>;

} // namespace Zv
