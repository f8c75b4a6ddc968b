#include "resmgt/threads/mtThreadMgrImp.private.h"

#include "platform/services.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "resmgt/locks/mtUtil.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "zvbase/failures.h"

#include <ostream>

namespace Zv {

namespace {

constexpr char const *REFUSAL = "the system refuses real-time scheduling to this process; "
#ifdef _WIN32
                                "the privilege SeIncreaseBasePriorityPrivilege would allow it";
#else
                                "the capability CAP_SYS_NICE or a limit RLIMIT_RTPRIO of 31 would "
                                "allow it";
#endif

} // namespace

/// The thread manager of the platform's services.
class MtThreadMgrWinNT final : public MtThreadMgrImp
{
public:
    MtThreadMgrWinNT();

    void dump(std::ostream &) const override;

protected:
    ~MtThreadMgrWinNT() noexcept(false) override;

    void updateGroups(unsigned nbProcessors) override;
    void enableRealTime() override;
    void disableRealTime() override;

private:
    HANDLE _processHandle = nullptr;
};

ZV_DEFINE_SINGLETON(MtThreadMgr, MtThreadMgrWinNT);

MtThreadMgrWinNT::MtThreadMgrWinNT() : MtThreadMgrImp(MtThreadFactory::getInstance())
{
    setNbProcessors(static_cast<unsigned>(MtUtil::getNbProcessors()));
    ZV_SYS_ASSERT((_processHandle = ::GetCurrentProcess()) != NULL);
}

MtThreadMgrWinNT::~MtThreadMgrWinNT() noexcept(false) = default;

void MtThreadMgrWinNT::updateGroups(unsigned) {}

void MtThreadMgrWinNT::enableRealTime()
{
    if (::SetPriorityClass(_processHandle, REALTIME_PRIORITY_CLASS)) {
        if (::GetPriorityClass(_processHandle) == REALTIME_PRIORITY_CLASS)
            return;
        // If a process may not have this class, Windows gives it the next lower one and reports
        // success.
        ::SetPriorityClass(_processHandle, NORMAL_PRIORITY_CLASS);
        ::SetLastError(ERROR_PRIVILEGE_NOT_HELD);
    }
    if (::GetLastError() == ERROR_PRIVILEGE_NOT_HELD)
        ZV_THROW(MtEx::ExRealTimeNotEnabled, REFUSAL);
    // Any other failure is a fault. The second try puts the call into the report.
    ZV_SYS_ASSERT(::SetPriorityClass( _processHandle, REALTIME_PRIORITY_CLASS ));
}

void MtThreadMgrWinNT::disableRealTime()
{
    ZV_SYS_ASSERT(::SetPriorityClass( _processHandle, NORMAL_PRIORITY_CLASS ));
}

void MtThreadMgrWinNT::dump(std::ostream &os) const
{
    MtThreadMgrImp::dump(os);
    MtPriorityMgr::getInstance().dump(os);
}

} // namespace Zv
