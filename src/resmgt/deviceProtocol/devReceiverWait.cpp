#include "resmgt/deviceProtocol/devReceiverWait.h"

#include "zvbase/failures.h"

namespace Zv {

DevReceiverWait::DevReceiverWait(LiString const &name)
    : _name(name), _arrived(_name.getChars(), 0), _released(_name.getChars(), 0)
{
    // Without the semaphores neither side would wait for the other.
    ZV_ASSERT(_arrived.getErrno() == 0 && _released.getErrno() == 0);
}

void DevReceiverWait::post()
{
    _arrived.post();
}

void DevReceiverWait::wait()
{
    _released.wait();
}

DevSenderWait::DevSenderWait(DevReceiverWait &receiver)
    : _arrived(receiver._arrived), _released(receiver._released)
{}

void DevSenderWait::wait()
{
    _arrived.wait();
}

void DevSenderWait::post()
{
    _released.post();
}

} // namespace Zv
