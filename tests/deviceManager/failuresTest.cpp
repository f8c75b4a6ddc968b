#include "fakeDevices.h"

#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/locks/lkSema.h"
#include "testing/aborted.h"
#include "zvbase/logTestUtil.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

/// Device that finishes a step when a test tells it to.
class ByHand : public RecordingSequence
{
public:
    using RecordingSequence::RecordingSequence;

    void complete()
    {
        ObjPtr<DevACO> const aco(_aco);
        aco->performExecute();
    }

private:
    void finish(ObjPtr<DevACO> aco) override { _aco = aco; }

    ObjPtr<DevACO> _aco;
};

/// Handler that logs the failures. It returns, so the manager's thread continues.
class Handler : public DevMgrFailureHandler
{
public:
    Handler(Journal &journal, LkUnnamedSema &handled) : _journal(journal), _handled(handled) {}

    void handle(DevMgrFailure const &failure) override
    {
        std::string text = "device " + std::string(failure.device.getChars()) + ", property " +
                           failure.property.getChars() + ", state " + failure.state.getChars() +
                           ", event " + failure.event.getChars() + ": ";
        try {
            std::rethrow_exception(failure.exception);
        } catch (ExBase const &exception) {
            text += exception.getReason();
        } catch (std::exception const &exception) {
            text += exception.what();
        } catch (int number) {
            text += std::to_string(number);
        }
        _journal.add(text);
        _handled.post();
    }

private:
    Journal &_journal;
    LkUnnamedSema &_handled;
};

class EndingHandler : public DevMgrFailureHandler
{
public:
    void handle(DevMgrFailure const &failure) override
    {
        std::rethrow_exception(failure.exception);
    }
};

class SeqObserver : public DevSeqObserver
{
public:
    explicit SeqObserver(std::function<void(std::string const &)> onState)
        : _onState(std::move(onState))
    {}
    void stateChanged(LiString const &device, LiString const &state) override
    {
        _onState((device + " " + state).getChars());
    }

private:
    std::function<void(std::string const &)> _onState;
};

/// The sequence ( root ( a b ) ), and the failures on the manager's thread.
class Failures : public testing::Test
{
protected:
    Failures() { access->configure("( root ( a b ) )"); }
    ~Failures() noexcept override {}

    Registered device(char const *name)
    {
        return Registered(name, [this, name] {
            auto * const made = new ByHand(name, journal);
            devices[name] = made;
            return RCShdPtr<DevMDPrtcl>(made);
        });
    }
    void handle() { manager->setFailureHandler(makeShd<Handler>(failures, handled)); }
    void observe(std::function<void(std::string const &)> onState)
    {
        access->setObserver(makeShd<SeqObserver>(std::move(onState)));
    }
    void completeUntil(char const *name, char const *state)
    {
        devices.at(name)->complete();
        while (access->getState(name) != state)
            std::this_thread::yield();
    }
    void lock()
    {
        access->start();
        for (char const *name : {"a", "b"})
            completeUntil(name, "wml");
        completeUntil("root", "sync");
        completeUntil("root", "lock");
        for (char const *name : {"a", "b"})
            completeUntil(name, "lock");
    }
    /// Ends the process of a death test, without destroying its objects.
    [[noreturn]] static void exitWith(int code)
    {
        LgLog::flush();
        std::_Exit(code);
    }
    static void waitForTheEnd() { LkUnnamedSema("never", 0, LkSemaTypes::Shared()).wait(); }

    Journal journal;
    Journal failures;
    LkUnnamedSema handled{"handled", 0, LkSemaTypes::Shared()};
    std::map<std::string, ByHand *> devices;
    Registered const root = device("root");
    Registered const a = device("a");
    Registered const b = device("b");
    ObjPtr<DevMgr> manager = DevMgr::create();
    ObjPtr<DevMgrSyncSeqAcc> access = manager->createSyncSeqAcc();
};

using FailuresDeathTest = Failures;

TEST_F(Failures, ASecondStartIsAFailureOfTheRootAndCanBeQueried)
{
    access->start();
    EXPECT_FALSE(access->getFailure("root"));
    access->start();
    EXPECT_EQ(access->getState("root"), "_ill");
    auto const failure = access->getFailure("root");
    ASSERT_TRUE(failure);
    std::ostringstream text;
    text << *failure;
    EXPECT_EQ(text.str(), "device root: event \"start\" in state \"start\": illegal event");
    EXPECT_THROW((void)access->getFailure("nobody"), DevMgrEx::NameNotFound);
}

TEST_F(FailuresDeathTest, ReportOfADeviceThatWasStartedTwiceIsTracedAndEndsTheProcess)
{
    for (char const *line :
         {"Unhandled exception on \"DevMgr ANO\". device root: event \"ready\" in state \"_ill\": ",
          "node root comes to _ill: event \"start\" in state \"start\": illegal event"})
        EXPECT_EXIT(
            {
                access->start();
                access->start();
                devices.at("root")->complete();
                waitForTheEnd();
            },
            aborted(), line);
}

TEST_F(FailuresDeathTest, ReportOfADeviceThatWasStoppedTwiceIsTracedAndEndsTheProcess)
{
    EXPECT_EXIT(
        {
            lock();
            access->stop();
            access->stop();
            completeUntil("a", "final");
            waitForTheEnd();
        },
        aborted(),
        "device root: event \"sstopped\" in state \"_ill\": .*State machine error condition.");
}

TEST_F(Failures, HandlerLetsTheProcessContinueAfterASecondStop)
{
    handle();
    lock();
    access->stop();
    access->stop();
    EXPECT_EQ(access->getState("root"), "_ill");
    completeUntil("a", "final");
    handled.wait();
    completeUntil("b", "final");
    handled.wait();
    std::string const line =
        "device root, property , state _ill, event sstopped: State machine error condition.";
    EXPECT_EQ(failures.take(), (Lines{line, line}));
}

TEST_F(Failures, HandlerGetsEveryExceptionOnTheManagersThread)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    mediator->setFailureHandler(makeShd<Handler>(failures, handled));
    produce(*mediator->getFifo(), [] { throw std::runtime_error("report lost"); });
    handled.wait();
    produce(*mediator->getFifo(), [] { throw 42; });
    handled.wait();
    ObjPtr<DevANO> failing(new CallANO([] {}));
    failing->setACO(makeACO([] { throw std::runtime_error("nobody waits"); }));
    produce(*mediator->getFifo(), failing);
    handled.wait();
    EXPECT_EQ(failures.take(), (Lines{"device , property , state , event : report lost",
                                      "device , property , state , event : 42",
                                      "device , property , state , event : nobody waits"}));
}

class FailsToEndANO : public CallANO
{
public:
    FailsToEndANO() : CallANO([] {}) {}
    ~FailsToEndANO() noexcept(false) override { throw std::runtime_error("the end of a report"); }
};

TEST_F(Failures, HandlerGetsTheExceptionOfAReportsDestructor)
{
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    mediator->setFailureHandler(makeShd<Handler>(failures, handled));
    ObjPtr<DevANO> failing(new FailsToEndANO);
    produce(*mediator->getFifo(), failing);
    LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
    produce(*mediator->getFifo(), [&] { done.post(); });
    done.wait(); // the next request is executed nevertheless
    handled.wait();
    EXPECT_EQ(failures.take(), Lines{"device , property , state , event : the end of a report"});
}

TEST_F(FailuresDeathTest, HandlerThatThrowsEndsTheProcess)
{
    EXPECT_EXIT(
        {
            RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
            mediator->setFailureHandler(makeShd<EndingHandler>());
            produce(*mediator->getFifo(), [] { throw std::runtime_error("report lost"); });
            waitForTheEnd();
        },
        aborted(), "Unhandled exception on \"DevMgr ANO\". report lost");
}

TEST_F(FailuresDeathTest, ProcessEndsAgainWhenTheHandlerHasBeenTakenAway)
{
    EXPECT_EXIT(
        {
            handle();
            manager->setFailureHandler(nullptr);
            access->start();
            access->start();
            devices.at("root")->complete();
            waitForTheEnd();
        },
        aborted(), "Unhandled exception");
}

TEST_F(Failures, DeliveryContinuesIfTheSequenceObserverThrows)
{
    observe([](std::string const &line) {
        if (line == "root start")
            throw std::runtime_error("my observer failed");
    });
    EXPECT_THROW(access->start(), std::runtime_error);
    EXPECT_EQ(journal.take(), (Lines{"start root", "start a", "start b"}));
    EXPECT_EQ(access->getState("b"), "start");
}

TEST_F(Failures, HandlerIsCalledIfTheSequenceObserverThrows)
{
    handle();
    observe([](std::string const &line) {
        if (line == "a ready")
            throw std::runtime_error("my observer failed");
    });
    access->start();
    completeUntil("a", "wml");
    handled.wait();
    EXPECT_EQ(failures.take(),
              Lines{"device a, property , state ready, event : my observer failed"});
    completeUntil("b", "wml");
    completeUntil("root", "sync"); // root has counted a
}

TEST_F(FailuresDeathTest, SequenceObserverThatThrowsOnTheManagersThreadEndsTheProcess)
{
    EXPECT_EXIT(
        {
            observe([](std::string const &line) {
                if (line == "a ready")
                    throw std::runtime_error("my observer failed");
            });
            access->start();
            devices.at("a")->complete();
            waitForTheEnd();
        },
        aborted(), "\"DevMgr ANO\". device a: in state \"ready\": my observer failed");
}

// Runs in a process of its own, because the devices that are left behind are never closed.
TEST_F(FailuresDeathTest, AccessThatItsObserverDestroysFailsAnAssertion)
{
    EXPECT_EXIT(
        {
            observe([this](std::string const &line) {
                if (line != "root start")
                    return;
                manager = nullptr;
                try {
                    access = nullptr;
                } catch (AssertionFailed const &failure) {
                    journal.add(failure.getExpression());
                }
            });
            DevMgrSyncSeqAcc &destroyed = *access;
            destroyed.start();
            exitWith(journal.take() == Lines{"start root", "!isDestroyedByItsOwnCallback",
                                             "start a", "start b"}
                         ? 0
                         : 1);
        },
        testing::ExitedWithCode(0), "Assertion \"!isDestroyedByItsOwnCallback\" failed");
}

TEST_F(FailuresDeathTest, AccessThatItsObserverDestroysOnTheManagersThreadFailsAnAssertion)
{
    EXPECT_EXIT(
        {
            LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
            observe([&](std::string const &line) {
                if (line == "a wml") {
                    done.post();
                } else if (line == "a ready") {
                    manager = nullptr;
                    try {
                        access = nullptr;
                    } catch (AssertionFailed const &) {
                        journal.add("failed");
                    }
                }
            });
            access->start();
            journal.take();
            devices.at("a")->complete();
            done.wait();
            exitWith(journal.take() == Lines{"failed"} ? 0 : 1);
        },
        testing::ExitedWithCode(0), "Assertion \"!isDestroyedByItsOwnCallback\" failed");
}

TEST_F(FailuresDeathTest, AccessThatItsDeviceDestroysFailsAnAssertion)
{
    class Destroying : public PromptSequence
    {
    public:
        Destroying(Journal &lines, ObjPtr<DevMgrSyncSeqAcc> &sequence)
            : PromptSequence("c", lines), _sequence(sequence)
        {}
        void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO>, ObjPtr<DevANO>) override
        {
            EXPECT_THROW(_sequence = nullptr, AssertionFailed);
            exitWith(aco.isNull() ? 1 : 0);
        }

    private:
        ObjPtr<DevMgrSyncSeqAcc> &_sequence;
    };
    EXPECT_EXIT(
        {
            ObjPtr<DevMgrSyncSeqAcc> sequence = manager->createSyncSeqAcc();
            Registered const c(
                "c", [&] { return RCShdPtr<DevMDPrtcl>(new Destroying(journal, sequence)); });
            sequence->configure("( c )");
            sequence->start();
            exitWith(2);
        },
        testing::ExitedWithCode(0), "Assertion \"!isDestroyedByItsOwnCallback\" failed");
}

TEST_F(FailuresDeathTest, ManagerThatIsDestroyedOnItsOwnThreadFailsAnAssertion)
{
    EXPECT_EXIT(
        {
            RCShdPtr<DevMgrMediator> mediator(new DevMgrMediator);
            Registered const c(
                "c", [this] { return RCShdPtr<DevMDPrtcl>(new RecordingAccess("c", journal)); });
            {
                LkGuard<LkLock const> const guard(mediator->getLock());
                mediator->createPrtcl("c");
            }
            RCShdPtr<DevMgrFifo> const fifo = mediator->getFifo();
            LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
            produce(*fifo, [&] {
                try {
                    mediator = nullptr;
                } catch (AssertionFailed const &failure) {
                    journal.add(failure.getExpression());
                }
            });
            produce(*fifo, [&] { done.post(); }); // the thread must continue
            done.wait();
            exitWith(journal.take() == Lines{"open c", "!isDestroyedOnDevMgrANO"} ? 0 : 1);
        },
        testing::ExitedWithCode(0), "Assertion \"!isDestroyedOnDevMgrANO\" failed");
}

// A client may ask for states while another one configures. It sees no tree or the whole tree.
TEST_F(Failures, SequenceIsSeenWholeWhileItIsConfigured)
{
    constexpr int NB_DEVICES = 40;
    std::vector<std::unique_ptr<Registered>> registered;
    std::string config = "( 0 ( ";
    for (int i = 0; i < NB_DEVICES; ++i) {
        std::string const name = std::to_string(i);
        registered.push_back(std::make_unique<Registered>(name.c_str(), [this, name] {
            return RCShdPtr<DevMDPrtcl>(new PromptSequence(name, journal));
        }));
        if (i > 0)
            config += name + " ";
    }
    config += ") )";
    for (int round = 0; round < 20; ++round) {
        ObjPtr<DevMgr> const own = DevMgr::create();
        ObjPtr<DevMgrSyncSeqAcc> const sequence = own->createSyncSeqAcc();
        std::atomic<long> nbAsked{0};
        std::thread asking([&] {
            for (;;) {
                try {
                    EXPECT_EQ(sequence->getState(std::to_string(NB_DEVICES - 1).c_str()), "init");
                    return;
                } catch (RCEx::ExNullPtr const &) { // there is no tree yet
                    ++nbAsked;
                }
            }
        });
        while (!nbAsked)
            std::this_thread::yield();
        sequence->configure(config.c_str());
        asking.join();
    }
}

} // namespace
} // namespace ZvTest
