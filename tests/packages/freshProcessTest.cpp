// What happens before, during and after the run of the packages, each time in a process of its own.

#include "resmgt/packages.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtThread.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtThreadProtocol.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "zvbase/assertions.h"
#include "zvbase/dbgBuildInfo.h"
#include "zvbase/lgLog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Zv {
namespace {

/// A thread's body that says that it ran.
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

void giveUpPrivileges()
{
    rlimit const none = {0, 0};
    ::setrlimit(RLIMIT_RTPRIO, &none);
    rlimit const lowest = {20, 20};
    ::setrlimit(RLIMIT_NICE, &lowest);
    if (::geteuid() == 0 && ::setuid(65534) != 0)
        std::cout << "still root" << std::endl;
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
    // `setRealTime` reads this variable again, whatever else it does.
    ::setenv("ZV_THREAD_NO_REALTIME", "7", 1);
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

struct Scene
{
    char const *name;
    void (*play)();
};
Scene const scenes[] = {
    {"startEarly", startEarly}, {"upAndDown", upAndDown}, {"unasked", unasked}, {"wanted", wanted},
    {"required", required},     {"startLate", startLate}, {"twice", twice}};

/// What a new process printed while it played a scene, and its end.
std::string play(std::string const &scene, std::string const &environment = "")
{
    char self[4096] = {};
    if (::readlink("/proc/self/exe", self, sizeof(self) - 1) <= 0)
        return "no program";
    std::string const command = "env -u ZV_THREAD_FORCE_REALTIME -u ZV_THREAD_NO_REALTIME " +
                                environment + " '" + self + "' --child " + scene + " 2>&1";
    std::FILE * const pipe = ::popen(command.c_str(), "r");
    if (!pipe)
        return "no process";
    std::string output;
    for (int c; (c = std::fgetc(pipe)) != EOF;)
        output += static_cast<char>(c);
    int const status = ::pclose(pipe);
    if (!WIFEXITED(status) || WEXITSTATUS(status) != 0)
        output += "status " + std::to_string(status) + "\n";
    return output;
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

TEST(FreshProcess, ThreadsMayStartForTheRestOfTheProcess)
{
    EXPECT_EQ("ran\n", play("startLate"));
}

TEST(FreshProcess, NothingIsSaidOrDoneAboutRealTimeUnasked)
{
    EXPECT_EQ(DOWN UP DOWN, play("upAndDown"));
    EXPECT_EQ("read 0\nread 7\n", play("unasked"));
}

TEST(FreshProcess, ZeroAndNegativeWishesAreNone)
{
    for (char const *wish : {"0", "-1", "-20"})
        EXPECT_EQ(DOWN UP DOWN, play("upAndDown", std::string("ZV_THREAD_FORCE_REALTIME=") + wish));
}

TEST(FreshProcess, AWishIsNotGrantedWhereRealTimeIsSwitchedOff)
{
    std::string const output =
        play("upAndDown", "ZV_THREAD_FORCE_REALTIME=1 ZV_THREAD_NO_REALTIME=1");
    EXPECT_THAT(output, HasSubstr("Real-time not enabled."));
    EXPECT_THAT(output, HasSubstr("threadsInit.cpp("));
    EXPECT_THAT(output, HasSubstr("param 1 realtime 0 logger 1 threads 1 resmgt 1\n"));
}

TEST(FreshProcess, AWishIsReportedAsItWasMet)
{
    std::string const output = play("upAndDown", "ZV_THREAD_FORCE_REALTIME=1");
    bool const met = output.find("Real-time enabled.") != std::string::npos;
    EXPECT_THAT(output, HasSubstr(met ? "param 1 realtime 1 logger 1 threads 1 resmgt 1\n"
                                      : "param 1 realtime 0 logger 1 threads 1 resmgt 1\n"));
    EXPECT_THAT(output, HasSubstr(met ? "Real-time enabled." : "Real-time not enabled."));
    // The end leaves real-time operation.
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
    EXPECT_THAT(output, HasSubstr("libZVresmgt 0.2 pre-alpha, "));
    EXPECT_THAT(output, HasSubstr(" (P. 187)\n    built Feb 20 2006 by "));
    EXPECT_THAT(output, HasSubstr("\n    [Information not available]\n"));
    EXPECT_EQ(output.find("libZVresmgt"), output.rfind("libZVresmgt"));
}

} // namespace
} // namespace Zv

int zvChildMain(int argc, char **argv);

int zvChildMain(int argc, char **argv)
{
    for (Zv::Scene const &scene : Zv::scenes)
        if (argc > 0 && std::strcmp(argv[0], scene.name) == 0) {
            scene.play();
            return 0;
        }
    return 1;
}
