// Reports of a failed device in a supervised sequence: the state, the call and the reason.
#include "hostileDevices.h"

#include "testing/graphviz.h"
#include "zvbase/lgLog.h"

#include <sstream>

namespace ZvTest {

namespace {

/// Observer that logs each failure as one line.
class Notes : public DevSeqObserver
{
public:
    explicit Notes(World &world) : _world(world) {}
    void stateChanged(LiString const &, LiString const &) override {}
    void machineFailed(DevMgrFailure const &failure) override
    {
        std::ostringstream text;
        text << "= " << failure;
        _world.add(text.str());
    }

private:
    World &_world;
};

TEST(FailureOfASupervisedDevice, NamesTheStateAndTheCall)
{
    for (char const *call : {"start", "getLatency", "sync", "getMark"}) {
        Stage stage("( root ( a ) )");
        stage["a"].manners[call] = Manner::THROWS_OTHER;
        stage.create();
        stage.supervisor->setObserver(RCShdPtr<DevSeqObserver>(new Notes(*stage.world)));
        stage.supervisor->start();
        EXPECT_THROW(stage.supervisor->waitLocked(LONG), DevMgrEx::SeqDeviceFailed);
        stage.supervisor->stop(LONG);
        stage.supervisor = nullptr; // the observer has got all reports
        std::string const expected = std::string("= device a: event \"") + call;
        std::string noted;
        for (std::string const &line : stage.world->getJournal())
            if (line.starts_with("= "))
                noted += line;
        EXPECT_TRUE(noted.starts_with(expected + "\" in state \"")) << noted;
        EXPECT_TRUE(noted.ends_with("\": No power.")) << noted;
    }
}

TEST(FailureOfASupervisedDevice, IsTracedWhenItHappens)
{
    testing::internal::CaptureStderr();
    {
        Stage stage("( root ( a ) )");
        stage["a"].manners["start"] = Manner::THROWS_OTHER;
        stage.create();
        stage.supervisor->start();
        EXPECT_THROW(stage.supervisor->waitLocked(LONG), DevMgrEx::SeqDeviceFailed);
        stage.supervisor->stop(LONG);
    }
    LgLog::flush();
    std::string const trace = testing::internal::GetCapturedStderr();
    EXPECT_NE(
        trace.find("A device has failed. device a: event \"start\" in state \"init\": No power."),
        std::string::npos)
        << trace;
}

TEST(StatusOfASupervisedSequence, DrawsTheTreeAndWhatHasFailed)
{
    Stage stage("( root ( a ( b ) c ) )");
    stage["b"].manners["start"] = Manner::THROWS_OTHER;
    stage.create();
    DevSeqStatus const idle = stage.supervisor->getStatus();
    EXPECT_EQ(idle.devices[0].parent, "");
    EXPECT_EQ(idle.devices[2].name, "b");
    EXPECT_EQ(idle.devices[2].parent, "a");
    stage.supervisor->start();
    EXPECT_THROW(stage.supervisor->waitLocked(LONG), DevMgrEx::SeqDeviceFailed);
    DevSeqStatus const status = stage.supervisor->stop(LONG);
    EXPECT_EQ(graphOf(status),
              (std::vector<std::string>{"d0: root final", "d1: a final", "d2: b init No power.",
                                        "d3: c final", "d0 -> d1", "d0 -> d3", "d1 -> d2"}));
    std::ostringstream text;
    status.dumpDot(text);
    EXPECT_NE(text.str().find("No power.\", color=red];"), std::string::npos) << text.str();
}

} // namespace
} // namespace ZvTest
