// Delay of a client of the synchronisation engine after its beat, compared with cyclictest, a
// thread that only sleeps. It has the same interval and the same priority, and does not tune the
// machine.
//
// Two threads wake up for a beat, the generator and the client. In cyclictest it is a single one.

#include "resmgt/syncEngine.h"
#include "resmgt/threads.h"
#include "zvbase/periodicTimer.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <memory>
#include <ostream>
#include <pthread.h>
#include <sched.h>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace Zv;

constexpr double INTERVAL = 0.01;
constexpr std::size_t NB_BEATS = 200;

/// Clock like that of the library, which also tells when its beats were due.
class Source : public SeSourceProtocol
{
public:
    void start() override { _timer->reset(); }
    void stop() override {}
    std::uint32_t waitSync() override { return static_cast<std::uint32_t>(_timer->wait()); }
    double getRate() override { return 1.0 / INTERVAL; }
    char const *getName() override { return "bench clock"; }
    std::ostream &dump(std::ostream &stream) override { return stream << getName(); }

    /// Returns the seconds since the beat of that number.
    double getLateness(std::uint32_t count) const
    {
        double const sinceLast = INTERVAL - _timer->getTimeToNextBeat();
        return sinceLast + INTERVAL * static_cast<double>(_timer->getCurrentCount() - count);
    }

private:
    ObjPtr<PeriodicTimer> _timer{PeriodicTimer::create(INTERVAL)};
};

class Client : public SeClientThread
{
public:
    Client(Source &source, std::binary_semaphore &end) : _source(source), _end(end)
    {
        latenesses.reserve(NB_BEATS);
    }

    std::vector<double> latenesses; // in microseconds
    int policy = 0;
    int priority = 0;

protected:
    void performStart() override
    {
        sched_param param{};
        ::pthread_getschedparam(::pthread_self(), &policy, &param);
        priority = param.sched_priority;
    }
    bool performSync(std::uint32_t count, int) override
    {
        double const lateness = _source.getLateness(count) * 1e6;
        if (++_nbRuns > NB_IGNORED)
            latenesses.push_back(lateness);
        if (latenesses.size() < NB_BEATS)
            return false;
        _end.release();
        return true;
    }

private:
    /// First calls that are not measured. The engine may make its first two calls without a new
    /// beat.
    static constexpr int NB_IGNORED = 4;

    Source &_source;
    std::binary_semaphore &_end;
    int _nbRuns = 0;
};

void report(benchmark::State &state, std::vector<double> latenesses)
{
    if (latenesses.empty()) {
        state.SkipWithError("nothing was measured");
        return;
    }
    std::sort(latenesses.begin(), latenesses.end());
    std::size_t const nb = latenesses.size();
    state.counters["median"] = latenesses[nb / 2];
    state.counters["p99"] = latenesses[nb * 99 / 100];
}

/// Real-time operation while the object exists. Throws if the system refuses it.
class RealTime
{
public:
    explicit RealTime(bool isWanted)
    {
        MtThreadMgr::getInstance().setRealTime(isWanted);
        if (MtThreadMgr::getInstance().isRealTime() != isWanted)
            throw std::runtime_error("the system grants no real-time operation");
    }
    ~RealTime() { MtThreadMgr::getInstance().setRealTime(false); }
    RealTime(RealTime const &) = delete;
    RealTime &operator=(RealTime const &) = delete;
};

struct Run
{
    std::vector<double> latenesses;
    int policy = 0;
    int priority = 0;
};

Run runClient()
{
    Source source;
    std::binary_semaphore end(0);
    ObjPtr<SeClientThread> owned(new Client(source, end));
    auto &client = static_cast<Client &>(*owned);
    SeSyncEngine::getInstance().addClient("bench client", owned, source, 1);
    end.acquire();
    ObjPtr<SeClientThread> const back(SeSyncEngine::getInstance().removeClient(&client));
    SeSyncEngine::getInstance().stop();
    return {std::move(client.latenesses), client.policy, client.priority};
}

void clients(benchmark::State &state, bool isRealTime)
{
    try {
        RealTime const realTime(isRealTime);
        Run run;
        for (auto _ : state)
            run = runClient();
        state.counters["priority"] = run.priority;
        report(state, std::move(run.latenesses));
    } catch (std::exception const &failure) {
        state.SkipWithError(failure.what());
    }
}

/// Returns the latenesses that cyclictest reports, in microseconds. Its lines have nanoseconds.
std::vector<double> runCyclictest(int policy, int priority)
{
    std::string command = "cyclictest --default-system -t1 -v -N -i " +
                          std::to_string(static_cast<int>(INTERVAL * 1e6)) + " -l " +
                          std::to_string(NB_BEATS);
    if (policy != SCHED_OTHER)
        command += " --policy=rr -p " + std::to_string(priority);
    std::vector<double> latenesses;
    std::unique_ptr<std::FILE, int (*)(std::FILE *)> const pipe(
        ::popen((command + " 2>/dev/null").c_str(), "r"), &::pclose);
    char line[256];
    while (pipe && std::fgets(line, sizeof line, pipe.get())) {
        long thread, number, lateness;
        if (std::sscanf(line, " %ld: %ld: %ld", &thread, &number, &lateness) == 3)
            latenesses.push_back(static_cast<double>(lateness) / 1e3);
    }
    return latenesses;
}

void cyclictest(benchmark::State &state, bool isRealTime)
{
    try {
        int policy = SCHED_OTHER;
        int priority = 0;
        if (isRealTime) {
            RealTime const realTime(true);
            Run const run = runClient();
            policy = run.policy;
            priority = run.priority;
        }
        std::vector<double> latenesses;
        for (auto _ : state)
            latenesses = runCyclictest(policy, priority);
        state.counters["priority"] = priority;
        report(state, std::move(latenesses));
    } catch (std::exception const &failure) {
        state.SkipWithError(failure.what());
    }
}

void once(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Iterations(1)->UseRealTime();
}

BENCHMARK_CAPTURE(clients, , true)->Name("beat in real time/client")->Apply(once);
BENCHMARK_CAPTURE(cyclictest, , true)->Name("beat in real time/cyclictest")->Apply(once);
BENCHMARK_CAPTURE(clients, , false)->Name("beat/client")->Apply(once);
BENCHMARK_CAPTURE(cyclictest, , false)->Name("beat/cyclictest")->Apply(once);

} // namespace
