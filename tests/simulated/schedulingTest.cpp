// What other threads change of a thread that is about to begin.
#include "simulated/scenario.h"

#include "platform/services.h"

#ifdef ZV_KERNEL_SIMULATED
#include "platform/linux/kernel.h"
#endif

#include <functional>

using namespace Zv::Simulated;

namespace {

/// A thread that asks for its nice value when it is told to.
class Asking
{
public:
    Asking() : _thread(::CreateThread(nullptr, 0, run, this, 0, nullptr)) { HOLDS(_thread); }
    ~Asking()
    {
        ::CloseHandle(_thread);
        ::CloseHandle(_go);
    }
    Asking(Asking const &) = delete;
    Asking &operator=(Asking const &) = delete;

    HANDLE getThread() const { return _thread; }

    void expectNice([[maybe_unused]] int nice)
    {
        HOLDS(::SetEvent(_go));
        HOLDS(::WaitForSingleObject(_thread, INFINITE) == WAIT_OBJECT_0);
#ifdef ZV_KERNEL_SIMULATED
        HOLDS(_nice == nice);
#endif
    }

private:
    static ZvPlatform::ThreadResult run(void *data)
    {
        auto &mine = *static_cast<Asking *>(data);
        ::WaitForSingleObject(mine._go, INFINITE);
#ifdef ZV_KERNEL_SIMULATED
        mine._nice = ZvPlatform::Linux::Kernel::getNice(0);
#endif
        return 0;
    }

    HANDLE _go = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    [[maybe_unused]] int _nice = 0;
    HANDLE _thread;
};

/// Calls a function on this thread, whose scheduling the services did not set, and then several
/// times on one whose scheduling they know.
void onBothKindsOfThreads(std::function<void()> const &function)
{
    function();
    Worker const known("known", [&] {
        for (int i = 0; i < 5; ++i)
            function();
    });
}

void setClass(DWORD priorityClass)
{
    HOLDS(::SetPriorityClass(::GetCurrentProcess(), priorityClass));
}

} // namespace

SIMULATED(ThreadBeginsAtTheLevelThatItIsGiven, {.onKernel = 300})
{
    onBothKindsOfThreads([] {
        Asking asking;
        HOLDS(::SetThreadPriority(asking.getThread(), THREAD_PRIORITY_BELOW_NORMAL));
        asking.expectNice(2);
    });
}

SIMULATED(ThreadBeginsInTheClassOfItsProcess, {.onKernel = 300})
{
    onBothKindsOfThreads([] {
        Worker other("other", [] { setClass(HIGH_PRIORITY_CLASS); });
        Asking asking;
        other.join();
        asking.expectNice(-10);
        setClass(NORMAL_PRIORITY_CLASS);
    });
}

// The thread may inherit the nice value of the class that does not last.
SIMULATED(ClassChangesTwiceWhileAThreadBegins, {.onKernel = 300})
{
    onBothKindsOfThreads([] {
        Worker other("other", [] {
            setClass(HIGH_PRIORITY_CLASS);
            setClass(NORMAL_PRIORITY_CLASS);
        });
        Asking asking;
        other.join();
        asking.expectNice(0);
    });
}

SIMULATED(ThreadIsNamedWhileItBegins, {.onKernel = 300})
{
    Asking asking;
    HOLDS(::SetThreadDescription(asking.getThread(), L"asking") >= 0);
    asking.expectNice(0);
}
