#include "resmgt/syncEngine/seSyncEngine.h"

#include "resmgt/locks/lkGuard.h"
#include "resmgt/syncEngine/seGeneratorThread.private.h"
#include "resmgt/syncEngine/seSourceProtocol.h"
#include "resmgt/threads/mtPriorityMgr.h"
#include "resmgt/threads/mtThreadFactory.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/threads/rtPriorities.h"
#include "scripted.h"
#include "testing/aborted.h"
#include "testing/askingStream.h"
#include "testing/asleep.h"
#include "testing/refusedThreads.h"
#include "threads/threadTesting.h"
#include "zvbase/rcEx.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <semaphore>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

namespace Zv {

/// Makes engines besides the one of the process.
template <>
struct TestAccess<SeSyncEngine>
{
    static void destroyEngine(SeSyncEngine *engine) { delete engine; }
    static SeSyncEngine *makeEngine() { return new SeSyncEngine; }
    static SeGeneratorThread &getLastGenerator(SeSyncEngine &engine)
    {
        LkGuard<LkLock const> const guard(engine._lock);
        return static_cast<SeGeneratorThread &>(*engine._generators.back()->getProtocol());
    }
};

} // namespace Zv

namespace ZvTest {

using namespace Zv;

namespace {

unsigned getNbThreads()
{
    return MtThreadMgr::getInstance().getNbThreads();
}

std::string dump(Priority &priority)
{
    std::ostringstream stream;
    priority.dump(stream, true);
    return stream.str();
}

// ---- generators

/// A generator on a thread of its own, with a source that the test controls.
class SeGeneratorThreadTest : public testing::Test
{
protected:
    SeGeneratorThreadTest()
        : _generator(new SeGeneratorThread(_source)),
          _thread(MtThreadFactory::getInstance().createThread(
              "generator", ObjPtr<MtThreadProtocol>(_generator), true, 0))
    {}
    ~SeGeneratorThreadTest() noexcept override
    {
        _source.runFree();
        _thread.reset();
    }

    ScriptedClient *add(std::int32_t divisor, char const *name = "client")
    {
        ObjPtr<SeClientThread> client(new ScriptedClient);
        auto * const added = static_cast<ScriptedClient *>(client.get());
        addAgain(client, divisor, name);
        added->awaitAsleep();
        return added;
    }
    void addAgain(ObjPtr<SeClientThread> &client, std::int32_t divisor, char const *name = "client")
    {
        _generator->addClient(name, client, divisor, MtThreadFactory::getInstance());
    }
    void start() { _thread->start(); }
    /// Sends one beat, and waits until the generator has handled it.
    void beat()
    {
        int const nbWaits = _source.getNbWaits();
        _source.beat();
        _source.awaitWaits(nbWaits + 1);
    }
    /// Starts the generator and lets the source beat for the first time.
    void startBeating()
    {
        start();
        _source.awaitWaits(1);
        beat();
    }
    bool isState(SeGeneratorThread::SourceState state) const { return _generator->isState(state); }

    ScriptedSource _source;
    SeGeneratorThread *_generator;
    ObjPtr<MtThread> _thread;
};

TEST_F(SeGeneratorThreadTest, StartsTheSourceBeforeTheFirstBeatAndStopsItAfterTheLast)
{
    EXPECT_TRUE(isState(SeGeneratorThread::STARTING));
    start();
    _source.awaitWaits(1);
    EXPECT_EQ(_source.record.getText(), "start;");
    EXPECT_NE(_source.getThread(), threadNumber());
    EXPECT_TRUE(isState(SeGeneratorThread::STARTING));
    beat();
    EXPECT_TRUE(isState(SeGeneratorThread::BEATING));
    beat();
    EXPECT_EQ(_source.record.getText(), "start;");
    _thread->stop();
    EXPECT_TRUE(isState(SeGeneratorThread::STOPPED));
    _source.beat(); // to see it
    _thread->join();
    EXPECT_EQ(_source.record.getText(), "start;stop;");
    EXPECT_EQ(_source.getNbWaits(), 4 - 1);
}

TEST_F(SeGeneratorThreadTest, StartsAndStopsTheSourceUnderItsLock)
{
    std::binary_semaphore entered(0);
    std::binary_semaphore go(0);
    _source.onStart = _source.onStop = [&] {
        entered.release();
        go.acquire();
    };
    auto const expectHeldUp = [&] {
        entered.acquire();
        EXPECT_TRUE(isHeldUp([&] { isState(SeGeneratorThread::BEATING); }, [&] { go.release(); }));
    };
    start();
    expectHeldUp();
    _source.awaitWaits(1);
    beat();
    _thread->stop();
    _source.beat();
    expectHeldUp();
    _thread->join();
}

TEST_F(SeGeneratorThreadTest, WakesAThreadThatWaitsForItsEnd)
{
    std::binary_semaphore entered(0);
    std::binary_semaphore go(0);
    add(1)->onSync = [&](std::uint32_t, int) {
        entered.release();
        go.acquire();
        return true;
    };
    startBeating();
    beat();
    entered.acquire();
    std::atomic<long> waiting = 0;
    std::thread waiter([&] {
        waiting = threadNumber();
        _generator->waitState(SeGeneratorThread::STOPPED);
    });
    while (!waiting)
        std::this_thread::yield();
    waitUntilAsleep(waiting);
    EXPECT_TRUE(isHeldUp([&] { _thread->stop(); },
                         [&] {
                             EXPECT_TRUE(isState(SeGeneratorThread::STOPPING));
                             waitUntilAsleep(waiting); // again, for the last state
                             go.release();
                         }));
    waiter.join();
    EXPECT_TRUE(isState(SeGeneratorThread::STOPPED));
}

TEST_F(SeGeneratorThreadTest, ARemovalLeavesTheWakingToTheNextBeat)
{
    startBeating();
    ScriptedClient * const other = add(1);
    ScriptedClient * const client = add(1);
    EXPECT_TRUE(
        isHeldUp([&] { ObjPtr<SeClientThread> const back(_generator->removeClient(client)); },
                 [&] {
                     other->awaitAsleep();
                     EXPECT_EQ(other->record.getText(), "start;")
                         << "in its rounds of grace, any pulse counts";
                     beat();
                 }));
    other->record.awaitText("start;2 0;2 0;");
}

TEST_F(SeGeneratorThreadTest, DestroysItsClientsWithoutItsLock)
{
    bool isStopping = false;
    add(1)->onDestruction = [&] {
        std::thread([&] { isStopping = isState(SeGeneratorThread::STOPPING); }).join();
    };
    startBeating();
    _thread->stop();
    EXPECT_TRUE(isStopping);
}

TEST_F(SeGeneratorThreadTest, AThrowingDestructorOfAClientDoesNotAffectTheOthers)
{
    int nbDestroyed = 0;
    for (int i = 0; i != 3; ++i) {
        ScriptedClient * const client = add(1);
        client->nbDestroyed = &nbDestroyed;
        client->onDestruction = [] { throw std::runtime_error("no end"); };
    }
    startBeating();
    EXPECT_THROW(_thread->stop(), std::runtime_error);
    EXPECT_EQ(nbDestroyed, 3);
    EXPECT_TRUE(isState(SeGeneratorThread::STOPPED));
}

TEST_F(SeGeneratorThreadTest, TheFirstBeatReachesNoClient)
{
    ScriptedClient * const client = add(1);
    startBeating();
    EXPECT_TRUE(isState(SeGeneratorThread::BEATING));
    beat();
    client->record.awaitText("start;2 0;2 0;"); // the wake-ups of grace, from the first pulse on
    beat();
    client->record.awaitText("start;2 0;2 0;3 0;");
    beat();
    client->record.awaitText("start;2 0;2 0;3 0;4 0;");
}

TEST_F(SeGeneratorThreadTest, AFirstCountOfZeroIsAFault)
{
    ScriptedSource source;
    source.beat(0);
    SeGeneratorThread generator(source);
    EXPECT_EQ(failedAssertion([&] { generator.performExecute(_thread.get()); }), "last != 0");
    EXPECT_EQ(source.record.getText(), "start;");
}

TEST_F(SeGeneratorThreadTest, EachClientHasItsDivisor)
{
    ScriptedClient * const each = add(1);
    ScriptedClient * const third = add(3);
    startBeating();
    beat();
    each->record.awaitText("start;2 0;2 0;");
    third->awaitAsleep();
    std::string expected = "start;2 0;2 0;";
    for (int count = 3; count != 9; ++count) {
        beat();
        expected += std::to_string(count) + " 0;";
        each->record.awaitText(expected);
        third->awaitAsleep();
    }
    third->record.awaitText("start;3 0;6 0;");
}

TEST_F(SeGeneratorThreadTest, AClientOfABeatingGeneratorIsGivenItsRoundsOfGraceAtOnce)
{
    ScriptedClient * const first = add(1);
    startBeating();
    beat();
    first->record.awaitText("start;2 0;2 0;");
    ScriptedClient * const second = add(1);
    second->record.awaitText("start;2 0;2 0;");
    beat();
    second->record.awaitText("start;2 0;2 0;3 0;");
}

TEST_F(SeGeneratorThreadTest, AClientThatIsBusyIsLate)
{
    ObjPtr<SeClientThread> owned(new ScriptedClient);
    auto * const client = static_cast<ScriptedClient *>(owned.get());
    std::binary_semaphore begun(0);
    std::binary_semaphore go(0);
    client->onSync = [&](std::uint32_t count, int) {
        if (count == 3) {
            begun.release();
            go.acquire();
        }
        return false;
    };
    addAgain(owned, 1);
    EXPECT_TRUE(owned.isNull());
    client->awaitAsleep();
    startBeating();
    beat();
    client->record.awaitText("start;2 0;2 0;");
    beat();
    begun.acquire();
    for (int i = 0; i != 4; ++i)
        beat();
    go.release();
    client->record.awaitText("start;2 0;2 0;3 0;7 3;");
    beat();
    client->record.awaitText("start;2 0;2 0;3 0;7 3;8 0;");
}

TEST_F(SeGeneratorThreadTest, ARemovedClientIsReturnedAndCanBeAddedAgain)
{
    ScriptedClient * const client = add(1);
    startBeating();
    beat();
    client->record.awaitText("start;2 0;2 0;");
    unsigned const nbThreads = getNbThreads();
    _source.runFree(); // the next beat ends it
    ObjPtr<SeClientThread> back(_generator->removeClient(client));
    EXPECT_EQ(back.get(), client);
    EXPECT_EQ(getNbThreads(), nbThreads - 1);
    EXPECT_FALSE(_generator->hasClient(client));
    std::string const record = client->record.takeText();
    EXPECT_EQ(record.substr(record.size() - 4), "end;");
    EXPECT_EQ(dump(client->getPriorityNoLock()).find("syncClient=SeClient"), std::string::npos);
    addAgain(back, 1);
    EXPECT_TRUE(back.isNull());
    EXPECT_TRUE(_generator->hasClient(client));
    while (client->record.getText().size() < 100)
        std::this_thread::yield();
}

TEST_F(SeGeneratorThreadTest, ARemovedClientIsReturnedEvenIfThePriorityGraphIsInvalid)
{
    unsigned const nbThreads = getNbThreads();
    ScriptedClient * const client = add(1);
    PriorityMgr &graph = MtPriorityMgr::getInstance();
    Priority below("below", graph, 1);
    Priority above("above", graph, 2);
    PriorityRelation order("below<above", below, PriorityRelation::LESS, above);
    EXPECT_THROW(below.setPriority(3), PriorityEx);
    ObjPtr<SeClientThread> back(_generator->removeClient(client));
    EXPECT_EQ(back.get(), client);
    EXPECT_EQ(getNbThreads(), nbThreads);
    EXPECT_EQ(graph.check(), MtPriorityMgr::RELATION_INVALID);
    below.setPriority(1);
    addAgain(back, 1);
    EXPECT_TRUE(back.isNull());
}

TEST_F(SeGeneratorThreadTest, AClientIsReleasedFromAGeneratorThatIsStillStarting)
{
    start();
    _source.awaitWaits(1);
    ScriptedClient * const client = add(4);
    client->record.awaitText("start;");
    ObjPtr<SeClientThread> const back(_generator->removeClient(client));
    EXPECT_EQ(client->record.getText(), "start;end;");
    EXPECT_TRUE(isState(SeGeneratorThread::STARTING));
    EXPECT_EQ(_source.getNbWaits(), 1);
}

TEST_F(SeGeneratorThreadTest, ARemovalDuringTheStartUsesUpTheOthersGraceAndNothingElse)
{
    start();
    _source.awaitWaits(1);
    ScriptedClient * const other = add(1);
    ScriptedClient * const client = add(1);
    ObjPtr<SeClientThread> const back(_generator->removeClient(client));
    other->record.awaitText("start;0 0;0 0;");
    beat(); // which reaches it, though it is the first
    other->record.awaitText("start;0 0;0 0;1 0;");
    beat();
    other->record.awaitText("start;0 0;0 0;1 0;2 0;");
}

TEST_F(SeGeneratorThreadTest, AClientThatHasEndedByItselfIsRemovedLikeAnyOther)
{
    ObjPtr<SeClientThread> owned(new ScriptedClient);
    auto * const client = static_cast<ScriptedClient *>(owned.get());
    client->onSync = [](std::uint32_t, int) { return true; };
    addAgain(owned, 1);
    client->awaitAsleep();
    startBeating();
    beat();
    client->record.awaitText("start;2 0;end;");
    ObjPtr<SeClientThread> const back(_generator->removeClient(client));
    EXPECT_EQ(back.get(), client);
    EXPECT_EQ(client->record.getText(), "start;2 0;end;");
}

TEST_F(SeGeneratorThreadTest, AStopEndsAllClientsAndDestroysThem)
{
    int nbDestroyed = 0;
    for (int i = 0; i != 5; ++i)
        add(1 + i)->nbDestroyed = &nbDestroyed;
    startBeating();
    unsigned const nbThreads = getNbThreads();
    _thread->stop();
    EXPECT_EQ(nbDestroyed, 5);
    EXPECT_EQ(getNbThreads(), nbThreads - 5);
    EXPECT_TRUE(isState(SeGeneratorThread::STOPPED));
    EXPECT_TRUE(_thread->isRunning()); // it waits for a beat
    _thread->stop();                   // and this does nothing more
    _source.beat();
    _thread->join();
    _thread->stop();
    EXPECT_EQ(_source.record.getText(), "start;stop;");
}

TEST_F(SeGeneratorThreadTest, IsNotStoppedBeforeItHasBeaten)
{
    ScriptedClient * const client = add(1);
    start();
    _source.awaitWaits(1);
    client->record.awaitText("start;");
    std::atomic<long> stopper = 0;
    std::atomic<bool> isOver = false;
    std::thread thread([&] {
        stopper = threadNumber();
        _thread->stop();
        isOver = true;
    });
    while (!stopper)
        std::this_thread::yield();
    waitUntilAsleep(stopper);
    EXPECT_FALSE(isOver);
    EXPECT_TRUE(isState(SeGeneratorThread::STARTING));
    _source.runFree();
    thread.join();
    EXPECT_TRUE(isState(SeGeneratorThread::STOPPED));
}

TEST_F(SeGeneratorThreadTest, IsDestroyedWithoutABeatIfItWasNeverStarted)
{
    int nbDestroyed = 0;
    add(1)->nbDestroyed = &nbDestroyed;
    _thread.reset();
    EXPECT_EQ(nbDestroyed, 1);
    EXPECT_EQ(_source.record.getText(), "");
}

TEST_F(SeGeneratorThreadTest, IsNotUsedAgainAfterAStop)
{
    ScriptedClient * const client = add(1);
    startBeating();
    _thread->stop();
    ObjPtr<SeClientThread> other(new ScriptedClient);
    std::string const expected = "_sourceState != STOPPING && _sourceState != STOPPED";
    EXPECT_EQ(failedAssertion([&] { addAgain(other, 1); }), expected);
    EXPECT_FALSE(other.isNull());
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(_generator->removeClient(client)); }),
              expected);
}

TEST_F(SeGeneratorThreadTest, AClientIsAddedOnce)
{
    ScriptedClient * const client = add(1);
    ObjPtr<SeClientThread> again(client);
    EXPECT_EQ(failedAssertion([&] { addAgain(again, 1); }), "clientThreadIter == _clients.end()");
    EXPECT_EQ(again.release(), client);
}

TEST_F(SeGeneratorThreadTest, AClientIsRemovedOnce)
{
    ScriptedClient * const client = add(1);
    ObjPtr<SeClientThread> const back(_generator->removeClient(client));
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(_generator->removeClient(client)); }),
              "clientThreadIter != _clients.end()");
}

TEST_F(SeGeneratorThreadTest, IsNotDestroyedWhileItBeats)
{
    class Failing : public ScriptedSource
    {
    public:
        std::uint32_t waitSync() override
        {
            if (++_nbBeats == 2)
                throw std::runtime_error("no cable");
            return _nbBeats;
        }

    private:
        std::uint32_t _nbBeats = 0;
    };
    Failing source;
    auto * const generator = new SeGeneratorThread(source);
    EXPECT_THROW(generator->performExecute(_thread.get()), std::runtime_error);
    EXPECT_TRUE(generator->isState(SeGeneratorThread::BEATING));
    EXPECT_EQ(failedAssertion([&] { delete generator; }),
              "_sourceState == STARTING || _sourceState == STOPPED");
}

TEST_F(SeGeneratorThreadTest, AClientIsDestroyedIfItsThreadCannotBeStarted)
{
    int nbDestroyed = 0;
    ScriptedClient * const other = add(1);
    other->record.awaitText("start;");
    ObjPtr<SeClientThread> owned(new ScriptedClient);
    static_cast<ScriptedClient *>(owned.get())->nbDestroyed = &nbDestroyed;
    unsigned const nbThreads = getNbThreads();
    refuseThread(1);
    EXPECT_EQ(failedAssertion([&] { addAgain(owned, 1); }), "threadHandle != NULL");
    EXPECT_TRUE(owned.isNull());
    EXPECT_EQ(nbDestroyed, 1);
    EXPECT_EQ(getNbThreads(), nbThreads);
    startBeating();
    _source.runFree();
    ObjPtr<SeClientThread> const back(_generator->removeClient(other));
}

TEST_F(SeGeneratorThreadTest, HasAHigherPriorityThanRealTimeWorkAndItsClients)
{
    Priority &mine = _thread->getPriority();
    EXPECT_EQ(mine.getPriority(),
              RtPriorities::getInstance().getRealTimePriority().getPriority() + 1);
    EXPECT_NE(dump(mine).find("rt<sync-gen"), std::string::npos) << dump(mine);
    ScriptedClient * const client = add(1);
    EXPECT_NE(dump(mine).find("client<generator"), std::string::npos) << dump(mine);
    {
        PriorityRelation const high("test", RtPriorities::getInstance().getRealTimePriority(),
                                    PriorityRelation::LESS, client->getPriorityNoLock());
        EXPECT_EQ(client->getPriorityNoLock().getPriority(), 2);
        EXPECT_EQ(mine.getPriority(), 3);
    }
    ObjPtr<SeClientThread> const back(_generator->removeClient(client));
    EXPECT_EQ(dump(mine).find("client<generator"), std::string::npos);
    ObjPtr<MtThreadProtocol> const generator(_thread->detachProtocol());
    EXPECT_EQ(dump(mine).find("rt<sync-gen"), std::string::npos);
    _thread.reset();
}

TEST_F(SeGeneratorThreadTest, WritesItsSourceAndItsClients)
{
    std::ostringstream empty;
    _generator->dump(empty);
    EXPECT_EQ(empty.str(), "Source: scripted source");
    ScriptedClient * const one = add(1, "one");
    ScriptedClient * const two = add(1, "two");
    one->record.awaitText("start;");
    two->record.awaitText("start;");
    std::ostringstream stream;
    _generator->dump(stream);
    std::istringstream lines(stream.str());
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "Source: scripted source");
    for (char const * const name : {"one", "two"}) {
        std::getline(lines, line);
        EXPECT_NE(line.find(std::string(17, ' ') + name + " prio   0"), std::string::npos)
            << stream.str();
    }
    EXPECT_FALSE(std::getline(lines, line));
    EXPECT_NE(stream.str().back(), '\n');
}

TEST_F(SeGeneratorThreadTest, WritesWithoutItsMutex)
{
    ScriptedClient * const one = add(1, "one");
    one->record.awaitText("start;");
    auto const work = [this] { static_cast<void>(_generator->hasClient(nullptr)); };
    std::string const text =
        writtenDuring(work, [this](std::ostream &stream) { _generator->dump(stream); });
    EXPECT_TRUE(text.starts_with("Source: scripted source\n0x")) << text;
}

TEST_F(SeGeneratorThreadTest, AStateThatIsPastNeedsNoWaiting)
{
    startBeating();
    _generator->waitState(SeGeneratorThread::STARTING);
    _generator->waitState(SeGeneratorThread::BEATING);
    _thread->stop();
    _generator->waitState(SeGeneratorThread::BEATING);
    _generator->waitState(SeGeneratorThread::STOPPED);
}

// ---- the engine

class SeSyncEngineTest : public testing::Test, protected TestAccess<SeSyncEngine>
{
protected:
    ~SeSyncEngineTest() noexcept override
    {
        for (ScriptedSource * const source : {&_source, &_other})
            source->runFree();
        destroyEngine(_engine);
    }

    ScriptedClient *add(ScriptedSource &source, std::int32_t divisor = 1)
    {
        ObjPtr<SeClientThread> client(new ScriptedClient);
        auto * const added = static_cast<ScriptedClient *>(client.get());
        _engine->addClient("client", client, source, divisor);
        EXPECT_TRUE(client.isNull());
        added->awaitAsleep();
        return added;
    }
    int getNbGenerators() const
    {
        std::string const text = getDump();
        EXPECT_EQ(text.substr(0, 12), "generators:\n");
        return static_cast<int>(text.size() == 12 ? 0 : std::count(text.begin(), text.end(), '\n'));
    }
    std::string getDump() const
    {
        std::ostringstream stream;
        stream << *_engine;
        return stream.str();
    }
    std::string removalFailure(SeClientThread *client)
    {
        return failedAssertion([&] { static_cast<void>(_engine->removeClient(client)); });
    }

    SeSyncEngine *_engine = makeEngine();
    ScriptedSource _source;
    ScriptedSource _other;
};

TEST_F(SeSyncEngineTest, IsOneForTheProcess)
{
    EXPECT_EQ(&SeSyncEngine::getInstance(), &SeSyncEngine::getInstance());
    SeSyncEngine::getInstance().stop(); // with nothing to stop
}

TEST_F(SeSyncEngineTest, MakesOneGeneratorForEachSource)
{
    unsigned const nbThreads = getNbThreads();
    EXPECT_EQ(getNbGenerators(), 0);
    add(_source);
    EXPECT_EQ(getNbGenerators(), 1);
    add(_source);
    EXPECT_EQ(getNbGenerators(), 1);
    add(_other); // equal, but another object
    EXPECT_EQ(getNbGenerators(), 2);
    EXPECT_EQ(getNbThreads(), nbThreads + 5);
}

TEST_F(SeSyncEngineTest, ClientsRunWithTheirSource)
{
    ScriptedClient * const client = add(_source);
    ScriptedClient * const stranger = add(_other);
    _source.beat();
    _source.awaitWaits(2);
    _source.beat();
    client->record.awaitText("start;2 0;2 0;");
    stranger->record.awaitText("start;");
}

TEST_F(SeSyncEngineTest, AskingWhetherASourceBeatsStartsItsGenerator)
{
    EXPECT_FALSE(_engine->isSyncGenBeating(_source));
    EXPECT_EQ(getNbGenerators(), 1);
    _source.awaitWaits(1);
    EXPECT_FALSE(_engine->isSyncGenBeating(_source));
    EXPECT_EQ(getNbGenerators(), 1);
    _source.beat();
    _source.awaitWaits(2);
    EXPECT_TRUE(_engine->isSyncGenBeating(_source));
    EXPECT_EQ(_source.record.getText(), "start;");
}

TEST_F(SeSyncEngineTest, WaitsUntilASourceBeats)
{
    std::atomic<long> waiter = 0;
    std::atomic<bool> isOver = false;
    std::thread thread([&] {
        waiter = threadNumber();
        _engine->waitSyncGenBeating(_source);
        isOver = true;
    });
    _source.awaitWaits(1);
    waitUntilAsleep(waiter);
    EXPECT_FALSE(isOver);
    _source.beat();
    thread.join();
    EXPECT_TRUE(_engine->isSyncGenBeating(_source));
    _engine->waitSyncGenBeating(_source);
}

TEST_F(SeSyncEngineTest, IsHeldUpWhileAnotherThreadWaitsForTheFirstBeat)
{
    std::thread waiter([&] { _engine->waitSyncGenBeating(_source); });
    _source.awaitWaits(1); // the waiter has the lock, or it would not have made the generator
    bool isBeating = false;
    EXPECT_TRUE(
        isHeldUp([&] { isBeating = _engine->isSyncGenBeating(_source); }, [&] { _source.beat(); }));
    EXPECT_TRUE(isBeating);
    waiter.join();
}

TEST_F(SeSyncEngineTest, IsHeldUpWhileAnotherThreadRemovesAClient)
{
    std::binary_semaphore entered(0);
    std::binary_semaphore go(0);
    ScriptedClient * const client = add(_source);
    client->onSync = [&](std::uint32_t, int) {
        entered.release();
        go.acquire();
        return true;
    };
    for (int beats = 1; beats != 3; ++beats) {
        _source.beat();
        _source.awaitWaits(beats + 1);
    }
    entered.acquire();
    std::atomic<long> remover = 0;
    ObjPtr<SeClientThread> back;
    std::thread thread([&] {
        remover = threadNumber();
        back = _engine->removeClient(client);
    });
    while (!remover)
        std::this_thread::yield();
    waitUntilAsleep(remover);
    EXPECT_TRUE(isHeldUp([&] { _engine->isSyncGenBeating(_source); }, [&] { go.release(); }));
    thread.join();
    EXPECT_EQ(back.get(), client);
}

/// A thread that reports another client than the one that it runs.
class LyingThread : public StubThread
{
public:
    LyingThread(ObjPtr<MtThread> thread, MtThreadProtocol *claimed)
        : _thread(thread), _claimed(claimed)
    {}
    void start() override { _thread->start(); }
    void stop() override { _thread->stop(); }
    void join() override { _thread->join(); }
    MtThreadProtocol *getProtocol() const override { return _claimed; }

private:
    ObjPtr<MtThread> _thread;
    MtThreadProtocol *_claimed;
};

class LyingFactory : public MtThreadFactory
{
public:
    explicit LyingFactory(MtThreadProtocol *claimed) : _claimed(claimed) {}
    ObjPtrRet<MtThread> createThread(LiString const &name, ObjPtr<MtThreadProtocol> protocol,
                                     bool terminateOnUnhandled, unsigned stackSize) override
    {
        return ObjPtrRet<MtThread>(
            new LyingThread(MtThreadFactory::getInstance().createThread(
                                name, protocol, terminateOnUnhandled, stackSize),
                            _claimed));
    }
    int getMinPriority() const override { return 0; }
    int getMaxPriority() const override { return 6; }

protected:
    ObjPtrRet<MtThread> createMainThread(LiString const &, MtThreadMgr &) override
    {
        return nullptr;
    }

private:
    MtThreadProtocol *_claimed;
};

TEST_F(SeSyncEngineTest, AClientThatTwoGeneratorsHaveIsAFault)
{
    ScriptedClient * const client = add(_source);
    static_cast<void>(_engine->isSyncGenBeating(_other));
    ObjPtr<SeClientThread> second(new ScriptedClient);
    LyingFactory factory(client);
    getLastGenerator(*_engine).addClient("second", second, 1, factory);
    EXPECT_EQ(removalFailure(client), "!( foundOverall == true && foundThisSyncGen == true )");
}

TEST_F(SeSyncEngineTest, GivesARemovedClientBack)
{
    ScriptedClient * const client = add(_source);
    _source.runFree();
    ObjPtr<SeClientThread> back(_engine->removeClient(client));
    EXPECT_EQ(back.get(), client);
    EXPECT_EQ(removalFailure(client), "clientThreadIter != _clients.end()");
    _engine->addClient("again", back, _other, 2);
    EXPECT_TRUE(back.isNull());
}

TEST_F(SeSyncEngineTest, AClientThatIsNotThereCannotBeRemoved)
{
    ScriptedClient client;
    EXPECT_EQ(removalFailure(&client), "foundOverall");
    static_cast<void>(_engine->isSyncGenBeating(_source));
    EXPECT_EQ(removalFailure(&client), "clientThreadIter != _clients.end()");
}

TEST_F(SeSyncEngineTest, OnlyClientsOfTheFirstGeneratorCanBeRemoved)
{
    ScriptedClient * const first = add(_source);
    ScriptedClient * const second = add(_other);
    _source.runFree();
    _other.runFree();
    EXPECT_EQ(removalFailure(second), "clientThreadIter != _clients.end()");
    ObjPtr<SeClientThread> const back(_engine->removeClient(first));
    EXPECT_EQ(back.get(), first);
    EXPECT_EQ(getNbGenerators(), 2);
    while (second->record.getText().size() < 100) // it continues
        std::this_thread::yield();
}

TEST_F(SeSyncEngineTest, AClientIsAddedOnce)
{
    ScriptedClient * const client = add(_source);
    ObjPtr<SeClientThread> again(client);
    EXPECT_EQ(failedAssertion([&] { _engine->addClient("again", again, _source, 1); }),
              "clientThreadIter == _clients.end()");
    EXPECT_EQ(again.release(), client);
}

TEST_F(SeSyncEngineTest, ANullClientIsRefusedBeforeAGeneratorIsMade)
{
    ObjPtr<SeClientThread> client;
    EXPECT_THROW(_engine->addClient("null", client, _source, 1), RCEx::ExNullPtr);
    EXPECT_EQ(getNbGenerators(), 0);
}

TEST_F(SeSyncEngineTest, AStopEndsAllGeneratorsAndLeavesTheEngineUsable)
{
    int nbDestroyed = 0;
    unsigned const nbThreads = getNbThreads();
    add(_source)->nbDestroyed = &nbDestroyed;
    add(_source)->nbDestroyed = &nbDestroyed;
    add(_other)->nbDestroyed = &nbDestroyed;
    _source.runFree();
    _other.runFree();
    _engine->stop();
    EXPECT_EQ(getDump(), "generators:\n");
    EXPECT_EQ(nbDestroyed, 3);
    EXPECT_EQ(getNbThreads(), nbThreads);
    EXPECT_EQ(_source.record.getText(), "start;stop;");
    EXPECT_EQ(_other.record.getText(), "start;stop;");
    _engine->stop();
    add(_source);
    EXPECT_EQ(getNbGenerators(), 1);
    _engine->waitSyncGenBeating(_source);
}

TEST_F(SeSyncEngineTest, ItsEndStopsAllGenerators)
{
    SeSyncEngine * const engine = makeEngine();
    int nbDestroyed = 0;
    ObjPtr<SeClientThread> client(new ScriptedClient);
    static_cast<ScriptedClient *>(client.get())->nbDestroyed = &nbDestroyed;
    engine->addClient("client", client, _source, 1);
    _source.runFree();
    destroyEngine(engine);
    EXPECT_EQ(nbDestroyed, 1);
    EXPECT_EQ(_source.record.getText(), "start;stop;");
}

TEST_F(SeSyncEngineTest, NoGeneratorIsKeptIfItsThreadCannotBeStarted)
{
    refuseThread(1);
    EXPECT_EQ(failedAssertion([&] { static_cast<void>(_engine->isSyncGenBeating(_source)); }),
              "threadHandle != NULL");
    EXPECT_EQ(getNbGenerators(), 0);
    _source.runFree();
    _engine->waitSyncGenBeating(_source);
    EXPECT_EQ(getNbGenerators(), 1);
}

TEST_F(SeSyncEngineTest, WritesWithoutItsLock)
{
    static_cast<void>(_engine->isSyncGenBeating(_source));
    auto const work = [this] { static_cast<void>(_engine->isSyncGenBeating(_source)); };
    std::string const text =
        writtenDuring(work, [this](std::ostream &stream) { stream << *_engine; });
    EXPECT_TRUE(text.starts_with("generators:\n0x")) << text;
}

TEST_F(SeSyncEngineTest, WritesALineForEachGenerator)
{
    ScriptedSource left("left");
    ScriptedSource right("right");
    static_cast<void>(_engine->isSyncGenBeating(left));
    static_cast<void>(_engine->isSyncGenBeating(right));
    std::istringstream lines(getDump());
    std::string line;
    std::getline(lines, line);
    EXPECT_EQ(line, "generators:");
    std::getline(lines, line);
    EXPECT_NE(line.find(std::string(16, ' ') + "left prio   2"), std::string::npos) << line;
    std::getline(lines, line);
    EXPECT_NE(line.find(std::string(15, ' ') + "right prio   2"), std::string::npos) << line;
    EXPECT_FALSE(std::getline(lines, line));
    left.runFree();
    right.runFree();
    _engine->stop();
}

TEST_F(SeSyncEngineTest, NoBeatIsLostHoweverBusyTheMachineIs)
{
    struct Client
    {
        std::int32_t divisor;
        std::atomic<int> nbRuns = 0;
        std::atomic<int> nbFaults = 0;
        std::uint32_t last = 0;
    };
    std::vector<std::unique_ptr<Client>> clients;
    for (std::int32_t const divisor : {1, 1, 2, 3, 5, 7, 10, 100}) {
        Client &client = *clients.emplace_back(new Client{divisor});
        ObjPtr<SeClientThread> owned(new ScriptedClient);
        static_cast<ScriptedClient *>(owned.get())->onSync = [&client](std::uint32_t count,
                                                                       int late) {
            // After the wake-ups of grace, two runs are a period apart, plus the lateness of the
            // second.
            if (client.nbRuns > 2 &&
                count - client.last != static_cast<std::uint32_t>(client.divisor + late))
                ++client.nbFaults;
            client.last = count;
            ++client.nbRuns;
            return false;
        };
        _engine->addClient("busy", owned, _source, divisor);
    }
    _source.runFree();
    for (auto const &client : clients) {
        while (client->nbRuns < 50)
            std::this_thread::yield();
        EXPECT_EQ(client->nbFaults, 0);
    }
    _engine->stop();
}

TEST_F(SeSyncEngineTest, TheClockPacesItsClients)
{
    SeSourceClock &clock = SeSourceClock::getInstance();
    clock.setInterval(0.001);
    std::counting_semaphore<> runs(0);
    ObjPtr<SeClientThread> client(new ScriptedClient);
    static_cast<ScriptedClient *>(client.get())->onSync = [&](std::uint32_t count, int late) {
        EXPECT_GT(count, 0U);
        EXPECT_GE(late, 0);
        runs.release();
        return false;
    };
    _engine->addClient("paced", client, clock, 2);
    for (int i = 0; i != 10; ++i)
        runs.acquire();
    EXPECT_TRUE(_engine->isSyncGenBeating(clock));
    _engine->stop();
    clock.setInterval(SeSourceClock::getDefaultInterval());
}

using SeSyncEngineDeathTest = SeSyncEngineTest;

TEST_F(SeSyncEngineDeathTest, AFailureOfTheWorkEndsTheProcess)
{
    EXPECT_EXIT(
        {
            ObjPtr<SeClientThread> client(new ScriptedClient);
            static_cast<ScriptedClient *>(client.get())->onSync = [](std::uint32_t, int) -> bool {
                throw std::runtime_error("no picture");
            };
            _engine->addClient("failing", client, _source, 1);
            _source.runFree();
            std::binary_semaphore(0).acquire();
        },
        aborted(), "no picture");
}

} // namespace
} // namespace ZvTest
