// The thread manager of the platform's services.
#pragma once

#include "resmgt/threads/mtThreadMgrImp.private.h"
#include "zvbase/platform/types.h"

namespace Zv {

class MtThreadMgrWinNT final : public MtThreadMgrImp
{
public:
    MtThreadMgrWinNT();

    void dump(std::ostream &) const override;

protected:
    ~MtThreadMgrWinNT() noexcept(false) override;
    friend class LkSingleton<MtThreadMgr>;

    void updateGroups(unsigned nbProcessors) override;
    void enableRealTime() override;
    void disableRealTime() override;

private:
    ZvPlatform::Handle _processHandle;
};

} // namespace Zv
