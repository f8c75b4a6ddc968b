// Pacing of a client on one thread. Each wait of the client is a step of the test's script.

#include "resmgt/syncEngine/seClientThread.h"

#include "resmgt/locks/lkPulse.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "scripted.h"
#include "testing/threadHook.h"
#include "zvbase/assertions.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

/// The kinds of wait of a client.
enum Wait
{
    LATCHED, ///< for any pulse ever sent
    NEXT     ///< for the next pulse
};

constinit thread_local ThreadHook<void(Wait)> onWait;

} // namespace

} // namespace ZvTest

// The linker redirects the library's waits to these functions.
extern "C" void __real__ZNK2Zv14LkPulseWindows4waitERKNS_7LkMutexE(Zv::LkPulseWindows const *,
                                                                   Zv::LkMutex const &);
extern "C" void __wrap__ZNK2Zv14LkPulseWindows4waitERKNS_7LkMutexE(Zv::LkPulseWindows const *pulse,
                                                                   Zv::LkMutex const &mutex)
{
    if (ZvTest::onWait)
        ZvTest::onWait(ZvTest::LATCHED);
    else
        __real__ZNK2Zv14LkPulseWindows4waitERKNS_7LkMutexE(pulse, mutex);
}
extern "C" void __real__ZNK2Zv14LkPulseWindows8waitNextERKNS_7LkMutexE(Zv::LkPulseWindows const *,
                                                                       Zv::LkMutex const &);
extern "C" void
__wrap__ZNK2Zv14LkPulseWindows8waitNextERKNS_7LkMutexE(Zv::LkPulseWindows const *pulse,
                                                       Zv::LkMutex const &mutex)
{
    if (ZvTest::onWait)
        ZvTest::onWait(ZvTest::NEXT);
    else
        __real__ZNK2Zv14LkPulseWindows8waitNextERKNS_7LkMutexE(pulse, mutex);
}

namespace Zv {

template <>
struct TestAccess<SeClientThread>
{
    static void setUp(SeClientThread &client, Priority *generator, LkMutex *lock,
                      LkPulse *condition, std::uint32_t *count, std::int32_t divisor)
    {
        client.setupNoLock(generator, lock, condition, count, divisor);
    }
    static MtThread *getThread(SeClientThread const &client) { return client._thread; }
};

} // namespace Zv

namespace ZvTest {

/// A client without a generator. The test has the count, and changes it in each wait.
class SeClientThreadTest : public testing::Test
{
protected:
    using Access = TestAccess<SeClientThread>;

    SeClientThreadTest()
        : _thread(MtThreadFactory::getInstance().createThread("client", own(), true, 0))
    {
        onWait = [this](Wait wait) { takeStep(wait); };
    }
    ~SeClientThreadTest() noexcept override { onWait = nullptr; }

    class Client : public ScriptedClient
    {
    public:
        using ScriptedClient::getDivisorNoLock;
    };

    void setUp(std::int32_t divisor)
    {
        Access::setUp(*_client, &_generator, &_mutex, &_pulse, &_count, divisor);
    }
    void clear() { Access::setUp(*_client, nullptr, nullptr, nullptr, nullptr, 0); }
    /// Runs the client through its jumps, then stops it while it waits.
    std::string run(std::int32_t divisor, std::vector<std::uint32_t> jumps)
    {
        setUp(divisor);
        _jumps = std::move(jumps);
        _client->performExecute(_thread.get());
        EXPECT_TRUE(_jumps.empty());
        clear();
        return _client->record.takeText();
    }
    void setupWith(Priority *generator, LkMutex *lock, LkPulse *condition, std::uint32_t *count)
    {
        Access::setUp(*_client, generator, lock, condition, count, 1);
    }
    MtThread *getThread() const { return Access::getThread(*_client); }
    /// Never returns if the lock is held.
    void takeLockElsewhere()
    {
        std::thread([this] { LkGuard<LkMutex const> const guard(_mutex); }).join();
    }
    /// Replaces the client's wait. Changes the count, or stops the client.
    void takeStep(Wait wait)
    {
        _waits += wait == LATCHED ? 'l' : 'n';
        EXPECT_TRUE(_mutex.isLocked());
        if (_jumps.empty()) {
            _client->performStop(_thread.get());
            return;
        }
        _count += _jumps.front();
        _jumps.erase(_jumps.begin());
    }

    ObjPtr<MtThreadProtocol> own() { return ObjPtr<MtThreadProtocol>(_client); }

    LkMutex _mutex{"test"};
    LkPulse _pulse{"test", LkPulse::WAKE_ALL};
    std::uint32_t _count = 1000;
    Priority _generator{"generator", MtPriorityMgr::getInstance(), 5};
    Client *_client = new Client;
    std::vector<std::uint32_t> _jumps;
    std::string _waits;
    ObjPtr<MtThread> _thread;
};

TEST_F(SeClientThreadTest, RunsAtEachBeatInTime)
{
    EXPECT_EQ(run(1, {1, 1, 1, 1, 1}), "start;1001 0;1002 0;1003 0;1004 0;1005 0;end;");
}

TEST_F(SeClientThreadTest, ASkippedBeatMakesItLate)
{
    EXPECT_EQ(run(1, {1, 1, 2, 1, 10, 1}), "start;1001 0;1002 0;1004 1;1005 0;1015 9;1016 0;end;");
}

TEST_F(SeClientThreadTest, RunsAtEachFourthBeat)
{
    EXPECT_EQ(run(4, {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1}), "start;1004 0;1008 0;1012 0;end;");
}

TEST_F(SeClientThreadTest, LateBeatsAreNotCarriedIntoTheNextPeriod)
{
    // One beat of the period is over, 3 remain, and 6 pass at once. Then 4 are needed.
    EXPECT_EQ(run(4, {1, 1, 1, 1, 1, 6, 1, 1, 1, 1}), "start;1004 0;1011 3;1015 0;end;");
    _count = 0;
    EXPECT_EQ(run(4, {1, 1, 2, 3, 1}), "start;4 0;8 0;end;");
}

TEST_F(SeClientThreadTest, ItsFirstTwoWakeUpsCountAsOneBeatEach)
{
    EXPECT_EQ(run(1, {100, 100, 100}), "start;1100 0;1200 0;1300 99;end;");
    _count = 0;
    EXPECT_EQ(run(3, {100, 100, 1}), "start;201 0;end;");
    _count = 0;
    EXPECT_EQ(run(1, {0, 0, 1}), "start;0 0;0 0;1 0;end;"); // without a beat as well
}

TEST_F(SeClientThreadTest, AWakeUpWithoutABeatChangesNothing)
{
    EXPECT_EQ(run(1, {1, 1, 0, 0, 0, 1}), "start;1001 0;1002 0;1003 0;end;");
    _count = 0;
    EXPECT_EQ(run(3, {1, 1, 0, 1, 0, 1, 0, 2, 0}), "start;3 0;6 0;end;");
}

TEST_F(SeClientThreadTest, TheLatchedWaitIsTakenInTheFirstTwoRoundsOnly)
{
    run(2, {1, 1, 1, 1, 1});
    EXPECT_EQ(_waits, "llnnnn");
}

TEST_F(SeClientThreadTest, BeatsThatComeDuringTheWorkAreNotSleptThrough)
{
    _client->onSync = [this](std::uint32_t count, int) {
        if (count == 1003)
            _count += 2;
        return false;
    };
    EXPECT_EQ(run(1, {1, 1, 1, 1}), "start;1001 0;1002 0;1003 0;1005 1;1006 0;end;");
    EXPECT_EQ(_waits, "llnnn");
}

TEST_F(SeClientThreadTest, TheCountWrapsAround)
{
    _count = 0xFFFFFFFD;
    EXPECT_EQ(run(1, {1, 1, 1, 1, 2}), "start;4294967294 0;4294967295 0;0 0;1 0;3 1;end;");
    _count = 0xFFFFFFFF;
    EXPECT_EQ(run(4, {1, 1, 1, 1}), "start;3 0;end;");
}

TEST_F(SeClientThreadTest, ACountThatStartsAgainDelaysAndDoesNoHarm)
{
    // The count goes back by 50 beats, as if the next 51 were over already.
    EXPECT_EQ(run(1, {1, 1, std::uint32_t(-50), 50, 1}), "start;1001 0;1002 0;1003 0;end;");
    // The largest jump of the count.
    _count = 0;
    EXPECT_EQ(run(1, {1, 1, 0x80000000u}), "start;1 0;2 0;2147483650 2147483647;end;");
    _count = 0;
    EXPECT_EQ(run(1, {1, 1, 0x80000002u}), "start;1 0;2 0;end;");
}

TEST_F(SeClientThreadTest, TheSmallestDivisorsRunAtEachWakeUp)
{
    EXPECT_EQ(run(0, {1, 1, 1}), "start;1001 1;1002 1;1003 1;end;");
    _count = 0;
    EXPECT_EQ(run(-2, {1}), "start;1 3;end;");
}

TEST_F(SeClientThreadTest, TheLockIsFreeDuringTheWork)
{
    _client->onSync = [this](std::uint32_t, int) {
        takeLockElsewhere();
        return false;
    };
    run(1, {1, 1, 1});
}

TEST_F(SeClientThreadTest, EndsByItself)
{
    _client->onSync = [](std::uint32_t count, int) { return count == 1002; };
    setUp(1);
    _jumps = {1, 1, 1, 1};
    _client->performExecute(_thread.get());
    EXPECT_EQ(_client->record.getText(), "start;1001 0;1002 0;end;");
    EXPECT_EQ(_jumps.size(), 2U);
    takeLockElsewhere();
    clear();
}

TEST_F(SeClientThreadTest, AStopDuringTheWorkEndsTheThread)
{
    _client->onSync = [this](std::uint32_t, int) {
        _client->performStop(_thread.get());
        return false;
    };
    setUp(1);
    _jumps = {1, 1, 1};
    _client->performExecute(_thread.get());
    EXPECT_EQ(_client->record.getText(), "start;1001 0;end;");
    EXPECT_EQ(_waits, "l");
    clear();
}

TEST_F(SeClientThreadTest, AStopThatCameBeforeTheFirstWaitIsTheEnd)
{
    setUp(1);
    _client->performStop(_thread.get());
    _client->performExecute(_thread.get());
    EXPECT_EQ(_client->record.takeText(), "start;end;");
    EXPECT_EQ(_waits, "");
    clear();
    EXPECT_EQ(run(1, {1}), "start;1001 0;end;"); // set up anew, it is forgotten
}

TEST_F(SeClientThreadTest, ThrowsWhatTheWorkThrowsWithoutTheLock)
{
    _client->onSync = [](std::uint32_t, int) -> bool { throw std::runtime_error("no picture"); };
    setUp(1);
    _jumps = {1};
    EXPECT_THROW(_client->performExecute(_thread.get()), std::runtime_error);
    takeLockElsewhere();
    EXPECT_EQ(_client->record.getText(), "start;1001 0;");
    clear();
}

TEST_F(SeClientThreadTest, IsSetUpWhenItIsFreeAndClearedWhenItIsNot)
{
    std::string const expected = "generator ? ( _lock == 0 && _condition == 0 && _count == 0 ) : ( "
                                 "_lock != 0 && _condition != 0 && _count != 0 )";
    EXPECT_EQ(failedAssertion([&] { clear(); }), expected);
    setUp(3);
    EXPECT_EQ(_client->getDivisorNoLock(), 3);
    EXPECT_EQ(failedAssertion([&] { setUp(4); }), expected);
    EXPECT_EQ(_client->getDivisorNoLock(), 3);
    clear();
    EXPECT_EQ(_client->getDivisorNoLock(), 0);
    EXPECT_EQ(failedAssertion([&] { clear(); }), expected);
    // Each of the three counts.
    for (int missing = 0; missing != 3; ++missing) {
        setupWith(&_generator, missing == 0 ? nullptr : &_mutex, missing == 1 ? nullptr : &_pulse,
                  missing == 2 ? nullptr : &_count);
        EXPECT_EQ(failedAssertion([&] { clear(); }), expected) << missing;
        EXPECT_EQ(failedAssertion([&] { setUp(1); }), expected) << missing;
        EXPECT_EQ(failedAssertion([&] { _client->performExecute(_thread.get()); }),
                  "_lock && _condition && _count")
            << missing;
        _thread.reset();
        _client = new Client;
        _thread = MtThreadFactory::getInstance().createThread("client", own(), true, 0);
    }
}

TEST_F(SeClientThreadTest, KnowsItsThreadWhileItIsAttached)
{
    EXPECT_EQ(getThread(), _thread.get());
    ObjPtr<MtThreadProtocol> const client(_thread->detachProtocol());
    EXPECT_EQ(getThread(), nullptr);
}

TEST_F(SeClientThreadTest, DoesNotRunWithoutAGenerator)
{
    EXPECT_EQ(failedAssertion([&] { _client->performExecute(_thread.get()); }),
              "_lock && _condition && _count");
    EXPECT_EQ(_client->record.getText(), "start;");
}

TEST_F(SeClientThreadTest, StaysBelowItsGenerator)
{
    Priority &priority = _client->getPriorityNoLock();
    EXPECT_EQ(priority.getName(), "syncClient");
    EXPECT_FALSE(priority.isPriorityFixed());
    PriorityRelation const high("test", _generator, PriorityRelation::LESS_EQUAL, priority);
    EXPECT_EQ(priority.getPriority(), 5);
    EXPECT_EQ(_thread->getPriority().getPriority(), 5);
    EXPECT_THROW(setUp(1), ExBase); // as high as its generator already
    EXPECT_EQ(_client->getDivisorNoLock(), 0);
}

TEST_F(SeClientThreadTest, TheNamesOfItsRelations)
{
    auto const dump = [&] {
        std::ostringstream stream;
        _thread->getPriority().dump(stream, true);
        return stream.str();
    };
    EXPECT_NE(dump().find("syncClient=SeClientThread"), std::string::npos) << dump();
    EXPECT_EQ(dump().find("client<generator"), std::string::npos);
    setUp(1);
    EXPECT_NE(dump().find("client<generator"), std::string::npos) << dump();
    clear();
    EXPECT_EQ(dump().find("client<generator"), std::string::npos);
    ObjPtr<MtThreadProtocol> const client(_thread->detachProtocol());
    EXPECT_EQ(dump().find("syncClient=SeClientThread"), std::string::npos);
}

} // namespace ZvTest
