// The queue between threads.
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threadExtensions/mtContainerObserver.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>
#include <utility>

namespace Zv {

/// Gives the standard container adapters one way to look at the element that leaves next.
template <class Container>
class MtAdapterContainer : public Container
{
public:
    /// Not to be called on an empty container.
    decltype(auto) getNext()
    {
        if constexpr (requires { this->front(); })
            return this->front();
        else
            return this->top();
    }
};

/// A container with a lock, two wake-ups and at most one observer; as a rule a `std::queue`. Threads put elements in
/// and take them out; a full container blocks who produces, an empty one who consumes. Elements are handed over one by
/// one and in the order of the container. Whoever instantiates it for elements of its own includes mtContainer.imp.h.
///
/// Any thread may call any operation, but for the destructor: nobody uses the container any more. The observer is
/// called after the lock was let go, so that it may use the container.
template <class Container, class Adapter = MtAdapterContainer<Container>>
class MtContainer
{
public:
    using Element = typename Container::value_type;
    using Observer = MtContainerObserver<Container, Adapter, Element>;

    /// `name` is the lock's name and outlives the container. `capacity` is the number of elements that fit; 0 means no
    /// limit.
    explicit MtContainer(char const *name, std::uint64_t capacity = 0);
    /// Tells the observer and lets it go. Asserts that the container is empty.
    ~MtContainer() noexcept(false);
    MtContainer(MtContainer const &) = delete;
    MtContainer &operator=(MtContainer const &) = delete;

    /// Installs the observer, which stays for the container's life: asserts that there is none yet.
    void setObserver(RCShdPtr<Observer> const &observer);

    /// Adds the element; waits while the container is full. An element that moves when it is copied is left empty.
    void produce(Element const &element) { performProduce(element); }
    void produce(Element &&element) { performProduce(std::move(element)); }
    /// The same without waiting: false, with `element` untouched, when the container is full.
    bool tryProduce(Element const &element) { return performTryProduce(element); }
    bool tryProduce(Element &&element) { return performTryProduce(std::move(element)); }

    /// Takes the next element; waits while there is none.
    [[nodiscard]] Element consume();
    /// The same for `seconds` at most; with 0 or less it does not wait. False when there was nothing: `element` is as
    /// before.
    bool timedConsume(Element &element, double seconds);
    bool tryConsume(Element &element) { return timedConsume(element, 0.0); }

    /// What these say may have changed when they return.
    std::uint64_t getSize() const;
    bool isEmpty() const { return getSize() == 0; }
    /// The largest number where there is no limit.
    std::uint64_t getCapacity() const { return _capacity; }

private:
    template <class Source>
    void performProduce(Source &&element);
    template <class Source>
    bool performTryProduce(Source &&element);
    template <class Source>
    Observer *addNoLock(Source &&element, bool &wakes) ZV_REQUIRES(_lock);
    Element takeNoLock(bool &wakes) ZV_REQUIRES(_lock);
    bool waitNonEmptyNoLock(double seconds) ZV_REQUIRES(_lock);

    Adapter _container ZV_GUARDED_BY(_lock);
    LkMutex _lock;
    LkPulse _nonEmpty;
    LkPulse _nonFull;
    RCShdPtr<Observer> _observer ZV_GUARDED_BY(_lock);
    std::uint64_t const _capacity;
    // Threads that wait and were sent no pulse yet. A pulse that nobody waits for would be kept, and such pulses would
    // pile up.
    std::uint64_t _nbConsumersToWake ZV_GUARDED_BY(_lock) = 0;
    std::uint64_t _nbProducersToWake ZV_GUARDED_BY(_lock) = 0;
};

} // namespace Zv
