// Devices that misbehave at a chosen step, and a manager with such devices.
#pragma once

#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "testing/failures.h"
#include "testing/journal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace ZvTest {

using namespace Zv;
using End = DevSeqDeviceStatus::End;
using Phase = DevSeqStatus::Phase;

/// Limit for events that must occur, in seconds.
constexpr double LONG = 60;

/// Behaviour of a device in a call.
enum class Manner
{
    PROMPT,       // answers within the call
    SLOW,         // waits in the call until the test calls `goOn`
    LATER,        // answers on another thread
    TWICE,        // answers twice within the call, or answers its last step again
    SILENT,       // keeps the completion
    DROPS,        // destroys the completion
    THROWS,       // an ExBase
    THROWS_OTHER, // a standard exception
    THROWS_INT,
    HANGS,         // waits in the call until the stage ends
    RECOVERS,      // reports a recovery, then answers
    ABORTS,        // reports an abort, then answers
    ABORTS_SILENT, // reports an abort and does not answer
    NB_MANNERS
};

/// State that the devices share. The devices may outlive the test.
class World
{
public:
    void add(std::string const &line)
    {
        std::lock_guard const guard(_mutex);
        _journal.push_back(line);
        _changed.notify_all();
    }
    Lines getJournal()
    {
        std::lock_guard const guard(_mutex);
        return _journal;
    }
    long count(std::string const &line)
    {
        std::lock_guard const guard(_mutex);
        return std::count(_journal.begin(), _journal.end(), line);
    }
    void waitFor(std::string const &line)
    {
        std::unique_lock guard(_mutex);
        _changed.wait(guard, [&] {
            return std::find(_journal.begin(), _journal.end(), line) != _journal.end();
        });
    }

    /// Called first in each call of a device. Returns the behaviour for the call.
    Manner ask(std::string const &step, std::string const &device,
               std::map<std::string, Manner> const &manners)
    {
        add(step + " " + device);
        auto const found = manners.find(step);
        Manner const manner = found == manners.end() ? Manner::PROMPT : found->second;
        switch (manner) {
        case Manner::THROWS:
            throw DevMgrEx::StreamNotAvailable(__FILE__, __LINE__, "No signal.");
        case Manner::THROWS_OTHER:
            throw std::runtime_error("No power.");
        case Manner::THROWS_INT:
            throw 42;
        case Manner::HANGS:
            hang();
            break;
        case Manner::SLOW:
            delay();
            break;
        default:
            break;
        }
        return manner;
    }

    void delay()
    {
        std::unique_lock guard(_mutex);
        _changed.wait(guard, [this] { return _mayGoOn; });
    }
    /// Lets the slow devices continue.
    void goOn()
    {
        std::lock_guard const guard(_mutex);
        _mayGoOn = true;
        _changed.notify_all();
    }

    void hang()
    {
        std::unique_lock guard(_mutex);
        ++_nbHanging;
        _changed.notify_all();
        _changed.wait(guard, [this] { return _isOver; });
        --_nbHanging;
        _changed.notify_all();
    }
    void waitHanging()
    {
        std::unique_lock guard(_mutex);
        _changed.wait(guard, [this] { return _nbHanging > 0; });
    }
    void end()
    {
        std::unique_lock guard(_mutex);
        _isOver = true;
        _changed.notify_all();
        _changed.wait(guard, [this] { return _nbHanging == 0; });
    }

private:
    std::mutex _mutex;
    std::condition_variable _changed;
    Lines _journal;
    int _nbHanging = 0;
    bool _mayGoOn = false;
    bool _isOver = false;
};

/// Returns true if the device must keep its last completion, to run it a second time.
inline bool answersAgain(std::map<std::string, Manner> const &manners)
{
    return std::any_of(manners.begin(), manners.end(),
                       [](auto const &manner) { return manner.second == Manner::TWICE; });
}

class Hostile : public DevMDAccessPrtcl, public DevMDSyncSeqPrtcl
{
public:
    Hostile(std::string name, std::shared_ptr<World> world) : _name(std::move(name)), _world(world)
    {}

    /// For the calls "open", "start", "getLatency", "sync", "getMark", "recover", "stop", "abort"
    /// and "close". Must not be changed during a call of the device.
    std::map<std::string, Manner> manners;
    DtTime latency;

    void performOpen() override { ask("open"); }
    void performClose() override
    {
        for (std::thread &thread : _threads)
            thread.join();
        _threads.clear();
        reply("close");
    }
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO> recover, ObjPtr<DevANO> abort) override
    {
        _recover = recover;
        _abort = abort;
        act("start", aco);
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { act("sync", aco); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { act("sync", aco); }
    void performRecover(ObjPtr<DevACO> aco) override { act("recover", aco); }
    void performStop(ObjPtr<DevACO> aco) override { act("stop", aco); }
    void performAbort(ObjPtr<DevACO> aco) override { act("abort", aco); }
    DtTime getLatency() override
    {
        reply("getLatency");
        return latency;
    }
    DtTimeMark getMark() override
    {
        reply("getMark");
        return DtTimeMark();
    }

    // Called on any thread, also after the end of the sequence.
    void reportRecover() { _recover->performExecute(); }
    void reportAbort() { _abort->performExecute(); }
    /// Waits until a silent device has kept the completion of the n-th call of the step, and runs
    /// it.
    void answer(std::string const &step, std::size_t n = 1)
    {
        std::unique_lock guard(_mutex);
        _isKept.wait(guard, [&] { return _kept[step].size() >= n; });
        std::shared_ptr<DevACO> const aco = _kept[step][n - 1];
        guard.unlock();
        aco->performExecute();
    }

private:
    Manner ask(std::string const &step) { return _world->ask(step, _name, manners); }

    /// Behaves in a call that has no completion.
    void reply(std::string const &call)
    {
        Manner const manner = ask(call);
        if (manner == Manner::TWICE)
            _last->performExecute();
        else if (manner == Manner::RECOVERS && !std::exchange(_hasReported, true))
            reportRecover();
        else if (manner == Manner::ABORTS && !std::exchange(_hasReported, true))
            reportAbort();
    }

    void act(std::string const &step, ObjPtr<DevACO> &aco)
    {
        switch (ask(step)) {
        case Manner::LATER:
            _threads.emplace_back(
                [aco = std::shared_ptr<DevACO>(aco.release())] { aco->performExecute(); });
            return;
        case Manner::TWICE:
            aco->performExecute();
            return aco->performExecute();
        case Manner::DROPS:
            aco = nullptr;
            return;
        case Manner::SILENT:
            return keep(step, aco);
        case Manner::RECOVERS:
            reportRecover();
            return aco->performExecute();
        case Manner::ABORTS:
            reportAbort();
            return aco->performExecute();
        case Manner::ABORTS_SILENT:
            reportAbort();
            return keep(step, aco);
        default:
            if (!answersAgain(manners))
                return aco->performExecute();
            _last.reset(aco.release());
            return _last->performExecute();
        }
    }

    void keep(std::string const &step, ObjPtr<DevACO> &aco)
    {
        std::lock_guard const guard(_mutex);
        _kept[step].emplace_back(aco.release());
        _isKept.notify_all();
    }

    std::string const _name;
    std::shared_ptr<World> _world;
    std::mutex _mutex;
    ObjPtr<DevANO> _recover;
    ObjPtr<DevANO> _abort;
    std::condition_variable _isKept;
    std::map<std::string, std::vector<std::shared_ptr<DevACO>>> _kept; // by step
    std::shared_ptr<DevACO> _last; // of the last step, if it is to be answered again
    bool _hasReported = false;     // beside a call that is no step
    std::vector<std::thread> _threads;
};

/// Hostile standard device. It opens, makes its steps and closes on its own thread, and misbehaves
/// there.
class HostileStandard : public DevMDStdDevice
{
public:
    HostileStandard(std::string const &name, std::shared_ptr<World> world)
        : DevMDStdDevice(name.c_str()), _name(name), _world(std::move(world))
    {}

    std::map<std::string, Manner> manners;

    DtTime getLatency() override
    {
        reply("getLatency");
        return DtTime();
    }
    DtTimeMark getMark() override
    {
        reply("getMark");
        return DtTimeMark();
    }
    /// Must not be called on the device's thread.
    void reportRecover(int nbTimes = 1)
    {
        onItsThread([this, nbTimes] {
            for (int i = 0; i < nbTimes; ++i)
                DevMDStdDevice::reportRecover();
        });
    }

private:
    void open() override { _world->ask("open", _name, manners); }
    void close() override
    {
        for (std::thread &thread : _threads)
            thread.join();
        switch (_world->ask("close", _name, manners)) {
        case Manner::TWICE:
            return _last->performExecute();
        case Manner::RECOVERS:
            return DevMDStdDevice::reportRecover();
        case Manner::ABORTS:
            return reportAbort();
        default:
            return;
        }
    }
    void start() override { act("start"); }
    void sync() override { act("sync"); }
    void recover() override { act("recover"); }
    void stop() override { act("stop"); }
    void abort() override { act("abort"); }

    /// Behaves in a call on another thread that has no completion.
    void reply(std::string const &call)
    {
        Manner const manner = _world->ask(call, _name, manners);
        if (manner == Manner::TWICE)
            _last->performExecute();
        else if (manner == Manner::RECOVERS && !std::exchange(_hasReported, true))
            reportRecover();
        else if (manner == Manner::ABORTS && !std::exchange(_hasReported, true))
            onItsThread([this] { reportAbort(); });
    }
    /// Executes the action on the device's thread, and waits for its end.
    void onItsThread(std::function<void()> const &action)
    {
        std::binary_semaphore executed(0);
        DevANOQueueEntry entry(makeANO([&] {
            action();
            executed.release();
        }));
        getFifo()->produce(entry);
        executed.acquire();
    }

    void act(char const *step)
    {
        switch (_world->ask(step, _name, manners)) {
        case Manner::LATER:
            _threads.emplace_back([aco = take()] { aco->performExecute(); });
            return;
        case Manner::TWICE: {
            auto const aco = take();
            aco->performExecute();
            return aco->performExecute();
        }
        case Manner::SILENT:
            _kept.push_back(take());
            return;
        case Manner::DROPS:
            take();
            return;
        case Manner::RECOVERS:
            return DevMDStdDevice::reportRecover();
        case Manner::ABORTS:
            return reportAbort();
        case Manner::ABORTS_SILENT:
            reportAbort();
            _kept.push_back(take());
            return;
        default:
            if (!answersAgain(manners))
                return;
            _last = take();
            return _last->performExecute();
        }
    }
    std::shared_ptr<DevACO> take() { return std::shared_ptr<DevACO>(takeCompletion().release()); }

    std::string const _name;
    std::shared_ptr<World> _world;
    std::vector<std::shared_ptr<DevACO>> _kept;
    std::shared_ptr<DevACO> _last; // of the last step, if it is to be answered again
    bool _hasReported = false;     // beside a call that is no step
    std::vector<std::thread> _threads;
};

/// A manager with hostile devices. Its destructor lets hanging devices continue.
template <class Device>
class StageOf
{
public:
    explicit StageOf(std::string config) : _config(std::move(config))
    {
        std::string name;
        for (char const c : _config) {
            if (c != ' ' && c != '(' && c != ')') {
                name += c;
            } else if (!name.empty()) {
                enter(name);
                name.clear();
            }
        }
    }
    ~StageOf()
    {
        supervisor = nullptr;
        if constexpr (std::is_base_of_v<HostileStandard, Device>)
            world->end(); // otherwise its thread does not end
        manager = nullptr;
        world->end();
        for (std::string const &name : names)
            DevRegistry::getInstance().remove(name.c_str());
    }
    StageOf(StageOf const &) = delete;
    StageOf &operator=(StageOf const &) = delete;

    Device &operator[](std::string const &name) { return *devices.at(name); }

    void create() { supervisor = manager->createSeqSupervisor(_config.c_str()); }
    void run() { proceedTo(LOCKED); }

    enum Progress
    {
        CREATED,
        STARTED, // perhaps not locked yet
        LOCKED,
        STOPPED
    };
    void proceedTo(Progress progress)
    {
        create();
        if (progress >= STARTED)
            supervisor->start();
        if (progress >= LOCKED) {
            EXPECT_TRUE(supervisor->waitLocked(LONG));
        }
        if (progress >= STOPPED)
            supervisor->stop(LONG);
    }
    /// Starts the sequence, and returns when a device is in that call.
    void startUntil(std::string const &call)
    {
        create();
        supervisor->start();
        world->waitFor(call);
    }
    /// Begins to stop the sequence on another thread. Returns when the sequence is stopping.
    std::future<DevSeqStatus> stopLater()
    {
        auto stopped = std::async(std::launch::async, [this] { return supervisor->stop(LONG); });
        while (supervisor->getStatus().phase == Phase::RUNNING)
            std::this_thread::yield();
        return stopped;
    }

    DevSeqDeviceStatus getStatus(std::string const &name)
    {
        return find(supervisor->getStatus(), name);
    }
    static DevSeqDeviceStatus find(DevSeqStatus const &status, std::string const &name)
    {
        for (DevSeqDeviceStatus const &device : status.devices)
            if (device.name == name.c_str())
                return device;
        throw std::out_of_range(name);
    }

    std::shared_ptr<World> world = std::make_shared<World>();
    std::vector<std::string> names;
    std::map<std::string, RCShdPtr<Device>> devices;
    ObjPtr<DevMgr> manager = DevMgr::create();
    ObjPtr<DevMgrSeqSupervisor> supervisor;

private:
    void enter(std::string const &name)
    {
        if (devices.count(name))
            return;
        names.push_back(name);
        RCShdPtr<Device> const device(new Device(name, world));
        devices[name] = device;
        DevRegistry::getInstance().add(
            makeRegistryEntry(name.c_str(), "a device of the tests",
                              [device](LiString const &) { return RCShdPtr<DevMDPrtcl>(device); }));
    }

    std::string _config;
};

using Stage = StageOf<Hostile>;

/// Returns the ends of all devices, in their order, as in "stopped aborted failed (No signal.)
/// silent none".
inline std::string endsOf(DevSeqStatus const &status)
{
    std::string text;
    for (DevSeqDeviceStatus const &device : status.devices) {
        text += text.empty() ? "" : " ";
        switch (device.end) {
        case End::NONE:
            text += "none";
            break;
        case End::STOPPED:
            text += "stopped";
            break;
        case End::ABORTED:
            text += "aborted";
            break;
        case End::FAILED:
            text += std::string("failed (") + device.failure.getChars() + ")";
            break;
        case End::NO_ANSWER:
            text += "silent";
            break;
        }
    }
    return text;
}

/// Returns the text of the exception that the call throws. Empty if the call returns.
template <class Call>
std::string thrownBy(Call call)
{
    try {
        call();
    } catch (ExBase const &exception) {
        return exception.getReason();
    } catch (std::exception const &exception) {
        return exception.what();
    } catch (int number) {
        return std::to_string(number);
    }
    return "";
}

} // namespace ZvTest
