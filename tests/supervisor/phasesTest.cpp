// A device that misbehaves in one phase, as the client of its tree sees it. The client stops the
// sequence and closes the manager, or only destroys both.
#include "hostileDevices.h"

#include <atomic>
#include <future>
#include <initializer_list>
#include <memory>

namespace ZvTest {

namespace {

/// A device that handles the exceptions of its requests. That does not include the failures of its
/// steps.
class Handling final : public HostileStandard
{
public:
    using HostileStandard::HostileStandard;

private:
    void performFailed(std::exception_ptr const &) override
    {
        ADD_FAILURE() << "was told of the failure of a step";
    }
};

/// The device "a" of "( root ( a b ) )" misbehaves. A row has the expected ends of the sequence's
/// devices, in their order, and of the manager's devices, the newest one first.
struct Row
{
    char const *phase;
    Manner manner;
    std::string ends;
    std::string closing = "closed closed closed";
};
Row const FAILURES[] = {
    {"open", Manner::THROWS, "No signal.", "closed"},
    {"open", Manner::THROWS_OTHER, "No power.", "closed"},
    {"start", Manner::THROWS, "aborted failed (No signal.) aborted"},
    {"start", Manner::THROWS_OTHER, "aborted failed (No power.) aborted"},
    {"sync", Manner::THROWS, "stopped failed (No signal.) stopped"},
    {"sync", Manner::THROWS_OTHER, "stopped failed (No power.) stopped"},
    {"stop", Manner::THROWS, "stopped failed (No signal.) stopped"},
    {"stop", Manner::THROWS_OTHER, "stopped failed (No power.) stopped"},
    {"close", Manner::THROWS, "stopped stopped stopped", "closed failed (No signal.) closed"},
    {"close", Manner::THROWS_OTHER, "stopped stopped stopped", "closed failed (No power.) closed"}};
Row const ABORTS[] = {{"start", Manner::ABORTS, "aborted aborted aborted"},
                      {"sync", Manner::ABORTS, "stopped aborted stopped"},
                      {"stop", Manner::ABORTS, "stopped aborted stopped"}};
// The device hangs on its own thread, so the other devices are still called.
Row const HANGS[] = {{"open", Manner::HANGS, "The device manager was closed.", "hanging closed"},
                     {"start", Manner::HANGS, "aborted silent aborted", "closed hanging closed"},
                     {"sync", Manner::HANGS, "aborted silent aborted", "closed hanging closed"},
                     {"stop", Manner::HANGS, "aborted silent stopped", "closed hanging closed"},
                     {"close", Manner::HANGS, "stopped stopped stopped", "closed hanging closed"}};

std::string closingOf(DevMgrCloseReport const &report)
{
    std::string text;
    for (DevMgrCloseReport::Device const &device : report.devices) {
        text += text.empty() ? "" : " ";
        switch (device.end) {
        case DevMgrCloseReport::End::CLOSED:
            text += "closed";
            break;
        case DevMgrCloseReport::End::FAILED:
            text += "failed (" + thrownBy([&] { std::rethrow_exception(device.failure); }) + ")";
            break;
        case DevMgrCloseReport::End::NOT_CLOSED:
        case DevMgrCloseReport::End::NOT_OPENED:
            text += "hanging";
            break;
        }
    }
    return text;
}

template <class Device>
class Client
{
public:
    explicit Client(Row const &row)
        : _row(row),
          _suffix("." + std::to_string(_nextNumber++)),
          _stage("( root" + _suffix + " ( a" + _suffix + " b" + _suffix + " ) )")
    {
        _stage["a" + _suffix].manners[row.phase] = row.manner;
    }

    void stopAndClose()
    {
        if (createAndStart()) {
            DevMgrSeqSupervisor &supervisor = *_stage.supervisor;
            waitFor({"start", "sync"});
            thrownBy([&] { supervisor.waitLocked(isHanging() ? 0 : LONG); });
            DevSeqStatus const status = supervisor.stop(isHanging() ? 0.2 : LONG, LIMIT);
            EXPECT_EQ(endsOf(status), _row.ends) << name();
            // A second stop returns the first result again.
            EXPECT_EQ(endsOf(supervisor.stop(LONG)), _row.ends) << name();
            EXPECT_TRUE(supervisor.wait(0)) << name();
            _stage.supervisor = nullptr;
        }
        close();
    }

    void letGo()
    {
        if (createAndStart()) {
            waitFor({"start", "sync"});
            _stage.supervisor->setEndLimit(isHanging() ? LIMIT : LONG);
            _stage.supervisor = nullptr;
            for (char const *name : {"root", "b"}) {
                World &world = *_stage.world;
                std::string const device = " " + (name + _suffix);
                long const nbEnds = world.count("stop" + device) + world.count("abort" + device);
                EXPECT_GE(nbEnds, world.count("start" + device)) << this->name() << device;
                EXPECT_LE(world.count("stop" + device), 1) << this->name() << device;
                EXPECT_LE(world.count("abort" + device), 1) << this->name() << device;
            }
        }
        close();
    }

private:
    static constexpr double LIMIT = 6; // for events that do not occur

    std::string name() const { return _row.phase + _suffix; }
    bool isHanging() const { return _row.manner == Manner::HANGS; }

    bool createAndStart()
    {
        if (_row.phase == std::string("open")) {
            _opening = std::async(std::launch::async,
                                  [this] { return thrownBy([this] { _stage.create(); }); });
            _stage.world->waitFor("open a" + _suffix);
            return false;
        }
        _stage.create();
        _stage.supervisor->start();
        return true;
    }
    /// Waits until the device is in its phase, if that is one of these phases.
    void waitFor(std::initializer_list<std::string> phases)
    {
        for (std::string const &phase : phases)
            if (phase == _row.phase)
                _stage.world->waitFor(phase + " a" + _suffix);
    }
    void close()
    {
        if (_opening.valid() && !isHanging())
            _opening.wait();
        DevMgrCloseReport const report = _stage.manager->close(isHanging() ? LIMIT : LONG);
        EXPECT_EQ(closingOf(report), _row.closing) << name();
        _stage.manager = nullptr;
        _stage.world->end();
        if (_opening.valid())
            EXPECT_EQ(_opening.get(), _row.ends) << name();
        else if (isHanging())
            _stage.world->waitFor("close a" + _suffix);
    }

    static inline int _nextNumber = 0;

    Row const &_row;
    std::string _suffix;
    StageOf<Device> _stage;
    std::future<std::string> _opening; // the text of its exception
};

/// Runs the rows at the same time, because those that hang wait for their limits. The registry of
/// devices, which has no lock, changes only before and after that.
template <class Device, std::size_t N>
void forEach(Row const (&rows)[N], void (Client<Device>::*act)())
{
    std::vector<std::unique_ptr<Client<Device>>> clients;
    for (Row const &row : rows)
        clients.push_back(std::make_unique<Client<Device>>(row));
    std::vector<std::thread> threads;
    for (auto const &client : clients)
        threads.emplace_back([&client, act] { (*client.*act)(); });
    for (std::thread &thread : threads)
        thread.join();
}

template <class Device, std::size_t N>
void stopAndClose(Row const (&rows)[N])
{
    forEach<Device>(rows, &Client<Device>::stopAndClose);
}

template <class Device, std::size_t N>
void letGo(Row const (&rows)[N])
{
    forEach<Device>(rows, &Client<Device>::letGo);
}

TEST(DeviceThatThrows, IsReportedWhileTheOthersEnd)
{
    stopAndClose<Hostile>(FAILURES);
}

TEST(DeviceThatThrows, IsReportedIfItThrowsOnItsOwnThread)
{
    stopAndClose<HostileStandard>(FAILURES);
}

TEST(DeviceThatThrows, IsReportedIfItHandlesWhatItsRequestsThrow)
{
    stopAndClose<Handling>(FAILURES);
}

TEST(DeviceThatThrows, KeepsNoOtherOpenIfTheClientLetsGo)
{
    letGo<HostileStandard>(FAILURES);
    letGo<Handling>(FAILURES);
}

TEST(DeviceThatAborts, IsReportedWhileTheOthersEnd)
{
    stopAndClose<Hostile>(ABORTS);
    stopAndClose<HostileStandard>(ABORTS);
}

TEST(DeviceThatAborts, KeepsNoOtherOpenIfTheClientLetsGo)
{
    letGo<HostileStandard>(ABORTS);
}

TEST(DeviceThatHangs, IsReportedAndLeftBehindWhileTheOthersEnd)
{
    stopAndClose<HostileStandard>(HANGS);
}

TEST(DeviceThatHangs, KeepsNoOtherOpenIfTheClientLetsGo)
{
    letGo<HostileStandard>(HANGS);
}

} // namespace
} // namespace ZvTest
