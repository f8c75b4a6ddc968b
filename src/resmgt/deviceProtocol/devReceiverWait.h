// The rendezvous of a sender with the thread that serves its request.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkUnnamedSema.h"

namespace Zv {

/// The serving thread's side of a rendezvous: it reports that it has arrived, and stands still until the sender lets
/// it go. The sender's side is a `DevSenderWait` made from this object. Which side comes first does not matter.
///
/// The sender
/// 1. puts an ACO that holds this object, and calls `post` and `wait` when it runs, into a request,
/// 2. makes a `DevSenderWait` from this object and sends the request,
/// 3. calls `DevSenderWait::wait`: the serving thread has come to the ACO and stands still,
/// 4. does what must be done meanwhile, and calls `DevSenderWait::post`.
class ZVRESMGT_EXPORT DevReceiverWait
{
public:
    /// `name` is the name of both semaphores.
    explicit DevReceiverWait(LiString const &name);
    DevReceiverWait(DevReceiverWait const &) = delete;
    DevReceiverWait &operator=(DevReceiverWait const &) = delete;

    /// Tells the sender that the receiver has arrived.
    void post();
    /// Blocks until the sender lets go. This object may be destroyed as soon as it returns.
    void wait();

private:
    friend class DevSenderWait;

    LiString _name; // the semaphores keep a pointer to its characters
    LkUnnamedSema _arrived;
    LkUnnamedSema _released;
};

} // namespace Zv
