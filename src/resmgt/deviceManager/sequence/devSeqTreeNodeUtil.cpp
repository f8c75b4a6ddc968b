#include "resmgt/deviceManager/sequence/devSeqTreeNodeUtil.h"

#include "zvbase/failures.h"
#include "zvbase/platform/interlocked.h"

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

void send(RCShdPtr<DevSeqEvPend> const &pend, std::int32_t event)
{
    pend->addEvent(event);
    pend->release();
}

} // namespace

DevSeqEvPend::~DevSeqEvPend() = default;

DevSeqTreeNodeUtil::DevSeqTreeNodeUtil(LiString const &name)
    : _name(name),
      _selfPend(new DevSeqEvPend),
      _parentPend(new DevSeqEvPend),
      _childrenPend(new DevSeqEvPend),
      _done(_name.getChars(), 0)
{
    ZV_ASSERT(_done.getErrno() == 0);
}

DevSeqTreeNodeUtil::~DevSeqTreeNodeUtil() = default;

void DevSeqTreeNodeUtil::sendToSelf(std::int32_t event)
{
    send(_selfPend, event);
}

void DevSeqTreeNodeUtil::sendToParent(std::int32_t event)
{
    send(_parentPend, event);
}

void DevSeqTreeNodeUtil::sendToChildren(std::int32_t event)
{
    send(_childrenPend, event);
}

void DevSeqTreeNodeUtil::postDone()
{
    Interlocked::storeRelease(_hasEnded, true);
    _done.post();
}

void DevSeqTreeNodeUtil::waitDone()
{
    _done.wait();
    _done.post(); // for the next thread
}

bool DevSeqTreeNodeUtil::hasEnded() const
{
    return Interlocked::loadAcquire(_hasEnded);
}

} // namespace Zv
