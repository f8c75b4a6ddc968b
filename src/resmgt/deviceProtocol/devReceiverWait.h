// Rendezvous of a sender with the thread that executes its request (device writers).
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "resmgt/locks/lkNamedSema.h"

namespace Zv {

/// The receiver's side of a rendezvous: the receiving thread reports that it has arrived, and
/// blocks until the sender releases it. The sender uses a `DevSenderWait` that is made from this
/// object. The sides may arrive in any order.
///
/// The sender
/// 1. attaches a completion to its request that holds this object and calls `post` and then `wait`,
/// 2. makes a `DevSenderWait` from this object, and sends the request,
/// 3. calls `DevSenderWait::wait`, which returns when the receiving thread has arrived at the
///    completion,
/// 4. does what it must do while the receiving thread waits, and calls `DevSenderWait::post`.
///
/// If the request is destroyed without having been executed, the sender blocks without end.
///
/// **Threads**: any thread may construct the object. One thread, the receiver, calls its
/// operations.
class ZVRESMGT_EXPORT DevReceiverWait
{
public:
    /// `name` is the name of both semaphores. Fails an assertion if the system cannot make them.
    explicit DevReceiverWait(LiString const &name);
    DevReceiverWait(DevReceiverWait const &) = delete;
    DevReceiverWait &operator=(DevReceiverWait const &) = delete;

    /// Tells the sender that the receiver has arrived.
    void post();
    /// Blocks until the sender calls `DevSenderWait::post`. This object may be destroyed as soon as
    /// `wait` returns.
    void wait();

private:
    friend class DevSenderWait;

    LiString _name; // the semaphores keep a pointer to its characters
    LkUnnamedSema _arrived;
    LkUnnamedSema _released;
};

/// The sender's side of a rendezvous. See `DevReceiverWait`, which must exist until `post` has been
/// called.
///
/// **Threads**: one thread, the sender, calls the operations of this object.
class ZVRESMGT_EXPORT DevSenderWait
{
public:
    /// `receiver` is the other side of the rendezvous.
    explicit DevSenderWait(DevReceiverWait &receiver);
    DevSenderWait(DevSenderWait const &) = delete;
    DevSenderWait &operator=(DevSenderWait const &) = delete;

    /// Blocks until the receiver has arrived. The receiver then waits for `post`.
    void wait();
    /// Releases the receiver. The receiver must not be used after this call.
    void post();

private:
    LkUnnamedSema &_arrived;
    LkUnnamedSema &_released;
};

} // namespace Zv
