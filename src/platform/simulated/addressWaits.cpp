#include "platform/scheduler/sharedWords.h"
#include "platform/simulated/thread.h"

namespace ZvPlatform {

using namespace Simulated;

namespace {

// Threads that wait for any address, in the order of their arrival.
constinit WaitList<Thread> sleepers;

void wake(void *address, bool all)
{
    sleepers.wake(address, all, [](Thread &thread) { grant(thread, WAIT_OBJECT_0); });
}

/// Reads memory without the C library, whose functions the thread sanitizer would report as reads
/// without a lock.
std::uint64_t valueAt(void const volatile *address, SIZE_T size)
{
    auto const volatile *bytes = static_cast<unsigned char const volatile *>(address);
    std::uint64_t value = 0;
    for (SIZE_T i = 0; i < size; ++i)
        value |= std::uint64_t{bytes[i]} << 8 * i;
    return value;
}

} // namespace

void Simulated::leaveAddress(Thread &thread)
{
    sleepers.remove(thread);
}

BOOL WaitOnAddress(void volatile *address, void *compare, SIZE_T size, DWORD milliseconds)
{
    enter("WaitOnAddress", const_cast<void *>(address));
    if (DWORD const error = checkAddress(address, compare, size))
        return fail(error);
    // The comparison is made with the newest value. The thread reads none older afterwards.
    std::uint64_t const newest = valueAt(address, size);
    if (scheduler.isRunning())
        weakMemory.see(indexOf(currentThread()), const_cast<void const *>(address));
    bool const isEqual = newest == valueAt(compare, size);
    scheduler.note(isEqual);
    if (!isEqual)
        return TRUE;
    Thread &me = currentThread();
    me.kind = Thread::ADDRESS;
    me.address = const_cast<void *>(address);
    sleepers.append(me);
    scheduler.wait(scheduler.deadlineAfter(milliseconds), true);
    if (me.granted)
        return TRUE;
    sleepers.remove(me);
    return me.isStray ? TRUE : fail(ERROR_TIMEOUT);
}

void WakeByAddressSingle(void *address)
{
    enter("WakeByAddressSingle", address);
    wake(address, false);
}

void WakeByAddressAll(void *address)
{
    enter("WakeByAddressAll", address);
    wake(address, true);
}

} // namespace ZvPlatform
