// First-in, first-out list of waiting threads.
#pragma once

namespace ZvPlatform {

/// `T` must have the members `T *next` and `T *previous`, and for `wake` the address for which it
/// waits as `address`.
template <class T>
class WaitList
{
public:
    void append(T &waiter)
    {
        waiter.next = nullptr;
        waiter.previous = _last;
        (_last ? _last->next : _first) = &waiter;
        _last = &waiter;
    }

    void remove(T &waiter)
    {
        (waiter.previous ? waiter.previous->next : _first) = waiter.next;
        (waiter.next ? waiter.next->previous : _last) = waiter.previous;
    }

    T *first() const { return _first; }

    /// Removes the first waiter for an address, or all of them, and calls `grant` with each.
    template <class Grant>
    void wake(void const *address, bool all, Grant grant)
    {
        for (T *waiter = _first; waiter;) {
            T * const next = waiter->next;
            if (waiter->address == address) {
                remove(*waiter);
                grant(*waiter);
                if (!all)
                    return;
            }
            waiter = next;
        }
    }

private:
    T *_first = nullptr;
    T *_last = nullptr;
};

} // namespace ZvPlatform
