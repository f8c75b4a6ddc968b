// Waits for a wake-up at an address. The waiters of an address are in the queue of a bucket, in the
// order in which they began to wait. A bucket serves many addresses.
#include "platform/common/waitList.h"
#include "platform/linux/object.h"
#include "zvbase/platform/interlocked.h"

#include <cstring>

namespace ZvPlatform::Linux {

namespace {

struct alignas(64) Bucket
{
    Lock lock;
    Shared<std::uint32_t> waiters{0};
    Shared<SpinCredit> spin{};
    WaitList<Waiter> list;
};

constinit Bucket buckets[256];

Bucket &bucketOf(void const volatile *address)
{
    auto const bits = reinterpret_cast<std::uintptr_t>(address);
    return buckets[(bits >> 3 ^ bits >> 11 ^ bits >> 19) % 256];
}

bool equal(void const volatile *address, void const *compare, SIZE_T size)
{
    auto const same = [&](auto number) {
        using Number = decltype(number);
        Interlocked::schedulingPoint();
        ::memcpy(&number, compare, sizeof number);
        return __atomic_load_n(static_cast<Number const volatile *>(address), __ATOMIC_SEQ_CST) ==
               number;
    };
    switch (size) {
    case 1:
        return same(std::uint8_t{});
    case 2:
        return same(std::uint16_t{});
    case 4:
        return same(std::uint32_t{});
    default:
        return same(std::uint64_t{});
    }
}

/// Notes that a waiter is no longer in the list.
void left(Bucket &bucket, Waiter &waiter)
{
    waiter.queued = false;
    bucket.waiters.fetch_sub(1, Order::RELAXED);
}

void wake(void *address, bool all)
{
    Bucket &bucket = bucketOf(address);
    // A read-modify-write instead of a load. A waiter that is counted later is ordered after it,
    // and then sees the caller's change.
    if (bucket.waiters.fetch_add(0, Order::ACQ_REL) == 0)
        return;
    Service service;
    WakeList wakes;
    Locked locked(bucket.lock);
    bucket.list.wake(address, all, [&](Waiter &waiter) {
        left(bucket, waiter);
        wakes.grant(&waiter, WAIT_OBJECT_0);
    });
}

} // namespace

void lockAddresses()
{
    for (Bucket &bucket : buckets)
        bucket.lock.lock();
}

void unlockAddresses()
{
    for (Bucket &bucket : buckets)
        bucket.lock.unlock();
}

void forgetAddressWaits()
{
    for (Bucket &bucket : buckets) {
        bucket.waiters.store(0, Order::RELAXED);
        bucket.list = {};
    }
}

} // namespace ZvPlatform::Linux

namespace ZvPlatform {

using namespace Linux;

BOOL WaitOnAddress(void volatile *address, void *compare, SIZE_T size, DWORD milliseconds)
{
    if (DWORD const error = checkAddress(address, compare, size))
        return fail(error);
    Service service;
    Bucket &bucket = bucketOf(address);
    Waiter &me = service.thread().waiter;
    Instant const start = now();
    Spin spin(bucket.spin, me.call, start);
    if (milliseconds && spin.run([&] { return !equal(address, compare, size); }))
        return TRUE;
    {
        Locked locked(bucket.lock);
        bucket.waiters.fetch_add(1, Order::ACQ_REL);
        if (!equal(address, compare, size)) {
            bucket.waiters.fetch_sub(1, Order::RELAXED);
            return TRUE;
        }
        me.address = const_cast<void const *>(address);
        me.park.store(0, Order::RELAXED);
        me.woken = me.granted = false;
        me.queued = true;
        bucket.list.append(me);
    }
    bool const inTime = park(me, deadlineAfter(milliseconds, start));
    spin.learn();
    {
        Locked locked(bucket.lock);
        if (me.queued) {
            bucket.list.remove(me);
            left(bucket, me);
            // A wake-up without a cause is allowed, and is not a failure.
            return inTime ? TRUE : fail(ERROR_TIMEOUT);
        }
    }
    awaitGrant(me);
    return TRUE;
}

void WakeByAddressSingle(void *address)
{
    wake(address, false);
}

void WakeByAddressAll(void *address)
{
    wake(address, true);
}

} // namespace ZvPlatform
