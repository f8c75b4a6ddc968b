#include "resmgt/threads/mtThreadFactory.h"

#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/threads/mtPriorityLevels.private.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtThreadWindows.private.h"

#include <utility>

namespace Zv {

namespace {

/// Creates the threads of the platform.
class MtThreadFactoryWinNT final : public MtThreadFactory
{
public:
    [[nodiscard]] ObjPtrRet<MtThread> createThread(LiString const &name,
                                                   ObjPtr<MtThreadProtocol> protocol,
                                                   bool terminateOnUnhandled,
                                                   unsigned stackSize) override
    {
        return ObjPtrRet<MtThread>(new MtThreadWindows(name, std::move(protocol),
                                                       MtThreadMgr::getInstance(), true,
                                                       terminateOnUnhandled, stackSize));
    }
    int getMinPriority() const override { return MtPriorityLevels::MINIMUM; }
    int getMaxPriority() const override { return MtPriorityLevels::MAXIMUM; }

protected:
    [[nodiscard]] ObjPtrRet<MtThread> createMainThread(LiString const &name,
                                                       MtThreadMgr &manager) override
    {
        return ObjPtrRet<MtThread>(new MtThreadWindows(name, nullptr, manager, false, false, 0));
    }
};

} // namespace

ZV_DEFINE_SINGLETON(MtThreadFactory, MtThreadFactoryWinNT);

MtThreadFactory::~MtThreadFactory() = default;

ObjPtrRet<MtThread> MtThreadFactory::createThread(LiString const &name,
                                                  ObjPtr<MtThreadProtocol> protocol,
                                                  StoredException stored, unsigned stackSize)
{
    return createThread(name, std::move(protocol), stored == StoredException::TERMINATE, stackSize);
}

} // namespace Zv
