// Compares the state machine with its model, on long random sequences of events from several
// threads.
//
// At each step one thread does one thing: it delivers an event, or the call of the protocol that it
// is in delivers one, returns or throws. Then all threads come to rest, and the buffer must be in
// the state of the model. The machine may wake waiting threads in any order, so the model allows
// every order. No thread may be forgotten.

#include "scene.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <random>
#include <semaphore>
#include <thread>

namespace ZvTest {
namespace {
using Model::Status;

constexpr int WORKERS = 4;

class Worker
{
public:
    enum Command
    {
        EVENT,
        RETURN,
        THROW,
        QUIT
    };

    /// Releases `moved` when it comes to rest, except if it begins to wait in the buffer.
    Worker(Scene &scene, std::counting_semaphore<> &moved)
        : _scene(scene), _moved(moved), _thread([this] { run(); })
    {
        _ready.acquire();
    }
    ~Worker()
    {
        send(QUIT);
        _thread.join();
    }

    void send(Command command, int event = 0)
    {
        _command = command;
        _event = event;
        outcome.clear();
        status = Status::RUNNABLE;
        _commands.release();
    }
    /// A call of the protocol, on this worker's thread.
    void callOfProtocol()
    {
        for (;;) {
            rest(Status::IN_PROTOCOL);
            _commands.acquire();
            if (_command == RETURN)
                return;
            if (_command == THROW)
                throw Failure("asked for");
            deliver();
        }
    }

    static Worker *&current()
    {
        static thread_local Worker *worker = nullptr;
        return worker;
    }

    std::atomic<Status> status{Status::IDLE};
    std::string outcome;
    LkThreadId id;

private:
    void run()
    {
        current() = this;
        id.setCurrentThread();
        _ready.release();
        for (;;) {
            _commands.acquire();
            if (_command == QUIT)
                return;
            deliver();
            rest(Status::IDLE);
        }
    }
    void rest(Status newStatus)
    {
        status = newStatus;
        _moved.release();
    }
    void deliver()
    {
        std::string const what = _scene.deliver(_event);
        outcome = what.substr(0, what.rfind("illegal", 0) == 0 ? what.size() : what.find(' '));
    }

    Scene &_scene;
    std::counting_semaphore<> &_moved;
    std::binary_semaphore _ready{0};
    std::counting_semaphore<> _commands{0};
    Command _command = EVENT;
    int _event = 0;
    std::thread _thread;
};

class Walk
{
public:
    Walk(unsigned seed, bool isTracing) : _random(seed), _scene(isTracing, "Freed")
    {
        LkGuard<LkMutex const> const guard(_scene.probe.mutex());
        _scene.manager->deallocateRegion(&_scene.probe.imp);
        _scene.control->log.take();
        _scene.control->hook = [](std::string const &) { Worker::current()->callOfProtocol(); };
        for (int i = 0; i < WORKERS; ++i)
            _workers.push_back(std::make_unique<Worker>(_scene, _moved));
        _configs.resize(1);
        _configs.front().threads.resize(WORKERS);
    }
    ~Walk()
    {
        // A thread that returns may wake another one, which then calls the protocol.
        auto const isInProtocol = [](auto const &worker) {
            return worker->status == Status::IN_PROTOCOL;
        };
        for (auto worker = _workers.begin();
             (worker = std::find_if(_workers.begin(), _workers.end(), isInProtocol)) !=
             _workers.end();) {
            (*worker)->send(Worker::RETURN);
            rest();
        }
        {
            LkGuard<LkMutex const> const guard(_scene.probe.mutex());
            _scene.probe.setState(stateOf(false, "Destroyed"));
            _scene.probe.announceChange();
        }
        auto const isIdle = [](auto const &worker) { return worker->status == Status::IDLE; };
        while (!std::all_of(_workers.begin(), _workers.end(), isIdle))
            _moved.acquire();
        _workers.clear();
    }

    /// Returns false if there is nothing left to do.
    bool step()
    {
        for (int tries = 0; tries < 50 && !testing::Test::HasFailure(); ++tries) {
            int const worker = pick(WORKERS);
            Status const status = _configs.front().threads[worker].status;
            if (status == Status::IDLE && tryEvent(worker, Worker::EVENT))
                return true;
            if (status != Status::IN_PROTOCOL)
                continue;
            int const what = pick(10);
            if (tryEvent(worker, what < 4   ? Worker::EVENT
                                 : what < 9 ? Worker::RETURN
                                            : Worker::THROW))
                return true;
        }
        return false;
    }

private:
    int pick(int choices) { return static_cast<int>(_random() % static_cast<unsigned>(choices)); }
    int pickEvent()
    {
        // Otherwise some of these events would end the walk too soon, or never happen.
        static constexpr int events[] = {0, 0, 0, 1, 1, 2, 3, 3,  4,  4,  5,
                                         6, 6, 6, 7, 7, 8, 8, 10, 10, 11, 11};
        return pick(60) == 0 ? 9 : events[pick(std::size(events))];
    }

    bool tryEvent(int worker, Worker::Command command)
    {
        int const event = pickEvent();
        std::map<std::string, Model::Config> results;
        for (Model::Config next : _configs) {
            next.log.clear();
            next.trace.clear();
            Model::Interpreter interpreter(next);
            if (command == Worker::EVENT)
                interpreter.begin(worker, event);
            else if (command == Worker::RETURN)
                interpreter.returnFromProtocol(worker);
            else
                interpreter.throwFromProtocol(worker);
            Model::settle(next, results);
        }
        // At least one thread must be left that can wake the others.
        for (auto const &result : results)
            if (std::all_of(result.second.threads.begin(), result.second.threads.end(),
                            [](auto const &thread) { return thread.status == Status::WAITING; }))
                return false;

        _history += std::to_string(worker) + ' ' +
                    (command == Worker::EVENT    ? Model::eventNames[event]
                     : command == Worker::RETURN ? "returns"
                                                 : "throws") +
                    '\n';
        _workers[worker]->send(command, event);
        std::string const real = rest();
        std::string allowed;
        _configs.clear();
        for (auto const &result : results) {
            if (result.second.toString() == real)
                _configs.push_back(result.second);
            allowed += result.second.toString() + '\n';
        }
        if (_configs.empty())
            ADD_FAILURE() << "after\n"
                          << _history << "the buffer is\n"
                          << real << "\nand not\n"
                          << allowed;
        return !_configs.empty();
    }

    /// Waits until every thread is idle, waits, or is in a call of the protocol. Returns the
    /// observable state.
    ///
    /// A thread that begins to wait in the buffer cannot report it. This thread sleeps between its
    /// looks, so that it does not take the processor from the threads that it waits for.
    std::string rest()
    {
        for (;; static_cast<void>(_moved.try_acquire_for(std::chrono::microseconds(100)))) {
            LkGuard<LkMutex const> const guard(_scene.probe.mutex());
            int resting = _scene.probe.waiters();
            for (auto const &worker : _workers)
                resting += worker->status != Status::RUNNABLE;
            if (resting == WORKERS)
                return describe();
        }
    }
    std::string describe()
    {
        Model::Config real;
        real.state = _scene.probe.stateName();
        real.lockCount = _scene.probe.lockCount();
        real.pending = _scene.probe.pending();
        real.hasRegion = _scene.probe.imp.getRegionStart() != 0;
        real.log = _scene.control->log.take();
        for (int i = 0; i < WORKERS; ++i) {
            Worker const &worker = *_workers[i];
            if (_scene.probe.owner() == worker.id)
                real.owner = i;
            Status const status = worker.status;
            bool const waits = status == Status::RUNNABLE;
            real.threads.push_back(
                {waits ? Status::WAITING : status, waits ? std::string() : worker.outcome, {}});
        }
        return real.toString();
    }

    std::mt19937 _random;
    std::counting_semaphore<> _moved{0};
    Scene _scene;
    std::vector<std::unique_ptr<Worker>> _workers;
    /// All configurations that the buffer and its threads may have, as far as they can be observed.
    std::vector<Model::Config> _configs;
    std::string _history;
};

void walk(unsigned seed, bool isTracing, int steps)
{
    SCOPED_TRACE("seed " + std::to_string(seed));
    Walk walk(seed, isTracing);
    while (steps-- > 0 && walk.step()) {
    }
}

/// Several walks run at a time. In each of them the threads wait for one another at each step. On a
/// loaded machine one walk alone would wait for a processor most of the time.
void walkAll(unsigned nbSeeds, bool isTracing)
{
    std::atomic<unsigned> lastSeed{0};
    std::vector<std::thread> threads;
    for (int i = 0; i < 8; ++i)
        threads.emplace_back([&] {
            for (unsigned seed; (seed = ++lastSeed) <= nbSeeds && !testing::Test::HasFailure();)
                walk(seed, isTracing, 150);
        });
    for (std::thread &thread : threads)
        thread.join();
}

TEST(MbModel, RandomWalksOfFourThreadsAreThoseOfTheModel)
{
    walkAll(150, false);
}

TEST(MbModel, TracingMachineWalksTheSameWay)
{
    walkAll(30, true);
}

} // namespace
} // namespace ZvTest
