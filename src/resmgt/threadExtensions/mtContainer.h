// Queue between threads (applications).
#pragma once

#include "resmgt/locks/lkCounter.h"
#include "resmgt/locks/lkDuration.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/threadAnnotations.h"

#include <concepts>
#include <cstdint>
#include <exception>

namespace Zv {

template <class T>
class LkGuard;
template <class Container, class Adapter>
class MtContainer;

/// Gives the standard container adapters one name for the element that leaves next. `MtContainer`
/// uses it.
template <class Container>
class MtAdapterContainer : public Container
{
public:
    /// Returns the next element. The container must not be empty.
    decltype(auto) getNext()
    {
        if constexpr (requires { this->front(); })
            return this->front();
        else
            return this->top();
    }
};

/// Observer of one `MtContainer`. A thread that waits for more than its queue can be woken by an
/// observer, and then calls `MtContainer::tryConsume`.
///
///     #include <queue>
///
///     using Numbers = MtContainer<std::queue<int>>;
///
///     class Watch : public Numbers::Observer
///     {
///     public:
///         void performDestroyed(Numbers &) override {}
///         void performProduced(Numbers &, int const &) override {} // wakes the thread
///         void performConsumed(Numbers &, int const &) override {}
///     };
///
///     Numbers numbers("numbers");
///     numbers.setObserver(RCShdPtr<Numbers::Observer>(new Watch));
///
/// **Threads**: the container calls the observer without its lock, on the thread that destroys the
/// container or that added or took the element.
template <class Container, class Adapter, class Element>
class MtContainerObserver : public RCBase<LkCounter<long>>
{
public:
    /// Called when the container is being destroyed.
    virtual void performDestroyed(MtContainer<Container, Adapter> &container) = 0;
    /// Called when an element was added. `element` is the producer's object, after its contents
    /// have been copied or moved into the container.
    virtual void performProduced(MtContainer<Container, Adapter> &container,
                                 Element const &element) = 0;
    /// Called when an element was taken.
    virtual void performConsumed(MtContainer<Container, Adapter> &container,
                                 Element const &element) = 0;

protected:
    MtContainerObserver() = default;
    ~MtContainerObserver() noexcept(false) override = default;
};

/// A queue between threads: a container with a lock, two wake-ups and at most one observer.
/// `Container` is usually a `std::queue`. Elements leave one by one, in the order of the container.
/// A source that uses a queue of its own elements includes mtContainer.imp.h.
///
///     #include <queue>
///
///     MtContainer<std::queue<int>> numbers("numbers", 100);
///     numbers.produce(1);
///     int const number = numbers.consume();
///
/// **Threads**: thread-safe, except the destructor. No thread may be inside an operation when the
/// container is destroyed.
///
/// **Blocks**: a thread that produces waits while the container is full, except in `admit`. A
/// thread that consumes waits while it is empty.
///
/// **Throws**: what the copy or the move of an element throws. An element that fails is not added,
/// or stays in the container, and another waiting thread is woken in place of the one that fails.
/// Elements are copied and moved under the lock, so their copies and moves must not call the
/// container. If a wait of the system fails, an assertion fails and the container is unchanged. If
/// the observer throws, the exception leaves the operation, which has been carried out. The element
/// of such a `consume` is lost. If a thread was killed inside an operation, the next operation that
/// meets the abandoned lock throws `AssertionFailed` and changes nothing. If that one has taken an
/// element already, it returns the element, and the next operation that consumes throws.
template <class Container, class Adapter = MtAdapterContainer<Container>>
class MtContainer
{
public:
    /// The class of the elements.
    using Element = typename Container::value_type;
    /// The interface of the container's observer.
    using Observer = MtContainerObserver<Container, Adapter, Element>;

    /// `name` is the name of the lock and must outlive the container. `capacity` is the number of
    /// elements that fit, and 0 means no limit.
    explicit MtContainer(char const *name, std::uint64_t capacity = 0);
    /// Calls the observer and releases it. Fails an assertion if the container is not empty, and
    /// destroys the elements that are left.
    ~MtContainer() noexcept(false);
    MtContainer(MtContainer const &) = delete;
    MtContainer &operator=(MtContainer const &) = delete;

    /// Sets the observer, which stays for the life of the container. Fails an assertion if there is
    /// one already.
    void setObserver(RCShdPtr<Observer> const &observer);

    /// Adds an element. Blocks while the container is full. An element that moves when it is copied
    /// is left empty. If this throws before the element has been added, the argument is as its copy
    /// or move has left it.
    void produce(Element const &element);
    void produce(Element &&element);
    /// Like `produce`, but does not wait. Returns false and leaves `element` unchanged if the
    /// container is full.
    [[nodiscard]] bool tryProduce(Element const &element);
    [[nodiscard]] bool tryProduce(Element &&element);
    /// Adds an element even if the container is full. Never waits. A thread that waits in `produce`
    /// continues when the number of elements is below the capacity again. The caller must limit the
    /// number of such elements by other means.
    void admit(Element const &element);
    void admit(Element &&element);

    /// Removes and returns the next element. Blocks while the container is empty.
    [[nodiscard]] Element consume();
    /// Moves the next element into `element`. Waits for one for at most `seconds`, or not at all if
    /// they are 0 or less. Returns false and leaves `element` unchanged if there was none.
    ///
    /// The former value of `element` is destroyed last, without the lock. If its destructor throws,
    /// `element` has the new value and everything else has been done. If the assignment to
    /// `element` throws, the new value is lost.
    [[nodiscard]] bool timedConsume(Element &element, double seconds);
    template <LkDuration Duration>
    [[nodiscard]] bool timedConsume(Element &element, Duration const &time)
    {
        return timedConsume(element, Detail::countSeconds(time));
    }
    /// Like `timedConsume`, but does not wait.
    [[nodiscard]] bool tryConsume(Element &element) { return timedConsume(element, 0.0); }

    /// Returns the number of elements. It may have changed when this returns.
    std::uint64_t getSize() const;
    /// Returns whether `getSize` is 0. It may have changed when this returns.
    [[nodiscard]] bool isEmpty() const { return getSize() == 0; }
    /// Returns the number of elements that fit. It is the largest number if there is no limit.
    std::uint64_t getCapacity() const { return _capacity; }

private:
    /// The threads that wait for an element, or those that wait for room. The container's lock
    /// guards it.
    ///
    /// A pulse is sent only for a thread that waits and was not called yet. A pulse without a
    /// waiting thread would be kept, and such pulses would accumulate.
    class Waiters
    {
    public:
        explicit Waiters(char const *name) : _pulse(name, LkPulse::WAKE_ONE) {}

        void wait(LkMutex const &lock) ZV_REQUIRES(lock);
        /// Returns false if the time is over and the thread was not called.
        [[nodiscard]] bool timedWait(LkMutex const &lock, double seconds) ZV_REQUIRES(lock);
        /// Chooses a thread to wake. Returns true if the caller must call `pulse`, with the lock or
        /// without it.
        [[nodiscard]] bool call();
        void pulse() const { _pulse.pulse(); }

    private:
        void leave();

        LkPulse _pulse;
        std::uint64_t _nbWaiting = 0;
        std::uint64_t _nbCalled = 0; // of the waiting ones
    };
    /// Destroys the elements that are left. The destructor of a standard container must not meet an
    /// element that throws.
    struct Emptied;

    /// What is done with an element for which there is no room.
    enum class WhenFull
    {
        WAIT,
        REFUSE,
        ADD
    };

    /// True if the elements leave in the order in which they were added, as from a `std::queue`.
    static constexpr bool IS_QUEUE =
        std::same_as<Adapter, MtAdapterContainer<Container>> && requires(Container & container)
    {
        container.front();
        container.back();
        container.swap(container);
    };

    /// Returns false if the element was refused.
    template <class Source>
    bool add(Source &&element, WhenFull whenFull);
    template <class Source>
    Observer *addNoLock(Source &&element, bool &wakes) ZV_REQUIRES(_lock);
    [[nodiscard]] bool isFullNoLock() ZV_REQUIRES(_lock);
    void waitForRoomNoLock() ZV_REQUIRES(_lock);
    template <class Wait>
    bool findNext(LkGuard<LkMutex const> &guard, Wait wait) ZV_NO_THREAD_SAFETY_ANALYSIS;
    void takeOverNoLock() ZV_REQUIRES(_lock);
    Element takeNext(LkGuard<LkMutex const> &guard);
    void wakeForRoom() noexcept;
    void callForRoom();
    void keepFailure(std::exception_ptr failure) noexcept;
    void waitNoLock(Waiters &waiters) ZV_REQUIRES(_lock);
    [[nodiscard]] bool timedWaitNoLock(double &seconds) ZV_REQUIRES(_lock);
    void passOnNoLock() ZV_REQUIRES(_lock);
    std::uint64_t countNoLock() const ZV_REQUIRES(_lock);

    /// The container from which elements are taken, and its lock.
    Adapter &getFront()
    {
        if constexpr (IS_QUEUE)
            return _front;
        else
            return _container;
    }
    LkMutex const &getFrontLock() const { return IS_QUEUE ? _frontLock : _lock; }

    // What producing threads change is kept apart from what consuming threads change, so that they
    // disturb each other less.
    Adapter _container ZV_GUARDED_BY(_lock);
    LkMutex _lock;
    /// At least the number of elements in `_front`.
    std::uint64_t _mostInFront ZV_GUARDED_BY(_lock) = 0;
    Waiters _nonEmpty;
    /// True if a thread may wait for room. Changed under `_lock`.
    ZvPlatform::Shared<bool> _isRoomWanted{false};
    std::uint64_t const _capacity;
    RCShdPtr<Observer> _observer; // set under both locks
    Waiters _nonFull;
    // If the container is a queue, a consuming thread moves all elements to `_front` at once, so
    // that it seldom needs `_lock`. A thread that needs both locks must take `_lock` first.
    LkMutex _frontLock;
    Adapter _front;
    std::exception_ptr _failure; // of a wake-up after an element was taken, under the front's lock
    ZvPlatform::Shared<std::uint64_t> _nbInFront{0}; // set under `_frontLock`
};

} // namespace Zv
