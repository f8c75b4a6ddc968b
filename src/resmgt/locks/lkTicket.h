// Turns by number.
#pragma once

#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkPulse.h"

namespace Zv {

/// Lets threads wait for their turn by a running number, which begins at 0. Any thread may call anything; the name is
/// not copied.
///
///     ticket.waitForTicket(mine);
///     ...                     // nobody else's turn
///     ticket.next();
///
/// Only whoever has the turn calls `next`: a thread that still waits when its turn has gone by waits for ever.
class ZVRESMGT_EXPORT LkTicket
{
public:
    explicit LkTicket(char const *name);
    LkTicket(LkTicket const &) = delete;
    LkTicket &operator=(LkTicket const &) = delete;

    /// It is the next number's turn. Does not wait for anybody.
    void next();
    /// Blocks until it is this number's turn; whether it had to wait. A number whose turn is over fails an assertion.
    bool waitForTicket(long long ticket) const;
    /// Adds 1 to the caller's own counter and waits for the number that it gives. If the wait fails, the counter is as
    /// before.
    bool waitForNextTicket(long long &counter) const;

private:
    long long _current ZV_GUARDED_BY(_lock);
    LkMutex _lock;
    LkPulse _pulse;
};

} // namespace Zv
