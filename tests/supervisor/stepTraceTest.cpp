// Steps of devices in the trace of events.

#include "hostileDevices.h"
#include "testing/traceFile.h"

namespace ZvTest {

namespace {

class Plain final : public DevMDStdDevice
{
public:
    explicit Plain(LiString const &name) : DevMDStdDevice(name) {}
};

/// Three standard devices.
class StepTrace : public testing::Test
{
protected:
    StepTrace()
    {
        for (char const *name : NAMES)
            DevRegistry::getInstance().add(
                makeRegistryEntry(name, "a device of the tests", [](LiString const &called) {
                    return RCShdPtr<DevMDPrtcl>(new Plain(called));
                }));
    }
    ~StepTrace() noexcept override
    {
        for (char const *name : NAMES)
            DevRegistry::getInstance().remove(name);
    }

    /// Expects that each device has the steps of an orderly run on a track of its own.
    static void expectOrderlyRun(TracedEvents const &events)
    {
        events.expectNested();
        EXPECT_GT(events.expectWholeFlows(), 0u);
        std::map<std::string, std::string> steps;
        std::map<std::string, TracedEvent> last;
        for (TracedEvent const &event : events.find("device")) {
            std::string const device = events.nameOf(event.thread);
            steps[device] += event.name + ";";
            EXPECT_FALSE(event.hasValue("unfinished"));
            if (last.contains(device)) {
                EXPECT_LE(last[device].end(), event.begin + TracedEvents::ROUNDING) << device;
            }
            last[device] = event;
        }
        EXPECT_EQ(steps, (std::map<std::string, std::string>{{"a", "start;sync;stop;"},
                                                             {"b", "start;sync;stop;"},
                                                             {"c", "start;sync;stop;"}}));
        // A device stops before its parent does.
        auto const step = [&](std::string const &device, std::string const &name) {
            for (TracedEvent const &event : events.find("device", name))
                if (events.nameOf(event.thread) == device)
                    return event;
            return TracedEvent();
        };
        EXPECT_LE(step("c", "start").begin, step("a", "sync").begin);
        EXPECT_LE(step("a", "sync").end(), step("b", "sync").begin);
        EXPECT_LE(step("b", "sync").end(), step("c", "sync").begin);
    }

    static constexpr char const *NAMES[] = {"a", "b", "c"};
};

TEST_F(StepTrace, ASupervisedSequenceHasATrackForEachDevice)
{
    TraceRecording recording;
    {
        ObjPtr<DevMgr> const manager = DevMgr::create();
        ObjPtr<DevMgrSeqSupervisor> const supervisor =
            manager->createSeqSupervisor("( a ( b ( c ) ) )");
        supervisor->start();
        EXPECT_TRUE(supervisor->waitLocked(LONG));
        supervisor->stop(LONG);
    }
    expectOrderlyRun(recording.stop());
}

TEST_F(StepTrace, ASequenceWithoutASupervisorHasATrackForEachDevice)
{
    TraceRecording recording;
    {
        ObjPtr<DevMgr> const manager = DevMgr::create();
        ObjPtr<DevMgrSyncSeqAcc> const access = manager->createSyncSeqAcc();
        access->configure("( a ( b ( c ) ) )");
        access->start();
        auto const await = [&](char const *state) {
            for (char const *name : NAMES)
                while (access->getState(name) != state)
                    std::this_thread::yield();
        };
        await("lock");
        access->stop();
        await("final");
    }
    expectOrderlyRun(recording.stop());
}

} // namespace
} // namespace ZvTest
