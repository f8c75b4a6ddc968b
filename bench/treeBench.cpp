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
constexpr int NB_CHILDREN = 10; // of a device, at most

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

/// Appends a node and, in brackets, its children.
void addNode(std::string &config, int device, int nbDevices)
{
    config += nameOf(device) + ' ';
    int const first = device * NB_CHILDREN + 1;
    if (first >= nbDevices)
        return;
    config += "( ";
    for (int child = first; child < std::min(first + NB_CHILDREN, nbDevices); ++child)
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

// The peer: the same threads and the same messages between them in the same order, written by hand
// with a queue for each device and one for the managing thread. It has no state machines, names,
// priorities or log, and no way to fail.

enum class Request
{
    OPEN,
    START,
    LOCK,
    STOP,
    CLOSE,
    END
};

/// Message to the managing thread: a device has executed a request.
struct Report
{
    int device;
    Request request;
};

/// Thread of a device, which executes the requests of its queue until it is told to end.
class BareDevice
{
public:
    BareDevice(int number, Queue<Report> &reports) : _number(number), _reports(reports)
    {
        ::pthread_create(&_thread, nullptr, &BareDevice::run, this);
        execute(Request::OPEN);
    }
    ~BareDevice()
    {
        execute(Request::CLOSE);
        send(Request::END);
        ::pthread_join(_thread, nullptr);
    }
    BareDevice(BareDevice const &) = delete;
    BareDevice &operator=(BareDevice const &) = delete;

    void send(Request request) { _requests.put(request); }

private:
    /// Waits until the thread has executed the request.
    void execute(Request request)
    {
        send(request);
        _executed.acquire();
    }

    static void *run(void *device)
    {
        static_cast<BareDevice *>(device)->serve();
        return nullptr;
    }
    void serve()
    {
        for (;;) {
            Request const request = _requests.take();
            switch (request) {
            case Request::OPEN:
            case Request::CLOSE:
                _executed.release();
                break;
            case Request::START:
                started.arrive();
                _reports.put({_number, request});
                break;
            case Request::LOCK:
                locked.arrive();
                _reports.put({_number, request});
                break;
            case Request::STOP:
                _reports.put({_number, request});
                break;
            case Request::END:
                return;
            }
        }
    }

    int _number;
    Queue<Report> &_reports;
    Queue<Request> _requests;
    std::binary_semaphore _executed{0};
    pthread_t _thread{};
};

/// Devices of the same tree, and the thread that gets their reports.
class BareTree
{
public:
    explicit BareTree(int nbDevices) : _nbRunningChildren(static_cast<std::size_t>(nbDevices))
    {
        ::pthread_create(&_thread, nullptr, &BareTree::run, this);
        for (int device = 0; device < nbDevices; ++device)
            _devices.push_back(std::make_unique<BareDevice>(device, _reports));
        for (int device = 0; device < nbDevices; ++device)
            _nbRunningChildren[device] = endOfChildren(device) - firstChild(device);
    }
    ~BareTree()
    {
        while (!_devices.empty())
            _devices.pop_back();
        _reports.put({0, Request::END});
        ::pthread_join(_thread, nullptr);
    }
    BareTree(BareTree const &) = delete;
    BareTree &operator=(BareTree const &) = delete;

    /// Starts all devices. When all have started, they lock, parents first.
    void start()
    {
        for (auto const &device : _devices)
            device->send(Request::START);
    }
    /// Stops all devices, children first, and waits until they have stopped.
    void stop()
    {
        int const nbDevices = static_cast<int>(_devices.size());
        for (int device = 0; device < nbDevices; ++device)
            if (firstChild(device) == endOfChildren(device))
                _devices[device]->send(Request::STOP);
        _hasStopped.acquire();
    }

private:
    static int parent(int device) { return (device - 1) / NB_CHILDREN; }
    int firstChild(int device) const
    {
        return std::min(device * NB_CHILDREN + 1, static_cast<int>(_devices.size()));
    }
    int endOfChildren(int device) const
    {
        return std::min((device + 1) * NB_CHILDREN + 1, static_cast<int>(_devices.size()));
    }

    static void *run(void *tree)
    {
        static_cast<BareTree *>(tree)->manage();
        return nullptr;
    }
    void manage()
    {
        std::size_t nbStarted = 0;
        for (;;) {
            auto const [device, request] = _reports.take();
            if (request == Request::END)
                return;
            if (request == Request::START && ++nbStarted == _devices.size())
                _devices[0]->send(Request::LOCK);
            if (request == Request::LOCK)
                for (int child = firstChild(device); child < endOfChildren(device); ++child)
                    _devices[child]->send(Request::LOCK);
            if (request == Request::STOP)
                deviceStopped(device);
        }
    }
    void deviceStopped(int device)
    {
        if (device == 0)
            _hasStopped.release();
        else if (--_nbRunningChildren[parent(device)] == 0)
            _devices[parent(device)]->send(Request::STOP);
    }

    Queue<Report> _reports;
    std::vector<int> _nbRunningChildren;
    std::binary_semaphore _hasStopped{0};
    std::vector<std::unique_ptr<BareDevice>> _devices;
    pthread_t _thread{};
};

void bareThreads(benchmark::State &state)
{
    int const nbDevices = static_cast<int>(state.range(0));
    Phases phases(state, nbDevices);
    for (auto _ : state) {
        started.expect(nbDevices);
        locked.expect(nbDevices);
        phases.begin();
        auto tree = std::make_unique<BareTree>(nbDevices);
        phases.end(OPEN);
        tree->start();
        started.wait();
        phases.end(START);
        locked.wait();
        phases.end(LOCK);
        tree->stop();
        phases.end(STOP);
        tree = nullptr;
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
