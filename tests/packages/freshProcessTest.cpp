// Tests of the packages before they are up, while they are up and after that, each in a new
// process.

#include "packages/registered.h"
#include "platform/services.h"
#include "resmgt/deviceManager/devMgr.h"
#include "resmgt/locks/locksStatics.private.h"
#include "resmgt/packages.h"
#include "resmgt/syncEngine/seSyncEngine.h"
#include "resmgt/threadExtensions/mtAlarmManager.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtLogger.private.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/rtPriorities.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "testing/childProcess.h"
#include "zvbase/assertions.h"
#include "zvbase/dbgBuildInfo.h"
#include "zvbase/hmHeapMgr.h"
#include "zvbase/inPackageRun.private.h"
#include "zvbase/lgLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#ifndef _WIN32
#include <sys/resource.h>
#include <unistd.h>
#endif

namespace {

/// If set, the process reports requests for a priority class, and whether the logger runs then. It
/// does not get the class.
bool tellsOfClasses = false;

} // namespace

extern "C" BOOL __real__ZN10ZvPlatform16SetPriorityClassEPvj(HANDLE process, DWORD priorityClass);
extern "C" BOOL __wrap__ZN10ZvPlatform16SetPriorityClassEPvj(HANDLE process, DWORD priorityClass)
{
    if (!tellsOfClasses)
        return __real__ZN10ZvPlatform16SetPriorityClassEPvj(process, priorityClass);
    std::cout << (priorityClass == REALTIME_PRIORITY_CLASS ? "real-time" : "normal")
              << " class, logger " << Zv::LgLog::isLoggerActive() << std::endl;
    return 1;
}

extern "C" DWORD __real__ZN10ZvPlatform16GetPriorityClassEPv(HANDLE process);
extern "C" DWORD __wrap__ZN10ZvPlatform16GetPriorityClassEPv(HANDLE process)
{
    return tellsOfClasses ? REALTIME_PRIORITY_CLASS
                          : __real__ZN10ZvPlatform16GetPriorityClassEPv(process);
}

namespace ZvTest {

using namespace Zv;

namespace {

/// A thread's body that reports that it runs.
class Speaker : public MtThreadProtocol
{
public:
    void performExecute(MtThread *) override { std::cout << "ran" << std::endl; }
    void performStop(MtThread *) override {}
};

void runThread()
{
    ObjPtr<MtThread> thread(MtThreadFactory::getInstance().createThread(
        "speaker", ObjPtr<MtThreadProtocol>(new Speaker), true, 0));
    thread->start();
    thread->join();
}

void tryThread()
{
    try {
        runThread();
    } catch (AssertionFailed const &failure) {
        std::cout << "failed " << failure.getExpression() << std::endl;
    }
}

void tryManager()
{
    try {
        ObjPtr<DevMgr> const manager = DevMgr::create();
        std::cout << "created" << std::endl;
    } catch (AssertionFailed const &failure) {
        std::cout << "failed " << failure.getExpression() << std::endl;
    }
}

void giveUpPrivileges()
{
#ifdef _WIN32
    HANDLE token = nullptr;
    TOKEN_PRIVILEGES privileges = {};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Attributes = SE_PRIVILEGE_REMOVED;
    if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token) ||
        !::LookupPrivilegeValueA(nullptr, "SeIncreaseBasePriorityPrivilege",
                                 &privileges.Privileges[0].Luid) ||
        !::AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr))
        std::cout << "still privileged" << std::endl;
    ::CloseHandle(token);
#else
    rlimit const none = {0, 0};
    ::setrlimit(RLIMIT_RTPRIO, &none);
    rlimit const lowest = {20, 20};
    ::setrlimit(RLIMIT_NICE, &lowest);
    if (::geteuid() == 0 && ::setuid(65534) != 0)
        std::cout << "still root" << std::endl;
#endif
}

void describe()
{
    std::cout << "param " << MtThreadMgr::getRealTimeParam() << " realtime "
              << MtThreadMgr::getInstance().isRealTime() << " logger " << LgLog::isLoggerActive()
              << " threads " << InInit<ZvInit::threads>::isInitialized() << " resmgt "
              << InInit<ZvInit::resmgt>::isInitialized() << std::endl;
}

void startEarly()
{
    tryThread();
    InPackageScope const packages;
    tryThread();
}

void manageEarly()
{
    tryManager();
    InPackageScope const packages;
    tryManager();
}

void upAndDown()
{
    describe();
    {
        InPackageScope const packages;
        describe();
    }
    describe();
}

void unasked()
{
    // `setRealTime` always reads this variable again.
    setVariable("ZV_THREAD_NO_REALTIME", "7");
    {
        InPackageScope const packages;
    }
    std::cout << "read " << ThreadsStatics::noRealTime.getValue() << std::endl;
    MtThreadMgr::getInstance().setRealTime(true);
    std::cout << "read " << ThreadsStatics::noRealTime.getValue() << std::endl;
}

void wanted()
{
    giveUpPrivileges();
    MtThreadMgr::indicateAppIsRealTime(false);
    upAndDown();
}

void required()
{
    giveUpPrivileges();
    MtThreadMgr::indicateAppIsRealTime(true);
    try {
        InPackageScope const packages;
    } catch (MtEx::ExRealTimeNotEnabled const &refusal) {
        std::cout << "refused" << std::endl;
    }
    describe();
    tryThread();
}

void startLate()
{
    {
        InPackageScope const packages;
    }
    tryThread();
}

void twice()
{
    upAndDown();
    InPackageScope const packages;
    describe();
    tryThread();
    DbgBuildInfoUtil::list(std::cout);
}

void warmUps()
{
    HmHeapMgr &heap = HmHeapMgr::getInstance();
    std::cout << heap.getNbWarmUps();
    InPackageScope const packages;
    std::cout << ' ' << heap.getNbWarmUps() << std::endl;
}

void requiredAndAgain()
{
    required();
    MtThreadMgr::indicateAppIsRealTime(false);
    {
        InPackageScope const packages;
        describe();
        tryThread();
    }
    describe();
}

void leaveRealTime()
{
    tellsOfClasses = true;
    MtThreadMgr::indicateAppIsRealTime(true);
    InPackageScope const packages;
    describe();
}

/// Fails, because the trace manager is destroyed when the packages go down.
void endTwice()
{
    {
        InPackageScope const packages;
    }
    MtLogger::startLogger();
    try {
        getRegistered<ZvInit::threads>().cleanupPackage();
    } catch (AssertionFailed const &failure) {
        std::cout << "failed " << failure.getExpression() << std::endl;
    }
}

template <class T>
void tellOfSingleton(char const *name)
{
    if (LkSingleton<T>::getState() != LkSingleton<T>::UNINITIALIZED)
        std::cout << name << " is there" << std::endl;
}

/// Reports what exists after the library was loaded.
void load()
{
    for (InPackageInit const *package : InPackageRun::getRegistered())
        if (typeid(*package) != InInit<ZvInit::base>::getType())
            std::cout << package->getName() << std::endl;
    std::cout << (&lockDefaultMutexAttr == &LkMutexAttr::getDefaultAttr()) << std::endl;
    tellOfSingleton<MtThreadMgr>("MtThreadMgr");
    tellOfSingleton<MtPriorityMgr>("MtPriorityMgr");
    tellOfSingleton<MtThreadFactory>("MtThreadFactory");
    tellOfSingleton<RtPriorities>("RtPriorities");
    tellOfSingleton<MtAlarmManager>("MtAlarmManager");
    tellOfSingleton<SeSyncEngine>("SeSyncEngine");
}

struct Scene
{
    char const *name;
    void (*play)();
};
Scene const scenes[] = {{"startEarly", startEarly},
                        {"manageEarly", manageEarly},
                        {"upAndDown", upAndDown},
                        {"unasked", unasked},
                        {"wanted", wanted},
                        {"required", required},
                        {"startLate", startLate},
                        {"twice", twice},
                        {"warmUps", warmUps},
                        {"requiredAndAgain", requiredAndAgain},
                        {"leaveRealTime", leaveRealTime},
                        {"endTwice", endTwice},
                        {"load", load}};

/// Returns what a new process prints in a scene, and how it ends. Variables of its environment
/// request real-time operation.
std::string play(char const *scene, char const *force = nullptr, char const *no = nullptr)
{
    setVariable("ZV_THREAD_FORCE_REALTIME", force);
    setVariable("ZV_THREAD_NO_REALTIME", no);
    auto const end = ChildProcess({"--child", scene}).await();
    if (end.code != 0)
        return end.output + "status " + std::to_string(end.code) + "\n";
    return end.output;
}

using testing::HasSubstr;
using testing::Not;

#define DOWN "param 0 realtime 0 logger 0 threads 0 resmgt 0\n"
#define UP "param 0 realtime 0 logger 1 threads 1 resmgt 1\n"

TEST(FreshProcess, NoThreadStartsBeforeThePackagesAreUp)
{
    std::string const output = play("startEarly");
    EXPECT_THAT(output, HasSubstr("failed canStart()\nran\n"));
}

TEST(FreshProcess, NoDeviceManagerIsCreatedBeforeThePackagesAreUp)
{
    std::string const output = play("manageEarly");
    EXPECT_THAT(output, HasSubstr("failed canStart()\ncreated\n"));
    EXPECT_THAT(output, Not(HasSubstr("status")));
}

TEST(FreshProcess, ThreadsMayStartForTheRestOfTheProcess)
{
    EXPECT_EQ("ran\n", play("startLate"));
}

TEST(FreshProcess, RealTimeIsNeitherSetNorReportedUnlessRequested)
{
    EXPECT_EQ(DOWN UP DOWN, play("upAndDown"));
    EXPECT_EQ("read 0\nread 7\n", play("unasked"));
}

TEST(FreshProcess, ZeroAndNegativeWishesAreNone)
{
    for (char const *wish : {"0", "-1", "-20"})
        EXPECT_EQ(DOWN UP DOWN, play("upAndDown", wish));
}

TEST(FreshProcess, AWishIsNotGrantedIfRealTimeIsSwitchedOff)
{
    std::string const output = play("upAndDown", "1", "1");
    EXPECT_THAT(output, HasSubstr("Real-time not enabled."));
    EXPECT_THAT(output, HasSubstr("threadsInit.cpp("));
    EXPECT_THAT(output, HasSubstr("param 1 realtime 0 logger 1 threads 1 resmgt 1\n"));
}

TEST(FreshProcess, AWishIsReportedAsItWasMet)
{
    std::string const output = play("upAndDown", "1");
    bool const met = output.find("Real-time enabled.") != std::string::npos;
    EXPECT_THAT(output, HasSubstr(met ? "param 1 realtime 1 logger 1 threads 1 resmgt 1\n"
                                      : "param 1 realtime 0 logger 1 threads 1 resmgt 1\n"));
    EXPECT_THAT(output, HasSubstr(met ? "Real-time enabled." : "Real-time not enabled."));
    // Going down ends real-time operation.
    EXPECT_THAT(output, HasSubstr("param 1 realtime 0 logger 0 threads 0 resmgt 0\n"));
}

TEST(FreshProcess, ARefusedWishIsTolerated)
{
    std::string const output = play("wanted");
    EXPECT_THAT(output, HasSubstr("Real-time not enabled."));
    EXPECT_THAT(output, HasSubstr("param 1 realtime 0 logger 1 threads 1 resmgt 1\n"));
    EXPECT_THAT(output, Not(HasSubstr("status")));
}

TEST(FreshProcess, ARefusedDemandLeavesThePackageHalfStarted)
{
    std::string const output = play("required");
    EXPECT_THAT(output, HasSubstr("refused\nparam 2 realtime 0 logger 0 threads 0 resmgt 0\n"));
    EXPECT_THAT(output, HasSubstr("failed canStart()\n"));
    EXPECT_THAT(output, Not(HasSubstr("Real-time")));
}

TEST(FreshProcess, PackagesComeUpAgainAndAreListedOnce)
{
    std::string const output = play("twice");
    EXPECT_THAT(output, testing::StartsWith(DOWN UP DOWN UP "ran\n"));
    EXPECT_THAT(output, HasSubstr("libZVresmgt " ZV_MAJOR_MINOR " pre-alpha, "));
    EXPECT_THAT(output, HasSubstr(" (P. 187)\n    built Feb 20 2006 by "));
    EXPECT_THAT(output, HasSubstr("\n    [Information not available]\n"));
    EXPECT_EQ(output.find("libZVresmgt"), output.rfind("libZVresmgt"));
}

TEST(FreshProcess, TheHeapIsWarmedUpOnce)
{
    EXPECT_EQ("0 1\n", play("warmUps"));
}

TEST(FreshProcess, ThePackagesComeUpAfterADemandThatWasRefused)
{
    std::string const output = play("requiredAndAgain");
    EXPECT_THAT(output, HasSubstr("refused\n"));
    EXPECT_THAT(output, HasSubstr("param 1 realtime 0 logger 1 threads 1 resmgt 1\n"));
    EXPECT_THAT(output, HasSubstr("\nran\n"));
    EXPECT_THAT(output, testing::EndsWith("param 1 realtime 0 logger 0 threads 0 resmgt 0\n"));
}

TEST(FreshProcess, RealTimeIsLeftBeforeTheLoggerStops)
{
    std::string const output = play("leaveRealTime");
    EXPECT_THAT(output, testing::StartsWith("real-time class, logger 0\n"));
    EXPECT_THAT(output, HasSubstr("param 2 realtime 1 logger 1 threads 1 resmgt 1\n"
                                  "normal class, logger 1\n"));
}

TEST(FreshProcess, AnEndWithoutAStartFailsAnAssertion)
{
    EXPECT_THAT(play("endTwice"), HasSubstr("failed traceManager\n"));
}

TEST(FreshProcess, TheLoadEntersThePackagesInOrderAndMakesNoThreadOrManager)
{
    EXPECT_EQ("containers\ndeviceManager\ndeviceProtocol\ndynamicAllocation\nliterals\nlocks\n"
              "memoryBuffers\nresmgt\nsmartPtrs\nsyncEngine\nthreadExtensions\nthreads\nxml\n1\n",
              play("load"));
}

} // namespace
} // namespace ZvTest

int zvChildMain(int argc, char **argv);

int zvChildMain(int argc, char **argv)
{
    for (ZvTest::Scene const &scene : ZvTest::scenes)
        if (argc > 0 && std::strcmp(argv[0], scene.name) == 0) {
            scene.play();
            return 0;
        }
    return 1;
}
