#include "threadLevels.h"

#include "display.h"

#include <resmgt/threads.h>

#include <ctime>

using namespace Zv;

namespace {

/// Returns what the system asks for or has granted, such as "SCHED_RR 24".
std::string toText(MtScheduling const &scheduling)
{
    return format(scheduling.isRealTime ? "SCHED_RR %d" : "nice %d", scheduling.priority);
}

/// Returns the processor time of a thread of this process in seconds, -1 if it has ended.
double getProcessorTime(id_t thread)
{
    // The form of the clocks that `pthread_getcpuclockid` returns.
    constexpr unsigned OF_A_THREAD = 4;
    constexpr unsigned EXACT = 2;
    auto const clock = static_cast<clockid_t>(~thread << 3 | OF_A_THREAD | EXACT);
    timespec time = {};
    if (thread == 0 || ::clock_gettime(clock, &time) != 0)
        return -1;
    return static_cast<double>(time.tv_sec) + 1e-9 * static_cast<double>(time.tv_nsec);
}

} // namespace

std::vector<ThreadLevel> readThreadLevels()
{
    std::vector<ThreadLevel> levels;
    for (MtThreadStatus const &thread : MtThreadStatus::readAll()) {
        auto const number = static_cast<id_t>(thread.systemNumber);
        levels.push_back({thread.name.getChars(), thread.level, toText(thread.asked),
                          thread.isRunning() ? toText(thread.granted) : "", number,
                          getProcessorTime(number)});
    }
    return levels;
}
