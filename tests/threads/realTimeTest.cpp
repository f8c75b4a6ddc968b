// Tests of real-time operation, with and without the privilege, each in a process of its own.
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtThreadStatus.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "threads/threadTesting.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace ZvTest {

using namespace Zv;

namespace {

void dropPrivilege()
{
    rlimit const none = {0, 0};
    if (setrlimit(RLIMIT_RTPRIO, &none))
        std::perror("setrlimit");
    if (geteuid() == 0 && setresuid(65534, 65534, 65534))
        std::perror("setresuid");
}

/// Returns whether this process may run threads in real time.
bool hasPrivilege()
{
    rlimit limit = {};
    getrlimit(RLIMIT_RTPRIO, &limit);
    sched_param const parameters = {31};
    int const policy = sched_getscheduler(0);
    sched_param former = {};
    sched_getparam(0, &former);
    if (sched_setscheduler(0, SCHED_RR, &parameters))
        return false;
    sched_setscheduler(0, policy, &former);
    return true;
}

MtThreadStatus readStatus(MtThread const &thread)
{
    for (MtThreadStatus const &status : MtThreadStatus::readAll())
        if (status.threadId == thread.getThreadId())
            return status;
    return {};
}

#define ZV_CHECK(condition)                                                                        \
    do {                                                                                           \
        if (!(condition)) {                                                                        \
            std::fprintf(stderr, "line %d: %s\n", __LINE__, #condition);                           \
            std::_Exit(1);                                                                         \
        }                                                                                          \
    } while (false)

struct Scheduling
{
    int policy = -1;
    int priority = -1;
};

Scheduling getScheduling()
{
    sched_param parameters = {};
    sched_getparam(0, &parameters);
    return {sched_getscheduler(0), parameters.sched_priority};
}

Scheduling getSchedulingOfThread(Priority *level)
{
    Scheduling scheduling;
    ObjPtr<MtThread> const thread =
        makeThread("scheduled", [&](TestProtocol &, MtThread *) { scheduling = getScheduling(); });
    ObjPtr<PriorityRelation> relation;
    if (level)
        relation.reset(
            new PriorityRelation("level", *level, PriorityRelation::EQUAL, thread->getPriority()));
    thread->start();
    thread->join();
    return scheduling;
}

using RealTimeDeathTest = ThreadTest;

TEST_F(RealTimeDeathTest, WithoutThePrivilegeTheReasonSaysWhatWouldAllowIt)
{
    EXPECT_EXIT(
        {
            dropPrivilege();
            MtThreadMgr::indicateAppIsRealTime(true);
            try {
                MtThreadMgr::getInstance().setRealTime(true);
                ZV_CHECK(!"refused");
            } catch (MtEx::ExRealTimeNotEnabled const &refusal) {
                ZV_CHECK(std::string(refusal.getReason()) ==
                         "Failure to enable real-time: the system refuses real-time scheduling to "
                         "this process; the "
                         "capability CAP_SYS_NICE or a limit RLIMIT_RTPRIO of 31 would allow it.");
            }
            ZV_CHECK(!MtThreadMgr::getInstance().isRealTime());
            MtThreadMgr::indicateAppIsRealTime(false);
            MtThreadMgr::getInstance().setRealTime(true);
            ZV_CHECK(!MtThreadMgr::getInstance().isRealTime());
            Scheduling const scheduling =
                getSchedulingOfThread(&RtPriorities::getInstance().getInterruptPriority());
            ZV_CHECK(scheduling.policy == SCHED_OTHER);
            ObjPtr<MtThread> const thread = makeWaitingThread();
            PriorityRelation const relation("level",
                                            RtPriorities::getInstance().getInterruptPriority(),
                                            PriorityRelation::EQUAL, thread->getPriority());
            thread->start();
            MtThreadStatus const status = readStatus(*thread);
            ZV_CHECK(status.level == 6);
            ZV_CHECK(!status.asked.isRealTime && status.asked.priority == -14);
            ZV_CHECK(status.granted.priority > -14);
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST_F(RealTimeDeathTest, WithThePrivilegeThreadsRunAtTheirBasePriority)
{
    if (!hasPrivilege())
        GTEST_SKIP() << "this process has not the privilege of real-time scheduling";
    EXPECT_EXIT(
        {
            MtThreadMgr &manager = MtThreadMgr::getInstance();
            ObjPtr<MtThread> const before = makeWaitingThread();
            before->start();
            manager.setRealTime(true);
            ZV_CHECK(manager.isRealTime());
            ZV_CHECK(getScheduling().policy == SCHED_OTHER); // the application's own thread
            std::ostringstream os;
            before->dump(os);
            ZV_CHECK(os.str().find(" prio   0 NTprio  16 ") != std::string::npos);
            MtThreadStatus const status = readStatus(*before);
            ZV_CHECK(status.level == 0);
            ZV_CHECK(status.asked.isRealTime && status.asked.priority == 16);
            ZV_CHECK(status.granted == status.asked);
            MtThreadStatus const main = MtThreadStatus::readAll().front();
            ZV_CHECK(main.name == LiString("main") && main.level == 3);
            ZV_CHECK(main.asked.isRealTime && main.asked.priority == 24);
            ZV_CHECK(main.isRunning() && !main.granted.isRealTime); // the application's own thread
            Scheduling const lowest = getSchedulingOfThread(nullptr);
            ZV_CHECK(lowest.policy == SCHED_RR && lowest.priority == 16);
            Scheduling const highest =
                getSchedulingOfThread(&RtPriorities::getInstance().getInterruptPriority());
            ZV_CHECK(highest.policy == SCHED_RR && highest.priority == 31);
            manager.setRealTime(false);
            ZV_CHECK(!manager.isRealTime());
            ZV_CHECK(getSchedulingOfThread(nullptr).policy == SCHED_OTHER);
            std::_Exit(0);
        },
        testing::ExitedWithCode(0), "");
}

} // namespace

} // namespace ZvTest
