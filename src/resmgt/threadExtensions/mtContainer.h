// The queue between threads.
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "resmgt/threadExtensions/mtContainerObserver.h"
#include "zvbase/threadAnnotations.h"

#include <cstdint>

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

/// A queue between threads: a container with a lock, two wake-ups and at most one observer. As a rule it is a
/// `std::queue`. A thread that produces waits while the container is full, except in `admit`. A thread that consumes waits
/// while it is empty. Elements leave one by one, in the order of the container. To use it for elements of your own, include
/// mtContainer.imp.h.
///
/// **Threads**: any thread may call any operation, except the destructor. No thread may be inside an operation when
/// the container is destroyed. The observer is called without the lock, so it may use the container.
///
/// **Throws**: what the copy or the move of an element throws. An element that fails is not added, or stays in the
/// container, and another thread that waits is woken in place of the one that fails. Elements are copied and moved
/// under the lock, so their copies and moves must not call the container. A failed wait of the system is a failed
/// assertion and leaves the container as it was. What an observer throws leaves the operation, which has been carried
/// out: the element of such a `consume` is lost.
template <class Container, class Adapter = MtAdapterContainer<Container>>
class MtContainer
{
public:
    using Element = typename Container::value_type;
    using Observer = MtContainerObserver<Container, Adapter, Element>;

    /// `name` is the lock's name and outlives the container. `capacity` is the number of elements that fit; 0 means no
    /// limit.
    explicit MtContainer(char const *name, std::uint64_t capacity = 0);
    /// Tells the observer and lets it go. Asserts that the container is empty. If it is not, what is left is destroyed.
    ~MtContainer() noexcept(false);
    MtContainer(MtContainer const &) = delete;
    MtContainer &operator=(MtContainer const &) = delete;

    /// Installs the observer, which stays for the container's life: asserts that there is none yet.
    void setObserver(RCShdPtr<Observer> const &observer);

    /// Adds the element. Blocks while the container is full. An element that moves when it is copied is left empty. If
    /// the call throws before the element is in, the argument is as its copy or move has left it.
    void produce(Element const &element);
    void produce(Element &&element);
    /// The same without waiting: false, with `element` untouched, when the container is full.
    bool tryProduce(Element const &element);
    bool tryProduce(Element &&element);
    /// Adds the element, also if the container is full. Never waits. A thread that waits in `produce` goes on when there
    /// is room below the capacity again. The caller must bound the number of such elements by other means.
    void admit(Element const &element);
    void admit(Element &&element);

    /// Takes the next element; waits while there is none.
    [[nodiscard]] Element consume();
    /// Takes the next element into `element`, and waits for one for `seconds` at most; if they are 0 or less, it does not
    /// wait. Returns false if there was none: `element` is as before.
    ///
    /// What `element` held before ends last, without the lock. If its end throws, the new element is in `element` and
    /// everything else is done. If `element` cannot be assigned to, the new element is lost.
    bool timedConsume(Element &element, double seconds);
    bool tryConsume(Element &element) { return timedConsume(element, 0.0); }

    /// What these say may have changed when they return.
    std::uint64_t getSize() const;
    bool isEmpty() const { return getSize() == 0; }
    /// The largest number where there is no limit.
    std::uint64_t getCapacity() const { return _capacity; }

private:
    /// The threads that wait for one of the two: for an element, or for room. The container's lock guards it.
    ///
    /// A pulse is sent only for a thread that waits and was not called yet. A pulse that no thread waits for would be
    /// kept, and such pulses would pile up.
    class Waiters
    {
    public:
        explicit Waiters(char const *name) : _pulse(name, LkPulse::WAKE_ONE) {}

        void wait(LkMutex const &lock) ZV_REQUIRES(lock);
        /// False if the time is over and the thread was not called.
        bool timedWait(LkMutex const &lock, double seconds) ZV_REQUIRES(lock);
        /// Calls one of them. Returns whether `pulse` has to follow, with the lock or without it.
        [[nodiscard]] bool call();
        void pulse() const { _pulse.pulse(); }

    private:
        void leave();

        LkPulse _pulse;
        std::uint64_t _nbWaiting = 0;
        std::uint64_t _nbCalled = 0; // of the waiting ones
    };
    /// Destroys what is left in the container. The standard container's own destructor must not throw.
    struct Emptied;

    template <class Source>
    void performProduce(Source &&element);
    template <class Source>
    bool performTryProduce(Source &&element);
    template <class Source>
    void performAdmit(Source &&element);
    template <class Source>
    Observer *addNoLock(Source &&element, bool &wakes) ZV_REQUIRES(_lock);
    Element takeNoLock(bool &wakes) ZV_REQUIRES(_lock);
    Element moveNextNoLock() ZV_REQUIRES(_lock);
    void waitNoLock(Waiters &waiters) ZV_REQUIRES(_lock);
    bool waitNonEmptyNoLock(double seconds) ZV_REQUIRES(_lock);
    void passOnNoLock() ZV_REQUIRES(_lock);

    Adapter _container ZV_GUARDED_BY(_lock);
    LkMutex _lock;
    Waiters _nonEmpty;
    Waiters _nonFull;
    RCShdPtr<Observer> _observer ZV_GUARDED_BY(_lock);
    std::uint64_t const _capacity;
};

} // namespace Zv
