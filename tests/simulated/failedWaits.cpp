#include "simulated/failedWaits.h"

#include "platform/services.h"
#include "resmgt/locks/lkCondVar.h"
#include "resmgt/locks/lkPulse.h"

#include <utility>

namespace Zv::Simulated {

namespace {

thread_local FailingWait place;
thread_local bool isFailing = false;
thread_local LkUnnamedSema *posted = nullptr;

bool failsHere(FailingWait here)
{
    bool const fails = isFailing && place == here;
    if (fails)
        isFailing = false;
    return fails;
}

void failIf(FailingWait here)
{
    if (failsHere(here))
        Assertions::throwAssertionFailed(__FILE__, __LINE__, "the wait");
}

/// Runs a wait of the library, and makes it fail if the calling thread has a `NextWaitFails`.
template <class Wait>
auto failing(Wait wait)
{
    struct Woken
    {
        ~Woken() noexcept(false) { failIf(FailingWait::WHEN_WOKEN); }
    };
    failIf(FailingWait::BEFORE_SLEEPING);
    if (auto * const waits = std::exchange(posted, nullptr))
        waits->post();
    Woken const woken;
    return wait();
}

} // namespace

NextWaitFails::NextWaitFails(FailingWait where)
{
    place = where;
    isFailing = true;
}

NextWaitFails::~NextWaitFails()
{
    isFailing = false;
}

NextWaitPosts::NextWaitPosts(LkUnnamedSema &waits)
{
    posted = &waits;
}

NextWaitPosts::~NextWaitPosts()
{
    posted = nullptr;
}

} // namespace Zv::Simulated

// The linker replaces the library's waits by these functions. Their symbols are listed in
// `wrapped.txt`.

using namespace Zv;
using namespace Zv::Simulated;

#define ZV_FAILING(Result, Symbol, Parameters, Arguments)                                          \
    extern "C" Result __real_##Symbol Parameters;                                                  \
    extern "C" Result __wrap_##Symbol Parameters                                                   \
    {                                                                                              \
        return failing([&] { return __real_##Symbol Arguments; });                                 \
    }

ZV_FAILING(void, _ZNK2Zv14LkPulseWindows4waitERKNS_7LkMutexE,
           (LkPulseWindows const *self, LkMutex const &mutex), (self, mutex))
ZV_FAILING(bool, _ZNK2Zv14LkPulseWindows9timedWaitERKNS_7LkMutexEd,
           (LkPulseWindows const *self, LkMutex const &mutex, double seconds),
           (self, mutex, seconds))
ZV_FAILING(void, _ZNK2Zv14LkPulseWindows8waitNextERKNS_7LkMutexE,
           (LkPulseWindows const *self, LkMutex const &mutex), (self, mutex))
ZV_FAILING(void, _ZNK2Zv16LkCondVarWindows4waitERKNS_7LkMutexE,
           (LkCondVarWindows const *self, LkMutex const &mutex), (self, mutex))
ZV_FAILING(bool, _ZNK2Zv16LkCondVarWindows9timedWaitERKNS_7LkMutexEd,
           (LkCondVarWindows const *self, LkMutex const &mutex, double seconds),
           (self, mutex, seconds))

extern "C" DWORD __real__ZN10ZvPlatform21WaitForSingleObjectExEPvji(HANDLE, DWORD, BOOL);
extern "C" DWORD __wrap__ZN10ZvPlatform21WaitForSingleObjectExEPvji(HANDLE handle,
                                                                    DWORD milliseconds,
                                                                    BOOL alertable)
{
    if (failsHere(FailingWait::IN_THE_SERVICE))
        return WAIT_FAILED;
    return __real__ZN10ZvPlatform21WaitForSingleObjectExEPvji(handle, milliseconds, alertable);
}
