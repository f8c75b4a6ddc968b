#include "threadLevels.h"

#include "display.h"

#include <resmgt/threads.h>

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>

using namespace Zv;

namespace {

constexpr std::size_t SYSTEM_NAME = 15; // bytes of a name that the system keeps
constexpr std::size_t NUMBER_WIDTH = 8; // of a thread's number in a dump

// What the levels ask for on Linux, see `MtThreadFactory::getMinPriority`.
constexpr int REAL_TIME[] = {16, 22, 23, 24, 25, 26, 31};
constexpr int NICE[] = {14, 4, 2, 0, -2, -4, -14};

std::string toText(int policy, int priority, int nice)
{
    char const * const name = policy == SCHED_RR ? "SCHED_RR" : "SCHED_FIFO";
    return policy == SCHED_RR || policy == SCHED_FIFO ? format("%s %d", name, priority)
                                                      : format("nice %d", nice);
}

std::string getAsked(int level)
{
    auto const place =
        static_cast<std::size_t>(std::clamp(level, 0, static_cast<int>(std::size(NICE)) - 1));
    return MtThreadMgr::getInstance().isRealTime() ? toText(SCHED_RR, REAL_TIME[place], 0)
                                                   : toText(SCHED_OTHER, 0, NICE[place]);
}

/// Returns the numbers of this process's threads by their names, in the order of their creation.
/// Returns less if the system does not tell.
std::map<std::string, std::vector<id_t>> findSystemThreads()
{
    std::vector<id_t> numbers;
    std::error_code failure;
    std::filesystem::directory_iterator entry("/proc/self/task", failure);
    for (; !failure && entry != std::filesystem::directory_iterator(); entry.increment(failure))
        numbers.push_back(static_cast<id_t>(std::atoi(entry->path().filename().c_str())));
    std::sort(numbers.begin(), numbers.end());
    std::map<std::string, std::vector<id_t>> threads;
    for (id_t const number : numbers) {
        std::ifstream file("/proc/self/task/" + std::to_string(number) + "/comm");
        if (std::string name; std::getline(file, name))
            threads[name].push_back(number);
    }
    return threads;
}

std::string getLevel(id_t thread)
{
    auto const number = static_cast<pid_t>(thread);
    sched_param parameters = {};
    ::sched_getparam(number, &parameters);
    return toText(::sched_getscheduler(number), parameters.sched_priority,
                  ::getpriority(PRIO_PROCESS, thread));
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
    // The dump is safe while threads end.
    std::stringstream dump;
    MtThreadMgr::getInstance().dump(dump);
    auto systemThreads = findSystemThreads();
    std::vector<ThreadLevel> levels;
    for (std::string line; std::getline(dump, line);) {
        auto const end = line.find(" NTprio ");
        auto const prio = line.rfind(" prio ", end);
        if (end == line.npos || prio == line.npos)
            continue; // not the line of a thread
        std::string name = line.substr(NUMBER_WIDTH, prio - NUMBER_WIDTH);
        name.erase(0, name.find_first_not_of(' '));
        int const level = std::atoi(line.c_str() + prio + 6);
        id_t number = 0;
        if (levels.empty()) { // the main thread, to which the system gives the program's name
            number = static_cast<id_t>(::getpid());
        } else if (auto &numbers = systemThreads[name.substr(0, SYSTEM_NAME)]; !numbers.empty()) {
            number = numbers.front();
            numbers.erase(numbers.begin());
        }
        levels.push_back({name, level, getAsked(level), number > 0 ? getLevel(number) : "", number,
                          getProcessorTime(number)});
    }
    return levels;
}
