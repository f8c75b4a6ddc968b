// Cost of a tree of devices from its configuration to its end, for each device.

#include "threads.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <memory>
#include <semaphore>
#include <string>
#include <vector>

namespace {

using namespace Zv;
using namespace ZvBench;

enum Phase
{
    OPEN,
    START,
    LOCK,
    STOP,
    CLOSE,
    NB_PHASES
};
constexpr char const *PHASES[NB_PHASES] = {"open", "start", "lock", "stop", "close"};
constexpr int MAX_DEVICES = 1000;

double processorSeconds()
{
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return double(time.tv_sec) + double(time.tv_nsec) * 1e-9;
}

/// Divides an iteration into phases and reports the microseconds of each phase for each device.
/// Also reports the processor time of all threads, which depends less on other users of the
/// machine.
class Phases
{
public:
    Phases(benchmark::State &state, int nbDevices) : _state(state), _nbDevices(nbDevices) {}

    void begin()
    {
        _processorBegin = processorSeconds();
        _last = std::chrono::steady_clock::now();
    }
    void end(Phase phase)
    {
        auto const now = std::chrono::steady_clock::now();
        _seconds[phase] += std::chrono::duration<double>(now - _last).count();
        _last = now;
    }
    void endIteration()
    {
        _processor += processorSeconds() - _processorBegin;
        double whole = 0;
        for (double const seconds : _seconds)
            whole += seconds;
        _state.SetIterationTime(whole - _reported);
        _reported = whole;
    }
    void report()
    {
        for (int phase = 0; phase < NB_PHASES; ++phase)
            count(PHASES[phase], _seconds[phase]);
        count("whole", _reported);
        count("processor", _processor);
    }

private:
    void count(char const *name, double seconds)
    {
        _state.counters[name] =
            benchmark::Counter(seconds * 1e6 / _nbDevices, benchmark::Counter::kAvgIterations);
    }

    benchmark::State &_state;
    int _nbDevices;
    std::chrono::steady_clock::time_point _last;
    double _seconds[NB_PHASES] = {};
    double _reported = 0;
    double _processorBegin = 0;
    double _processor = 0;
};

/// Counts the devices that have reached a step. The last one wakes the waiting thread.
class Step
{
public:
    void expect(int nbDevices) { _missing.store(nbDevices, std::memory_order_relaxed); }
    void arrive()
    {
        if (_missing.fetch_sub(1, std::memory_order_acq_rel) == 1)
            _all.release();
    }
    void wait() { _all.acquire(); }

private:
    std::atomic<int> _missing{0};
    std::binary_semaphore _all{0};
};

Step started;
Step locked;

/// Standard device without work in any step.
class Device : public DevMDStdAccessPrtcl, public DevMDStdSyncSeqPrtcl
{
public:
    Device(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo)
        : DevMDStdAccessPrtcl(name, fifo, makeObj<DevMDStdLoopThreadProtocol>(fifo),
                              makeAccessANOFactory(*this)),
          DevMDStdSyncSeqPrtcl(name, fifo, makeSyncSeqANOFactory(*this))
    {}

    void open() {}
    void close() {}
    void start(ObjPtr<DevANO>, ObjPtr<DevANO>) { started.arrive(); }
    void sync(DtTimeMark const &) { locked.arrive(); }
    void sync(DtTime const &) { locked.arrive(); }
    void recover() {}
    void stop() {}
    void abort() {}

    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }
};

std::string nameOf(int device)
{
    return "device" + std::to_string(device);
}

class Entry : public DevRegistryEntry
{
public:
    explicit Entry(int device)
        : DevRegistryEntry(nameOf(device).c_str(), "a device of the benchmarks")
    {}
    RCShdPtr<DevMDPrtcl> createPrtcl() override
    {
        return new Device(getName(), RCShdPtr<DevMDStdFifo>(new DevMDStdFifo));
    }
};

void registerDevices()
{
    DevRegistry &registry = DevRegistry::getInstance();
    for (int device = registry.getCount(); device < MAX_DEVICES; ++device)
        registry.add(makeObj<Entry>(device));
}

/// Appends a node and, in brackets, its children, at most ten.
void addNode(std::string &config, int device, int nbDevices)
{
    config += nameOf(device) + ' ';
    int const first = device * 10 + 1;
    if (first >= nbDevices)
        return;
    config += "( ";
    for (int child = first; child < std::min(first + 10, nbDevices); ++child)
        addNode(config, child, nbDevices);
    config += ") ";
}

std::string makeConfig(int nbDevices)
{
    registerDevices();
    std::string config("( ");
    addNode(config, 0, nbDevices);
    return config + ")";
}

/// Sequence without a supervisor.
class Plain
{
public:
    Plain(DevMgr &manager, std::string const &config) : _sequence(manager.createSyncSeqAcc())
    {
        _sequence->configure(config.c_str());
    }
    void start() { _sequence->start(); }
    void stop()
    {
        _sequence->stop();
        _sequence->wait();
    }

private:
    ObjPtr<DevMgrSyncSeqAcc> _sequence;
};

class Supervised
{
public:
    Supervised(DevMgr &manager, std::string const &config)
        : _sequence(manager.createSeqSupervisor(config.c_str()))
    {}
    void start() { _sequence->start(); }
    void stop() { _sequence->stop(60); }

private:
    ObjPtr<DevMgrSeqSupervisor> _sequence;
};

template <class Sequence>
void tree(benchmark::State &state)
{
    int const nbDevices = static_cast<int>(state.range(0));
    std::string const config = makeConfig(nbDevices);
    Phases phases(state, nbDevices);
    for (auto _ : state) {
        started.expect(nbDevices);
        locked.expect(nbDevices);
        phases.begin();
        ObjPtr<DevMgr> manager = DevMgr::create();
        auto sequence = std::make_unique<Sequence>(*manager, config);
        phases.end(OPEN);
        sequence->start();
        started.wait();
        phases.end(START);
        locked.wait();
        phases.end(LOCK);
        sequence->stop();
        phases.end(STOP);
        sequence = nullptr;
        manager = nullptr;
        phases.end(CLOSE);
        phases.endIteration();
    }
    phases.report();
}

/// Thread that gets one request for each phase, without a tree, names, priorities or a log.
class BareThread
{
public:
    explicit BareThread(Queue<int> &answers) : _answers(answers)
    {
        ::pthread_create(&_thread, nullptr, &BareThread::run, this);
    }
    ~BareThread() { ::pthread_join(_thread, nullptr); }
    BareThread(BareThread const &) = delete;
    BareThread &operator=(BareThread const &) = delete;

    void send(Phase phase) { _requests.put(phase); }

private:
    static void *run(void *argument)
    {
        auto &self = *static_cast<BareThread *>(argument);
        Phase phase = OPEN;
        while (phase != CLOSE) {
            phase = self._requests.take();
            self._answers.put(phase);
        }
        return nullptr;
    }

    Queue<int> &_answers;
    Queue<Phase> _requests;
    pthread_t _thread{};
};

void bareThreads(benchmark::State &state)
{
    int const nbThreads = static_cast<int>(state.range(0));
    Phases phases(state, nbThreads);
    for (auto _ : state) {
        Queue<int> answers;
        std::vector<std::unique_ptr<BareThread>> threads;
        phases.begin();
        for (int i = 0; i < nbThreads; ++i) {
            threads.push_back(std::make_unique<BareThread>(answers));
            threads.back()->send(OPEN);
            answers.take();
        }
        phases.end(OPEN);
        for (Phase const phase : {START, LOCK, STOP}) {
            for (auto const &thread : threads)
                thread->send(phase);
            for (int i = 0; i < nbThreads; ++i)
                answers.take();
            phases.end(phase);
        }
        while (!threads.empty()) {
            threads.back()->send(CLOSE);
            answers.take();
            threads.pop_back();
        }
        phases.end(CLOSE);
        phases.endIteration();
    }
    phases.report();
}

void sizes(benchmark::internal::Benchmark *benchmark)
{
    benchmark->UseManualTime()->Unit(benchmark::kMicrosecond)->Arg(10)->Arg(100)->Arg(1000);
}

BENCHMARK(tree<Plain>)->Name("tree/devices")->Apply(sizes);
BENCHMARK(tree<Supervised>)->Name("tree/supervised")->Apply(sizes);
BENCHMARK(bareThreads)->Name("tree/pthreads")->Apply(sizes);

} // namespace
