// Tests of threads that block signals, and of bodies that POSIX ends.
#include "resmgt/locks/lkEvent.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "testing/aborted.h"
#include "threads/threadTesting.h"

#include <gtest/gtest.h>

#include <csignal>
#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <sstream>

namespace ZvTest {

using namespace Zv;

namespace {

void blockAllSignals()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_BLOCK, &all, nullptr);
}

/// Blocks all signals, including those that the C library reserves for itself.
void blockAllSignalsPastTheLibrary()
{
    std::uint64_t const all = ~std::uint64_t{0};
    syscall(SYS_rt_sigprocmask, SIG_SETMASK, &all, nullptr, sizeof all);
}

using ThreadSignals = ThreadTest;

TEST_F(ThreadSignals, CancelKillsAWaitingThreadThatHasBlockedThemAll)
{
    LkEvent ready("ready", false), never("never", false);
    ObjPtr<MtThread> const thread = makeThread("masked", [&](TestProtocol &, MtThread *self) {
        blockAllSignals();
        self->enableCancel();
        ready.set();
        never.wait();
    });
    thread->start();
    ready.wait();
    thread->cancel();
    thread->join();
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(ThreadSignals, CancelOfAThreadThatCannotBeReachedHoldsUpNoOther)
{
    std::atomic<bool> isComputing{false}, isToGoOn{false}, isCanceled{false};
    ObjPtr<MtThread> const thread = makeThread("deaf", [&](TestProtocol &, MtThread *self) {
        blockAllSignalsPastTheLibrary();
        self->enableCancel();
        isComputing = true; // without a call of a service, in which the thread could be killed
        while (!isToGoOn) {
        }
        LkEvent("never", false).wait();
    });
    thread->start();
    while (!isComputing)
        std::this_thread::yield();
    std::thread canceller([&] {
        thread->cancel();
        isCanceled = true;
    });
    while (thread->isCancelable())
        std::this_thread::yield(); // until it is being cancelled

    std::ostringstream os;
    os << MtThreadMgr::getInstance();
    EXPECT_NE(os.str().find("deaf"), std::string::npos);
    EXPECT_FALSE(thread->getThreadId().isNull());
    ObjPtr<MtThread> const other = makeWaitingThread();
    other->start();
    PriorityRelation const relation("deaf", RtPriorities::getInstance().getRealTimePriority(),
                                    PriorityRelation::EQUAL, thread->getPriority());
    EXPECT_FALSE(isCanceled);

    isToGoOn = true;
    canceller.join();
    thread->join();
}

using ThreadEndsByPosixDeathTest = ThreadTest;

TEST_F(ThreadEndsByPosixDeathTest, PthreadExitInABodyEndsTheProcess)
{
    EXPECT_EXIT(
        {
            ObjPtr<MtThread> const thread =
                makeThread("exiting", [](TestProtocol &, MtThread *) { pthread_exit(nullptr); });
            thread->start();
            thread->join();
            std::_Exit(0);
        },
        aborted(), "A thread's body ends by the POSIX exit or cancel");
}

TEST_F(ThreadEndsByPosixDeathTest, PthreadCancelOfABodyEndsTheProcess)
{
    EXPECT_EXIT(
        {
            ObjPtr<MtThread> const thread = makeThread("canceled", [](TestProtocol &, MtThread *) {
                pthread_cancel(pthread_self());
                pthread_testcancel();
            });
            thread->start();
            thread->join();
            std::_Exit(0);
        },
        aborted(), "A thread's body ends by the POSIX exit or cancel");
}

} // namespace

} // namespace ZvTest
