// Who is told what happens to a queue between threads.
#pragma once

#include "resmgt/smartPtrs/rcBase.h"

namespace Zv {

template <class Container, class Adapter>
class MtContainer;

/// Observes one `MtContainer`. All calls are made outside the container's lock: the first on the thread that destroys
/// it, the others on the thread that added or took the element. A thread that waits for more than its queue lets an
/// observer wake it, and then calls `tryConsume`.
template <class Container, class Adapter, class Element>
class MtContainerObserver : public RCBase<LkCounter<long>>
{
public:
    /// The container is being destroyed.
    virtual void performDestroyed(MtContainer<Container, Adapter> &container) = 0;
    /// An element was added. `element` is the producer's object, after its contents went into the container.
    virtual void performProduced(MtContainer<Container, Adapter> &container,
                                 Element const &element) = 0;
    /// An element was taken, by this thread.
    virtual void performConsumed(MtContainer<Container, Adapter> &container,
                                 Element const &element) = 0;

protected:
    MtContainerObserver() = default;
    ~MtContainerObserver() noexcept(false) override = default;
};

} // namespace Zv
