#include "resmgt/deviceProtocol/devSenderWait.h"

namespace Zv {

DevReceiverWait::DevReceiverWait(LiString const &name)
    : _name(name), _arrived(_name.getChars(), 0), _released(_name.getChars(), 0)
{}

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
