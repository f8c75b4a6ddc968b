#include "resmgt/threads/mtThreadFactoryWinNT.private.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtPriorityLevels.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtThreadWindows.private.h"

namespace Zv {

ZV_DEFINE_SINGLETON(MtThreadFactory, MtThreadFactoryWinNT);

MtThreadFactory::~MtThreadFactory() = default;

MtThreadFactoryWinNT::MtThreadFactoryWinNT() = default;

MtThreadFactoryWinNT::~MtThreadFactoryWinNT() = default;

ObjPtrRet<MtThread> MtThreadFactoryWinNT::createThread(LiString const &name,
                                                       ObjPtr<MtThreadProtocol> protocol,
                                                       bool terminateOnUnhandled,
                                                       unsigned stackSize)
{
    return ObjPtrRet<MtThread>(new MtThreadWindows(name, protocol, MtThreadMgr::getInstance(), true,
                                                   terminateOnUnhandled, stackSize));
}

int MtThreadFactoryWinNT::getMinPriority() const
{
    return MtPriorityLevels::MINIMUM;
}

int MtThreadFactoryWinNT::getMaxPriority() const
{
    return MtPriorityLevels::MAXIMUM;
}

ObjPtrRet<MtThread> MtThreadFactoryWinNT::createMainThread(LiString const &name,
                                                           MtThreadMgr &manager)
{
    return ObjPtrRet<MtThread>(new MtThreadWindows(name, nullptr, manager, false, false, 0));
}

} // namespace Zv
