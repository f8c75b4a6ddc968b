// Standard devices in a supervised sequence: what their own threads do.
#include "hostileDevices.h"

#include <semaphore>

namespace ZvTest {

namespace {

class Standard : public DevMDStdDevice
{
public:
    using Action = std::function<void(Standard &)>;

    Standard(LiString const &name, std::map<std::string, Action> actions)
        : DevMDStdDevice(name), _actions(std::move(actions))
    {}

    using DevMDStdDevice::reportAbort;
    using DevMDStdDevice::reportRecover;
    using DevMDStdDevice::takeCompletion;

protected:
    void start() override { act("start"); }
    void sync() override { act("sync"); }
    void recover() override { act("recover"); }
    void stop() override { act("stop"); }
    void abort() override { act("abort"); }

private:
    void act(char const *step)
    {
        if (auto const action = _actions.find(step); action != _actions.end())
            action->second(*this);
    }

    std::map<std::string, Action> _actions;
};

/// A root that works, with one device below it that misbehaves.
class StandardDevice : public testing::Test
{
protected:
    StandardDevice() { enter("root", {}); }
    ~StandardDevice() noexcept override
    {
        for (char const *name : {"root", "a"})
            DevRegistry::getInstance().remove(name);
    }

    DevSeqStatus runAndStop(std::map<std::string, Standard::Action> actions)
    {
        enter("a", std::move(actions));
        ObjPtr<DevMgr> const manager = DevMgr::create();
        ObjPtr<DevMgrSeqSupervisor> const supervisor =
            manager->createSeqSupervisor("( root ( a ) )");
        supervisor->start();
        try {
            EXPECT_TRUE(supervisor->waitLocked(LONG));
        } catch (DevMgrEx::SeqDeviceFailed const &) { // the report has it, too
        }
        return supervisor->stop(LONG);
    }

private:
    static void enter(char const *name, std::map<std::string, Standard::Action> actions)
    {
        DevRegistry::getInstance().add(
            makeRegistryEntry(name, "a device of the tests", [actions](LiString const &called) {
                return RCShdPtr<DevMDPrtcl>(new Standard(called, actions));
            }));
    }
};

TEST_F(StandardDevice, RunsInASupervisedSequence)
{
    EXPECT_EQ(endsOf(runAndStop({})), "stopped stopped");
}

TEST_F(StandardDevice, StepThatThrowsMakesTheDeviceFailed)
{
    auto const fail = [](Standard &) { throw std::runtime_error("No tape."); };
    EXPECT_EQ(endsOf(runAndStop({{"start", fail}})), "aborted failed (No tape.)");
}

TEST_F(StandardDevice, SyncThatThrowsMakesTheDeviceFailed)
{
    auto const fail = [](Standard &) { throw 42; };
    EXPECT_EQ(endsOf(runAndStop({{"sync", fail}})),
              "stopped failed (An exception of an unknown class.)");
}

TEST_F(StandardDevice, StopThatThrowsMakesTheDeviceFailed)
{
    auto const fail = [](Standard &) { throw std::runtime_error("No tape."); };
    EXPECT_EQ(endsOf(runAndStop({{"stop", fail}})), "stopped failed (No tape.)");
}

TEST_F(StandardDevice, AbortThatThrowsMakesTheDeviceFailed)
{
    auto const report = [](Standard &device) { device.reportAbort(); };
    auto const fail = [](Standard &) { throw std::runtime_error("No tape."); };
    EXPECT_EQ(endsOf(runAndStop({{"sync", report}, {"abort", fail}})), "stopped failed (No tape.)");
}

TEST_F(StandardDevice, StepThatTakesItsCompletionAndThrowsMakesTheDeviceFailed)
{
    std::vector<std::shared_ptr<DevACO>> taken;
    auto const fail = [&taken](Standard &device) {
        taken.emplace_back(device.takeCompletion().release());
        throw std::runtime_error("No tape.");
    };
    EXPECT_EQ(endsOf(runAndStop({{"sync", fail}})), "stopped failed (No tape.)");
    taken[0]->performExecute(); // too late
}

TEST_F(StandardDevice, CompletionThatWasTakenEndsTheStep)
{
    std::thread late;
    auto const answerLate = [&late](Standard &device) {
        std::shared_ptr<DevACO> const completion(device.takeCompletion().release());
        late = std::thread([completion] { completion->performExecute(); });
    };
    EXPECT_EQ(endsOf(runAndStop({{"start", answerLate}})), "stopped stopped");
    late.join();
}

TEST_F(StandardDevice, CompletionThatWasTakenAndDestroyedMakesTheDeviceFailed)
{
    auto const drop = [](Standard &device) { ObjPtr<DevACO> const gone = device.takeCompletion(); };
    EXPECT_EQ(endsOf(runAndStop({{"start", drop}})),
              "aborted failed (It has destroyed a completion without running it.)");
}

TEST_F(StandardDevice, RecoveryWhileItStopsLeadsToItsAbort)
{
    auto const report = [](Standard &device) { device.reportRecover(); };
    EXPECT_EQ(endsOf(runAndStop({{"stop", report}})), "stopped aborted");
}

TEST_F(StandardDevice, AbortInEachStep)
{
    auto const report = [](Standard &device) { device.reportAbort(); };
    EXPECT_EQ(endsOf(runAndStop({{"start", report}})), "aborted aborted");
}

} // namespace
} // namespace ZvTest
