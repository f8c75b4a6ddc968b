// Cost of a line of the trace for the thread that writes it. Both subjects write the same text to
// /dev/null.
//
// An event of a `TraceSession` is compared with a line, and with an empty loop if no session runs.
//
// In a burst, as many lines as fit into the queues of both follow one another. Between two bursts
// the readers empty the queues. At a steady pace a line is written every tenth of a millisecond,
// when the reader sleeps again.

#include "resmgt/threads.h"
#include "zvbase/failures.h"
#include "zvbase/lgLog.h"
#include "zvbase/lgTrace.h"
#include "zvbase/trace.h"
#include "zvbase/traceEvents.h"
#include "zvbase/traceSession.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <cstddef>
#include <memory>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/spdlog.h>
#include <thread>
#include <vector>

namespace {

using namespace Zv;
using Clock = std::chrono::steady_clock;

constexpr int LINES_IN_A_BURST = 200;
constexpr int NB_BURSTS = 100;
constexpr int NB_STEADY_LINES = 5000;
constexpr char NOWHERE[] = "/dev/null";

/// The trace of a program with threads.
class OurTrace
{
public:
    OurTrace() : _level(*Trace::registerLevel("Bench", __FILE__))
    {
        // Also has the library of threads, with its logger, linked to the process.
        MtThreadMgr::getInstance();
        ZV_ASSERT(LgLog::isLoggerActive());
        _level.setEnabled(true);
        LgTrace::openFile(NOWHERE);
    }
    ~OurTrace() { LgTrace::closeFile(); }
    void write(int number)
    {
        ZV_TRACE(_level, "block " << number << " of "
                                  << "recorder");
    }
    void empty() { LgLog::flush(); }

private:
    TraceLevel &_level;
};

/// The events of a session: a slice for each number.
class OurEvents
{
public:
    OurEvents() : _session(NOWHERE, {}) {}
    void write(int number)
    {
        TraceEvents::Slice slice("bench", "block", "recorder");
        slice.setValue("number", number);
    }
    /// Gives the session time before its memory is full.
    void empty()
    {
        constexpr int BURSTS_THAT_FIT = TraceSession::CAPACITY / LINES_IN_A_BURST - 1;
        if (++_nbBursts % BURSTS_THAT_FIT == 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        ZV_ASSERT(_session.getNbLost() == 0);
    }

private:
    TraceSession _session;
    int _nbBursts = 0;
};

/// spdlog, with a queue that never blocks the writer, like the trace.
class Spdlog
{
public:
    Spdlog()
        : _pool(std::make_shared<spdlog::details::thread_pool>(8192, 1)),
          _sink(std::make_shared<spdlog::sinks::basic_file_sink_mt>(NOWHERE)),
          _logger(std::make_shared<spdlog::async_logger>(
              "bench", _sink, _pool, spdlog::async_overflow_policy::overrun_oldest))
    {}
    void write(int number) { SPDLOG_LOGGER_INFO(_logger, "block {} of {}", number, "recorder"); }
    void empty()
    {
        while (_pool->queue_size() != 0)
            std::this_thread::yield();
    }

private:
    std::shared_ptr<spdlog::details::thread_pool> _pool;
    std::shared_ptr<spdlog::sinks::basic_file_sink_mt> _sink;
    std::shared_ptr<spdlog::async_logger> _logger;
};

/// Returns the cost of the measurement itself, in nanoseconds.
double getCostOfTheClock()
{
    std::vector<double> costs;
    for (int i = 0; i < 1000; ++i) {
        Clock::time_point const start = Clock::now();
        costs.push_back(std::chrono::duration<double, std::nano>(Clock::now() - start).count());
    }
    std::nth_element(costs.begin(), costs.begin() + 500, costs.end());
    return costs[500];
}

class Costs
{
public:
    explicit Costs(std::size_t nb) { _nanoseconds.reserve(nb); }

    template <class Logger>
    void take(Logger &logger, int number)
    {
        Clock::time_point const start = Clock::now();
        logger.write(number);
        Clock::time_point const end = Clock::now();
        _nanoseconds.push_back(std::chrono::duration<double, std::nano>(end - start).count() -
                               _clock);
    }
    void report(benchmark::State &state)
    {
        std::sort(_nanoseconds.begin(), _nanoseconds.end());
        state.counters["median"] = at(0.5) / 1000;
        state.counters["p999"] = at(0.999) / 1000;
    }

private:
    double at(double part) const
    {
        return _nanoseconds[static_cast<std::size_t>(part *
                                                     static_cast<double>(_nanoseconds.size()))];
    }

    double _clock = getCostOfTheClock();
    std::vector<double> _nanoseconds;
};

template <class Logger>
void burst(benchmark::State &state)
{
    Logger logger;
    logger.write(0); // creates what the thread needs
    Costs costs(NB_BURSTS * LINES_IN_A_BURST);
    for (auto _ : state) {
        for (int i = 0; i < NB_BURSTS; ++i) {
            logger.empty();
            for (int line = 0; line < LINES_IN_A_BURST; ++line)
                costs.take(logger, line);
        }
    }
    logger.empty();
    costs.report(state);
}

template <class Logger>
void steady(benchmark::State &state)
{
    Logger logger;
    logger.write(0);
    Costs costs(NB_STEADY_LINES);
    for (auto _ : state) {
        for (int line = 0; line < NB_STEADY_LINES; ++line) {
            std::this_thread::sleep_for(std::chrono::microseconds(100));
            costs.take(logger, line);
        }
    }
    logger.empty();
    costs.report(state);
}

void emptyLoop(benchmark::State &state)
{
    for (auto _ : state)
        benchmark::ClobberMemory();
}

void eventThatIsOff(benchmark::State &state)
{
    for (auto _ : state) {
        TraceEvents::Slice const slice("bench", "block");
        benchmark::ClobberMemory();
    }
}

BENCHMARK(emptyLoop)->Name("trace event/empty loop");
BENCHMARK(eventThatIsOff)->Name("trace event/off");
BENCHMARK(burst<OurEvents>)->Name("trace burst/event")->Iterations(1)->UseRealTime();
BENCHMARK(steady<OurEvents>)->Name("trace steady/event")->Iterations(1)->UseRealTime();
BENCHMARK(burst<OurTrace>)->Name("trace burst/ours")->Iterations(1)->UseRealTime();
BENCHMARK(burst<Spdlog>)->Name("trace burst/spdlog")->Iterations(1)->UseRealTime();
BENCHMARK(steady<OurTrace>)->Name("trace steady/ours")->Iterations(1)->UseRealTime();
BENCHMARK(steady<Spdlog>)->Name("trace steady/spdlog")->Iterations(1)->UseRealTime();

} // namespace
