// Reports of a failed device in a supervised sequence: the state, the call and the reason.
#include "hostileDevices.h"

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

} // namespace
} // namespace ZvTest
