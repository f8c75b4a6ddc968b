// The thread factory of the platform's services.
#pragma once

#include "resmgt/threads/mtThreadFactory.h"

namespace Zv {

class MtThreadFactoryWinNT final : public MtThreadFactory
{
public:
    MtThreadFactoryWinNT();

    ObjPtrRet<MtThread> createThread(LiString const &name, ObjPtr<MtThreadProtocol> protocol,
                                     bool terminateOnUnhandled, unsigned stackSize) override;
    int getMinPriority() const override;
    int getMaxPriority() const override;

protected:
    ~MtThreadFactoryWinNT() override;

    ObjPtrRet<MtThread> createMainThread(LiString const &name, MtThreadMgr &manager) override;
};

} // namespace Zv
