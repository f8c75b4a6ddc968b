// The sender's side of a rendezvous.
#pragma once

#include "resmgt/deviceProtocol/devReceiverWait.h"

namespace Zv {

/// The sender's side of a rendezvous with the holder of a `DevReceiverWait`, which must outlive it until `post` has
/// been called.
class ZVRESMGT_EXPORT DevSenderWait
{
public:
    explicit DevSenderWait(DevReceiverWait &receiver);
    DevSenderWait(DevSenderWait const &) = delete;
    DevSenderWait &operator=(DevSenderWait const &) = delete;

    /// Blocks until the receiver has arrived. From then on it stands still.
    void wait();
    /// Lets the receiver go on, and is the last use of it.
    void post();

private:
    LkUnnamedSema &_arrived;
    LkUnnamedSema &_released;
};

} // namespace Zv
