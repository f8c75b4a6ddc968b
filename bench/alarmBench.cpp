// Cost of registering and cancelling an alarm while others are outstanding.
//
// The outstanding alarms are spread evenly over a long time, and the measured alarm is at any place
// among them. The first peer is used on one thread, and with the time that its loop read last. The
// second peer has a lock and reads the clock, as an alarm manager must.

#include "resmgt/threadExtensions.h"

#include <benchmark/benchmark.h>

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <random>
#include <type_traits>
#include <uv.h>
#include <vector>

namespace {

using namespace Zv;

constexpr int EARLIEST = 100'000; // seconds
constexpr int SPREAD = 1'000'000;

/// Future times, the same ones for all subjects.
class Times
{
public:
    int next() { return EARLIEST + static_cast<int>(_random() % SPREAD); }

private:
    std::minstd_rand _random{1};
};

/// Several handles are used in turn, so that a handle was not used immediately before.
constexpr std::size_t NB_IN_TURN = 64;

struct Nothing : MtAlarmHandle::Callback
{
    void performAlarm(RCShdPtr<MtAlarmHandle>, bool) override {}
};

Nothing nothing;

RCShdPtr<MtAlarmHandle> makeAlarm(int seconds)
{
    RCShdPtr<MtAlarmHandle> alarm(MtAlarmManager::getInstance().createHandle());
    alarm->setCallback(&nothing);
    alarm->setDuration(seconds);
    return alarm;
}

void alarms(benchmark::State &state)
{
    MtAlarmManager &manager = MtAlarmManager::getInstance();
    Times times;
    std::vector<RCShdPtr<MtAlarmHandle>> outstanding;
    for (std::int64_t i = 0; i < state.range(0); ++i) {
        outstanding.push_back(makeAlarm(times.next()));
        manager.registerAlarm(outstanding.back());
    }
    std::vector<RCShdPtr<MtAlarmHandle>> inTurn;
    for (std::size_t i = 0; i < NB_IN_TURN; ++i)
        inTurn.push_back(makeAlarm(1));
    std::size_t turn = 0;
    for (auto _ : state) {
        RCShdPtr<MtAlarmHandle> const &alarm = inTurn[turn++ % NB_IN_TURN];
        alarm->setDuration(times.next());
        manager.registerAlarm(alarm);
        manager.deregisterAlarm(alarm);
    }
    for (RCShdPtr<MtAlarmHandle> const &alarm : outstanding)
        manager.deregisterAlarm(alarm);
}

struct NoLock
{
    void lock() {}
    void unlock() {}
};

template <class Lock>
void uvTimers(benchmark::State &state)
{
    uv_loop_t loop;
    uv_loop_init(&loop);
    auto const start = [](uv_timer_t &timer, int seconds) {
        std::uint64_t const milliseconds = std::uint64_t{1000} * static_cast<unsigned>(seconds);
        uv_timer_start(
            &timer, [](uv_timer_t *) {}, milliseconds, 0);
    };
    Times times;
    std::vector<uv_timer_t> outstanding(static_cast<std::size_t>(state.range(0)));
    for (uv_timer_t &timer : outstanding) {
        uv_timer_init(&loop, &timer);
        start(timer, times.next());
    }
    std::vector<uv_timer_t> inTurn(NB_IN_TURN);
    for (uv_timer_t &timer : inTurn)
        uv_timer_init(&loop, &timer);
    std::size_t turn = 0;
    Lock mutex;
    for (auto _ : state) {
        uv_timer_t &timer = inTurn[turn++ % NB_IN_TURN];
        {
            std::lock_guard const guard(mutex);
            if constexpr (!std::is_same_v<Lock, NoLock>)
                uv_update_time(&loop);
            start(timer, times.next());
        }
        std::lock_guard const guard(mutex);
        uv_timer_stop(&timer);
    }
    for (std::vector<uv_timer_t> *timers : {&outstanding, &inTurn})
        for (uv_timer_t &timer : *timers)
            uv_close(reinterpret_cast<uv_handle_t *>(&timer), nullptr);
    uv_run(&loop, UV_RUN_DEFAULT);
    uv_loop_close(&loop);
}

void sizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->Arg(10)->Arg(1000)->Arg(100'000);
}

BENCHMARK(alarms)->Name("alarm/MtAlarmManager")->Apply(sizes);
BENCHMARK(uvTimers<NoLock>)->Name("alarm/libuv")->Apply(sizes);
BENCHMARK(uvTimers<std::mutex>)->Name("alarm/libuv, lock and clock")->Apply(sizes);

} // namespace
