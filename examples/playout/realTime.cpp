#include "realTime.h"

#include "display.h"

#include <resmgt/threads.h>

#include <sys/resource.h>

#include <cstdlib>

using namespace Zv;

namespace {

constexpr rlim_t NEEDED = 31; // the highest priority that the library uses

} // namespace

void RealTime::request()
{
    MtThreadMgr::indicateAppIsRealTime(false); // if it is refused, the program plays without
}

std::vector<std::string> RealTime::getOutcome()
{
    if (MtThreadMgr::getInstance().isRealTime())
        return {
            "  real time: granted; devices and clock are scheduled before all ordinary threads"};
    if (char const * const value = std::getenv("ZV_THREAD_NO_REALTIME"))
        if (std::atoi(value) != 0)
            return {"  real time: not asked for, since ZV_THREAD_NO_REALTIME is set; unset it"};
    rlimit limit = {};
    getrlimit(RLIMIT_RTPRIO, &limit);
    std::string const found = limit.rlim_cur < NEEDED
                                  ? format("its limit RLIMIT_RTPRIO is %llu",
                                           static_cast<unsigned long long>(limit.rlim_cur))
                                  : "the system keeps it from others than the root";
    return {"  real time: refused; this process has no capability CAP_SYS_NICE, and " + found,
            "    to have it granted, do one of these:",
            format("      a line \"@audio - rtprio %d\" in /etc/security/limits.conf, and a new "
                   "login of a member",
                   static_cast<int>(NEEDED)),
            "      setcap cap_sys_nice+ep on the program, as root",
            "      --cap-add SYS_NICE, or --ulimit rtprio=31, where it runs in a container"};
}
