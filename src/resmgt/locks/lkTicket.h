// Ticket: turns by a running number (applications).
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"

namespace Zv {

/// Lets threads wait for their turn by a running number, which begins at 0.
///
///     Zv::LkTicket ticket("turns");
///     long long const mine = 0;
///     ticket.waitForTicket(mine);
///     // It is the turn of number 0 here.
///     ticket.next();
///
/// Only the thread whose turn it is may call `next`. A thread that still waits when its turn has
/// passed is never woken.
///
/// **Threads**: thread-safe.
///
/// **Owns**: nothing. The name is not copied and must exist as long as the ticket.
class ZVRESMGT_EXPORT LkTicket
{
public:
    explicit LkTicket(char const *name);
    LkTicket(LkTicket const &) = delete;
    LkTicket &operator=(LkTicket const &) = delete;

    /// Passes the turn to the next number. Does not wait for another thread.
    void next();
    /// **Blocks** until it is the turn of this number. Returns true if it had to wait. **Throws**
    /// `AssertionFailed` if the turn of this number is over.
    bool waitForTicket(long long ticket) const;
    /// Adds 1 to the caller's own counter and waits for the turn of the result. Returns true if it
    /// had to wait. If the wait fails, the counter keeps its value.
    bool waitForNextTicket(long long &counter) const;

private:
    long long _current ZV_GUARDED_BY(_lock);
    LkMutex _lock;
    LkPulse _pulse;
};

} // namespace Zv
