#include "resmgt/threads/mtThread.h"
#include "testing/meeting.h"

#include "platform/services.h"
#include "resmgt/locks/lkEvent.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/mtThreadMgr.h"
#include "resmgt/threads/mtThreadStart.private.h"
#include "resmgt/threads/mtThreadWindows.private.h"
#include "resmgt/threads/priority.h"
#include "resmgt/threads/rtPriorities.h"
#include "resmgt/threads/threadsStatics.private.h"
#include "testing/aborted.h"
#include "testing/askingStream.h"
#include "testing/asleep.h"
#include "testing/callingThread.h"
#include "threads/threadTesting.h"
#include "zvbase/envVar.h"
#include "zvbase/lgLog.h"
#include "zvbase/trace.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <cstring>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

namespace Zv {

template <>
struct TestAccess<MtThreadWindows>
{
    static MtThreadWindows &imp(MtThread &thread)
    {
        return dynamic_cast<MtThreadWindows &>(thread);
    }
    /// Returns whether a starter would find that it has met its thread already.
    static bool isMet(MtThread &thread) { return imp(thread)._started.tryWait(); }
    static unsigned getStackSize(MtThread &thread) { return imp(thread)._stackSize; }
    static void execute(void *data) { MtThreadWindows::execute(data); }
    static void setException(MtThread &thread, ExBase *exception)
    {
        LkGuard<LkLock const> const state(imp(thread)._stateLock);
        imp(thread)._exception.reset(exception);
    }
    static int getPriorityValue(MtThread &thread)
    {
        LkGuard<LkLock const> const state(imp(thread)._stateLock);
        return imp(thread)._priorityValue;
    }
    static bool isTerminating(MtThread &thread) { return imp(thread)._terminateOnUnhandled; }
    /// Waits until the thread has ended, without joining it.
    static void awaitEnd(MtThread &thread)
    {
        ZvPlatform::Handle handle;
        {
            LkGuard<LkLock const> const state(imp(thread)._stateLock);
            handle = imp(thread)._threadHandle;
        }
        ASSERT_EQ(::WaitForSingleObject(handle, INFINITE), WAIT_OBJECT_0);
    }
    static bool hasEnded(MtThread &thread)
    {
        LkGuard<LkLock const> const state(imp(thread)._stateLock);
        return ::WaitForSingleObject(imp(thread)._threadHandle, 0) == WAIT_OBJECT_0;
    }
    static void setPriorityValue(MtThread &thread, int level)
    {
        imp(thread).setPriorityValue(level);
    }
};

} // namespace Zv

namespace ZvTest {

using namespace Zv;

/// Reaches the private members of the platform's thread by short names.
class MtThreadWindowsTest : public ThreadTest, protected TestAccess<MtThreadWindows>
{};

namespace {

using MtThreadTest = MtThreadWindowsTest;
using MtThreadDeathTest = MtThreadWindowsTest;

/// Thread that runs functions for the test until it is stopped.
class AskedThread
{
public:
    AskedThread()
        : _thread(makeThread("asked", [this](TestProtocol &, MtThread *) {
              for (;;) {
                  _asked.acquire();
                  if (!_question)
                      return;
                  _question();
                  _answered.release();
              }
          }))
    {}
    ~AskedThread()
    {
        if (_thread->isRunning())
            end();
    }

    MtThread &operator*() { return *_thread; }
    MtThread *operator->() { return _thread.get(); }
    void ask(std::function<void()> question)
    {
        _question = std::move(question);
        _asked.release();
        if (_question)
            _answered.acquire();
    }
    void end()
    {
        _question = nullptr;
        _asked.release();
        _thread->join();
    }
    std::set<int> getProcessors()
    {
        std::set<int> processors;
        ask([&] { processors = ZvTest::getProcessors(); });
        return processors;
    }

private:
    std::function<void()> _question;
    std::binary_semaphore _asked{0};
    std::binary_semaphore _answered{0};
    ObjPtr<MtThread> _thread;
};

TEST_F(MtThreadTest, RunsItsBodyAndEndsWithIt)
{
    LkThreadId id;
    MtThread *current = nullptr;
    MtThread *given = nullptr;
    ObjPtr<MtThread> const thread = makeThread("body", [&](TestProtocol &, MtThread *self) {
        id.setCurrentThread();
        current = MtThreadMgr::findCurrentThread();
        given = self;
        EXPECT_TRUE(self->isRunning());
        EXPECT_EQ(self->getThreadId(), id);
    });
    EXPECT_FALSE(thread->isRunning());
    EXPECT_TRUE(thread->getThreadId().isNull());
    EXPECT_EQ(thread->getName(), "body");
    thread->start();
    thread->join();
    EXPECT_FALSE(thread->isRunning());
    EXPECT_TRUE(thread->getThreadId().isNull());
    EXPECT_FALSE(id.isCurrentThread());
    EXPECT_EQ(current, thread.get());
    EXPECT_EQ(given, thread.get());
}

TEST_F(MtThreadTest, StartBeforeThreadsAreAllowedFailsTheAssertion)
{
    ObjPtr<MtThread> const thread = makeThread("early", [](TestProtocol &, MtThread *) {});
    TestAccess<MtThread>::setCanStart(false);
    EXPECT_EQ(failedAssertion([&] { thread->start(); }), "canStart()");
    EXPECT_FALSE(thread->isRunning());
    TestAccess<MtThread>::setCanStart(true);
    thread->start();
    thread->join();
}

TEST_F(MtThreadTest, SecondStartWithoutJoinFailsTheAssertion)
{
    int nbRuns = 0;
    ObjPtr<MtThread> const thread =
        makeThread("twice", [&](TestProtocol &, MtThread *) { ++nbRuns; });
    thread->start();
    EXPECT_EQ(failedAssertion([&] { thread->start(); }), "!isRunningNoLock()");
    thread->join();
    thread->start();
    thread->join();
    EXPECT_EQ(nbRuns, 2);
}

TEST_F(MtThreadTest, SecondJoinReturnsAtOnce)
{
    ObjPtr<MtThread> const thread = makeThread("joined", [](TestProtocol &, MtThread *) {});
    thread->join(); // it has never run
    thread->start();
    thread->join();
    thread->join();
    EXPECT_FALSE(thread->isRunning());
}

TEST_F(MtThreadTest, ManyMayJoinOneThread)
{
    for (int round = 0; round != 20; ++round) {
        ObjPtr<MtThread> const thread = makeWaitingThread();
        thread->start();
        Latch ready(4);
        std::vector<std::thread> joiners;
        for (int i = 0; i != 3; ++i)
            joiners.emplace_back([&] {
                ready.arrive_and_wait();
                thread->join();
                EXPECT_FALSE(thread->isRunning());
            });
        ready.arrive_and_wait();
        thread->stop();
        for (std::thread &joiner : joiners)
            joiner.join();
    }
}

TEST_F(MtThreadTest, ALateJoinDoesNotAffectTheNextRun)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    std::atomic<bool> isOver = false;
    thread->start();
    std::thread joiner([&] {
        while (!isOver)
            thread->join();
    });
    for (int round = 0; round != 50; ++round) {
        thread->stop();
        thread->join();
        thread->start();
        EXPECT_TRUE(thread->isRunning());
        EXPECT_FALSE(thread->getThreadId().isNull());
    }
    isOver = true;
    thread->stop();
    joiner.join();
}

/// Protocol with a `performStop` that the test can replace.
class StopCalling : public MtThreadProtocol
{
public:
    void performExecute(MtThread *) override { go.acquire(); }
    void performStop(MtThread *thread) override { onStop(thread); }

    std::counting_semaphore<> go{0};
    std::function<void(MtThread *)> onStop = [this](MtThread *) { go.release(); };
};

TEST_F(MtThreadTest, AJoinThatReturnsAfterARestartDoesNotAffectTheNewRun)
{
    auto * const protocol = new StopCalling;
    ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
        "restarted", ObjPtr<MtThreadProtocol>(protocol), true, 0);
    thread->start();
    std::atomic<long> number{0};
    std::thread joiner([&] {
        number = threadNumber();
        thread->join();
    });
    while (!number)
        std::this_thread::yield();
    waitUntilAsleep(number);
    auto const usual = protocol->onStop;
    protocol->onStop = [protocol](MtThread *self) { // called under the thread's lock
        protocol->go.release();
        self->join();
        self->start();
    };
    thread->stop();
    joiner.join();
    EXPECT_TRUE(thread->isRunning());
    EXPECT_FALSE(thread->getThreadId().isNull());
    protocol->onStop = usual;
}

TEST_F(MtThreadTest, AThreadIsNotTakenForOneThatHasEndedAndWasNotJoined)
{
    std::vector<ObjPtr<MtThread>> threads;
    for (int i = 0; i != 5; ++i) {
        MtThread *found = nullptr;
        threads.emplace_back(makeThread("ended", [&found](TestProtocol &, MtThread *) {
            found = MtThreadMgr::findCurrentThread();
        }));
        threads.back()->start();
        awaitEnd(*threads.back());
        EXPECT_EQ(found, threads.back().get());
        std::thread([&] { found = MtThreadMgr::findCurrentThread(); }).join();
        EXPECT_EQ(found, nullptr);
    }
}

TEST_F(MtThreadTest, StackSizeOfZeroIs65536Bytes)
{
    std::size_t nbWritten = 0;
    ObjPtr<MtThread> const thread = makeThread("stack", [&](TestProtocol &, MtThread *) {
        std::array<unsigned char volatile, 56 * 1024> block;
        for (std::size_t i = 0; i != block.size(); i += 512, ++nbWritten)
            block[i] = 1;
    });
    EXPECT_EQ(getStackSize(*thread), 65536u);
    thread->start();
    thread->join();
    EXPECT_EQ(nbWritten, 112u);
}

TEST_F(MtThreadTest, StackSizeIsTheCallersToChoose)
{
    std::size_t nbWritten = 0;
    ObjPtr<MtThread> const thread = makeThread(
        "stack",
        [&](TestProtocol &, MtThread *) {
            std::array<unsigned char volatile, 900 * 1024> block;
            for (std::size_t i = 0; i != block.size(); i += 1024, ++nbWritten)
                block[i] = 1;
        },
        1024 * 1024);
    EXPECT_EQ(getStackSize(*thread), 1024u * 1024u);
    thread->start();
    thread->join();
    EXPECT_EQ(nbWritten, 900u);
}

TEST_F(MtThreadTest, FirstFifteenBytesOfTheNameReachTheSystem)
{
    std::string name;
    ObjPtr<MtThread> const thread = makeThread(
        "a name that is too long", [&](TestProtocol &, MtThread *) { name = getName(); });
    thread->start();
    thread->join();
    EXPECT_EQ(name.substr(0, 15), "a name that is "); // some systems keep more
}

std::string getNameOfThread(std::string const &given)
{
    std::string name;
    ObjPtr<MtThread> const thread =
        makeThread(given.c_str(), [&](TestProtocol &, MtThread *) { name = getName(); });
    thread->start();
    thread->join();
    return name;
}

#ifndef _WIN32
TEST_F(MtThreadTest, TheBytesOfANameReachTheSystemUnchanged)
{
    for (std::string const given : {"gr\xC3\xB6\xC3\x9F"
                                    "e",
                                    "\xE2\x82\xAC 5", "\xF0\x9F\x8E\xAC film",
                                    "Gr\xF6\xDF"
                                    "e",
                                    "\xC3",
                                    "a\x80\xBF"
                                    "b",
                                    "\xED\xA0\x80", "\xF5\x80\x80\x80", "\xC0\xAF"})
        EXPECT_EQ(getNameOfThread(given), given);
    // A character is never divided.
    EXPECT_EQ(getNameOfThread("fourteen bytes\xC3\xB6"), "fourteen bytes");
    EXPECT_EQ(getNameOfThread("eleven byte\xF0\x9F\x8E\xAC and more"),
              "eleven byte\xF0\x9F\x8E\xAC");
}
#else
TEST_F(MtThreadTest, ANameReachesTheSystemAsText)
{
    EXPECT_EQ(getNameOfThread("gr\xC3\xB6\xC3\x9F"
                              "e"),
              "gr\xF6\xDF"
              "e"); // its characters are below 256
}
#endif

TEST_F(MtThreadTest, ExecutionWithoutThreadFailsTheAssertion)
{
    EXPECT_EQ(failedAssertion([] { execute(nullptr); }), "data");
}

// ---- cancelling

TEST_F(MtThreadTest, CancelOfAThreadThatDidNotEnableItDoesNothing)
{
    AskedThread thread;
    thread->cancel(); // not running
    thread->start();
    EXPECT_FALSE(thread->isCancelable());
    thread->cancel();
    bool isAlive = false;
    thread.ask([&] { isAlive = true; });
    EXPECT_TRUE(isAlive);
    thread.ask([&] {
        EXPECT_TRUE(thread->enableCancel());
        EXPECT_FALSE(thread->enableCancel());
        EXPECT_TRUE(thread->isCancelable());
        EXPECT_TRUE(thread->disableCancel());
        EXPECT_FALSE(thread->disableCancel());
    });
    thread->cancel();
    isAlive = false;
    thread.ask([&] { isAlive = true; });
    EXPECT_TRUE(isAlive);
}

TEST_F(MtThreadTest, QuestionsAboutCancellingNeedARunningThread)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    EXPECT_EQ(failedAssertion([&] { thread->isCancelable(); }), "isRunning()");
    EXPECT_EQ(failedAssertion([&] { thread->enableCancel(); }), "!check || isRunningNoLock()");
    EXPECT_EQ(failedAssertion([&] { thread->disableCancel(); }), "!check || isRunningNoLock()");
    thread->testCancel();
}

TEST_F(MtThreadTest, AThreadIsNotCancelableAfterItsBody)
{
    ObjPtr<MtThread> const thread =
        makeThread("ended", [](TestProtocol &, MtThread *self) { self->enableCancel(); });
    thread->start();
    std::thread([&] { thread->join(); }).join();
    thread->cancel();
    EXPECT_FALSE(thread->isRunning());
    for (int round = 0; round != 20; ++round) {
        thread->start();
        thread->cancel(); // the thread is in its body, behind it, or has ended
        thread->join();
    }
}

class CanceledProtocol : public MtThreadProtocol
{
public:
    explicit CanceledProtocol(std::vector<std::string> &calls) : _calls(calls) {}

    void performAttach(MtThread *) override { _calls.push_back("attach"); }
    void performDetach(MtThread *) override { _calls.push_back("detach"); }
    void performExecute(MtThread *thread) override
    {
        thread->enableCancel();
        ready.set();
        never.wait();
    }
    void performCanceled(MtThread *) override { _calls.push_back("canceled"); }
    void performStop(MtThread *) override { _calls.push_back("stop"); }

    // A thread that is killed while it waits for an event of the system holds no lock.
    LkEvent ready{"ready", false};
    LkEvent never{"never", false};

private:
    std::vector<std::string> &_calls;
};

TEST_F(MtThreadTest, CancelKillsAThreadThatEnabledItAndNotifiesTheProtocol)
{
    std::vector<std::string> calls;
    auto * const protocol = new CanceledProtocol(calls);
    {
        ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
            "killed", ObjPtr<MtThreadProtocol>(protocol), true, 0);
        for (int round = 0; round != 3; ++round) {
            thread->start();
            protocol->ready.wait();
            protocol->ready.reset();
            EXPECT_TRUE(thread->isCancelable());
            thread->cancel();
            EXPECT_TRUE(thread->isRunning());
            thread->join();
            EXPECT_FALSE(thread->isRunning());
        }
        EXPECT_EQ(calls, (std::vector<std::string>{"attach", "canceled", "canceled", "canceled"}));
        calls.clear();
    }
    EXPECT_EQ(calls, (std::vector<std::string>{"stop", "detach"}));
}

TEST_F(MtThreadTest, AThreadIsKilledOnce)
{
    std::vector<std::string> calls;
    auto * const protocol = new CanceledProtocol(calls);
    ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
        "killed", ObjPtr<MtThreadProtocol>(protocol), true, 0);
    thread->start();
    protocol->ready.wait();
    thread->cancel();
    EXPECT_FALSE(thread->isCancelable());
    thread->cancel();
    EXPECT_EQ(calls, (std::vector<std::string>{"attach", "canceled"}));
    thread->join();
}

TEST_F(MtThreadTest, AThreadThatHasComeBackFromDisablingIsNotKilled)
{
    for (int round = 0; round != 20; ++round) {
        std::atomic<bool> isBegun{false}, isProtected{false};
        ObjPtr<MtThread> const thread = makeThread("toggling", [&](TestProtocol &, MtThread *self) {
            for (;;) {
                self->enableCancel();
                isBegun = true;
                self->disableCancel();
                isProtected = true;
                isProtected = false;
            }
        });
        // At the lowest level it would hardly run on a busy machine.
        PriorityRelation const relation("toggling",
                                        RtPriorities::getInstance().getInterruptPriority(),
                                        PriorityRelation::EQUAL, thread->getPriority());
        thread->start();
        while (!isBegun)
            std::this_thread::yield();
        do
            thread->cancel();
        while (!hasEnded(*thread));
        thread->join();
        EXPECT_FALSE(isProtected);
    }
}

class CanceledFailing : public MtThreadProtocol
{
public:
    void performExecute(MtThread *thread) override
    {
        thread->enableCancel();
        ready.set();
        never.wait();
    }
    void performCanceled(MtThread *) override { throw std::runtime_error("no"); }

    LkEvent ready{"ready", false};
    LkEvent never{"never", false};
};

TEST_F(MtThreadTest, TheLogLetsACanceledThreadGoAlsoIfItsProtocolFails)
{
    auto * const protocol = new CanceledFailing;
    ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
        "killed", ObjPtr<MtThreadProtocol>(protocol), true, 0);
    thread->start();
    protocol->ready.wait();
    unsigned long const number = thread->getThreadId().getNumber();
    EXPECT_THROW(thread->cancel(), std::runtime_error);
    EXPECT_FALSE(LgLog::creatorExit(number)); // it has exited already
    thread->join();
}

// ---- callbacks and the thread's lock

class LockedProtocol : public MtThreadProtocol
{
public:
    void performExecute(MtThread *thread) override
    {
        thread->enableCancel();
        ready.set();
        never.wait();
    }
    void performCanceled(MtThread *thread) override { look(thread); }
    void performStop(MtThread *thread) override { look(thread); }

    LkEvent ready{"ready", false};
    LkEvent never{"never", false};
    std::vector<std::unique_ptr<Blocked>> looks;

private:
    void look(MtThread *thread)
    {
        looks.push_back(std::make_unique<Blocked>([thread] { thread->getProtocol(); }));
    }
};

TEST_F(MtThreadTest, StoppingAndCancelingAreNotifiedUnderTheThreadsLock)
{
    auto * const protocol = new LockedProtocol;
    ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
        "locked", ObjPtr<MtThreadProtocol>(protocol), true, 0);
    thread->start();
    protocol->ready.wait();
    thread->stop();
    thread->cancel();
    ASSERT_EQ(protocol->looks.size(), 2u);
    for (auto const &look : protocol->looks)
        EXPECT_TRUE(look->wasBlocked());
    thread->join();
    protocol->looks.clear(); // the thread's destructor calls performStop again
    ObjPtr<MtThreadProtocol> const taken(thread->detachProtocol());
}

// ---- protocol

TEST_F(MtThreadTest, ThreadGivesItsProtocolAwayAfterDetaching)
{
    std::vector<std::string> calls;
    auto * const protocol = new CanceledProtocol(calls);
    ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
        "detached", ObjPtr<MtThreadProtocol>(protocol), true, 0);
    EXPECT_EQ(thread->getProtocol(), protocol);
    EXPECT_EQ(thread->getProtocolNoLock(), protocol);
    ObjPtr<MtThreadProtocol> const taken(thread->detachProtocol());
    EXPECT_EQ(taken.get(), protocol);
    EXPECT_EQ(thread->getProtocol(), nullptr);
    EXPECT_EQ(calls, (std::vector<std::string>{"attach", "detach"}));
    thread->stop();
    thread->start();
    thread->join();
    thread.reset();
    EXPECT_EQ(calls, (std::vector<std::string>{"attach", "detach"}));
}

class FailingAttach : public TestProtocol
{
public:
    FailingAttach() : TestProtocol([](TestProtocol &, MtThread *) {}) {}
    void performAttach(MtThread *) override { throw std::runtime_error("no"); }
};

TEST_F(MtThreadTest, ThreadIsNeitherMadeNorRegisteredIfItsProtocolFailsToAttach)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    EXPECT_THROW(MtThreadFactory::getInstance()
                     .createThread("failing", ObjPtr<MtThreadProtocol>(new FailingAttach), true, 0)
                     .isNull(),
                 std::runtime_error);
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
}

class DetachFailing : public TestProtocol
{
public:
    DetachFailing() : TestProtocol([](TestProtocol &, MtThread *) {}) {}
    void performDetach(MtThread *) override { throw std::runtime_error("no"); }
};

TEST_F(MtThreadTest, ThreadIsUnregisteredEvenIfItsProtocolFailsToDetach)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
        "failing", ObjPtr<MtThreadProtocol>(new DetachFailing), true, 0);
    EXPECT_THROW(thread.reset(), std::runtime_error);
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
    try {
        ObjPtr<MtThread> const unwound = MtThreadFactory::getInstance().createThread(
            "failing", ObjPtr<MtThreadProtocol>(new DetachFailing), true, 0);
        throw 1;
    } catch (int) {
    }
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
}

/// Throws in `performStop`, although the body ends. Records the calls after that.
class StopFailing : public TestProtocol
{
public:
    StopFailing(bool &hasEnded, bool &isDetached)
        : TestProtocol([&](TestProtocol &protocol, MtThread *) {
              protocol.waitForStop();
              hasEnded = true;
          }),
          _hasEnded(hasEnded),
          _isDetached(isDetached)
    {}
    void performStop(MtThread *thread) override
    {
        TestProtocol::performStop(thread);
        throw std::runtime_error("no");
    }
    void performDetach(MtThread *) override { _isDetached = _hasEnded; }

private:
    bool &_hasEnded;
    bool &_isDetached;
};

TEST_F(MtThreadTest, ThreadIsWaitedForEvenIfItsProtocolFailsToStop)
{
    unsigned const nbThreads = MtThreadMgr::getInstance().getNbThreads();
    bool hasEnded = false, isDetached = false;
    ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
        "failing", ObjPtr<MtThreadProtocol>(new StopFailing(hasEnded, isDetached)), true, 0);
    thread->start();
    EXPECT_THROW(thread.reset(), std::runtime_error);
    EXPECT_TRUE(isDetached);
    EXPECT_EQ(MtThreadMgr::getInstance().getNbThreads(), nbThreads);
}

TEST_F(MtThreadTest, DestructionRethrowsAStoredExceptionAfterDetaching)
{
    std::vector<std::string> calls;
    auto * const protocol = new CanceledProtocol(calls);
    ObjPtr<MtThread> thread = MtThreadFactory::getInstance().createThread(
        "stored", ObjPtr<MtThreadProtocol>(protocol), false, 0);
    thread->start();
    protocol->ready.wait();
    thread->cancel();
    setException(*thread, new MtEx::ExNotImplemented("f", 1, "body"));
    EXPECT_THROW(thread.reset(), MtEx::ExThrownException);
    EXPECT_EQ(calls, (std::vector<std::string>{"attach", "canceled", "stop", "detach"}));
}

TEST_F(MtThreadTest, DestructionStopsAndJoins)
{
    std::atomic<bool> hasEnded = false;
    {
        ObjPtr<MtThread> const thread =
            makeThread("destroyed", [&](TestProtocol &protocol, MtThread *) {
                protocol.waitForStop();
                hasEnded = true;
            });
        thread->start();
    }
    EXPECT_TRUE(hasEnded);
}

class ReenteringProtocol : public MtThreadProtocol
{
public:
    void performExecute(MtThread *) override { _stop.acquire(); }
    void performStop(MtThread *thread) override
    {
        _isRunning = thread->isRunning();
        thread->setProcessorNb(thread->getProcessorNb());
        _stop.release();
    }
    void performDetach(MtThread *thread) override
    {
        // Another thread can take the thread's lock during this call.
        std::thread([thread] { thread->getProtocol(); }).join();
    }
    bool _isRunning = false;

private:
    std::counting_semaphore<> _stop{0};
};

TEST_F(MtThreadTest, CallbacksMayCallBackAndDetachingHoldsNoLock)
{
    auto * const protocol = new ReenteringProtocol;
    ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
        "reentering", ObjPtr<MtThreadProtocol>(protocol), true, 0);
    thread->start();
    thread->stop();
    EXPECT_TRUE(protocol->_isRunning);
    thread->join();
}

// ---- priority

TEST_F(MtThreadTest, LevelIsKeptAndAppliedAtTheStart)
{
    AskedThread thread;
    EXPECT_EQ(getPriorityValue(*thread), -15); // a free node has the lowest value
    PriorityRelation const relation("interrupt", RtPriorities::getInstance().getInterruptPriority(),
                                    PriorityRelation::EQUAL, thread->getPriority());
    EXPECT_EQ(getPriorityValue(*thread), 15);
    thread->start();
    std::ostringstream os;
    thread->dump(os);
    EXPECT_NE(os.str().find(" prio   6 NTprio "), std::string::npos) << os.str();
    thread.end();
}

TEST_F(MtThreadTest, EachLevelHasItsSystemValue)
{
    AskedThread thread;
    thread->start();
    int const values[] = {-15, -2, -1, 0, 1, 2, 15};
    for (int level = 0; level != 7; ++level) {
        setPriorityValue(*thread, level);
        EXPECT_EQ(getPriorityValue(*thread), values[level]);
        std::ostringstream os;
        thread->dump(os);
        EXPECT_NE(os.str().find(" prio   " + std::to_string(level)), std::string::npos) << os.str();
    }
    EXPECT_THROW(setPriorityValue(*thread, 7), ProgramAborted);
    EXPECT_THROW(setPriorityValue(*thread, -1), ProgramAborted);
    thread.end();
}

/// Destroys a relation of its thread while the thread's lock is held.
class RelatingProtocol : public TestProtocol
{
public:
    RelatingProtocol()
        : TestProtocol([](TestProtocol &protocol, MtThread *) { protocol.waitForStop(); })
    {}
    void performAttach(MtThread *thread) override
    {
        _relation.reset(new PriorityRelation("relating",
                                             RtPriorities::getInstance().getRealTimePriority(),
                                             PriorityRelation::LESS_EQUAL, thread->getPriority()));
    }
    void performStop(MtThread *thread) override
    {
        _relation.reset();
        TestProtocol::performStop(thread);
    }

private:
    ObjPtr<PriorityRelation> _relation;
};

TEST_F(MtThreadTest, CallbacksMayChangeThePrioritiesWhileOthersSolveThem)
{
    std::atomic<bool> isOver = false;
    ObjPtr<MtThread> const other = makeWaitingThread("other");
    std::thread solver([&] {
        while (!isOver) {
            PriorityRelation const relation("solver",
                                            RtPriorities::getInstance().getBaseLinePriority(),
                                            PriorityRelation::LESS_EQUAL, other->getPriority());
            std::ostringstream os;
            os << MtThreadMgr::getInstance();
        }
    });
    for (int round = 0; round != 30; ++round) {
        ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
            "relating", ObjPtr<MtThreadProtocol>(new RelatingProtocol), true, 0);
        thread->start();
        thread->stop();
        thread->join();
    }
    isOver = true;
    solver.join();
}

// ---- processors

TEST_F(MtThreadTest, ProcessorNumberIsRememberedAndAppliedAtTheStart)
{
    AskedThread thread;
    EXPECT_TRUE(thread->isProcessorPlaceable());
    EXPECT_EQ(thread->getProcessorNb(), -1);
    int const processor = *getProcessors().begin();
    thread->setProcessorNb(processor);
    EXPECT_EQ(thread->getProcessorNb(), processor);
    thread->start();
    EXPECT_EQ(thread.getProcessors(), std::set<int>{processor});
}

class RunOnGuard
{
public:
    explicit RunOnGuard(char const *assignment)
    {
        EnvVar::putEnv(assignment);
        ThreadsStatics::runOn.refresh();
    }
    ~RunOnGuard()
    {
        EnvVar::putEnv("ZV_RUNON=");
        ThreadsStatics::runOn.refresh();
    }
};

TEST_F(MtThreadTest, PlacingAtTheStartCanBeSwitchedOffAndPlacingOfARunningThreadCannot)
{
    RunOnGuard const off("ZV_RUNON=0");
    std::set<int> const all = getProcessors();
    AskedThread thread;
    int const processor = *all.begin();
    thread->setProcessorNb(processor);
    thread->start();
    EXPECT_EQ(thread.getProcessors(), all);
    EXPECT_EQ(thread->getProcessorNb(), processor);
    thread->setProcessorNb(processor);
    EXPECT_EQ(thread.getProcessors(), std::set<int>{processor});
}

TEST_F(MtThreadTest, ProcessorNumbersCountModulo32AndMinusOneIsAllOfTheProcess)
{
    std::set<int> const all = getProcessors();
    if (!all.contains(1))
        GTEST_SKIP() << "the process may not use processor 1 of this machine";
    AskedThread thread;
    thread->start();
    thread->setProcessorNb(33);
    EXPECT_EQ(thread->getProcessorNb(), 33);
    EXPECT_EQ(thread.getProcessors(), std::set<int>{1});
    thread->setProcessorNb(-1);
    EXPECT_EQ(thread->getProcessorNb(), -1);
    EXPECT_EQ(thread.getProcessors(), all);
}

TEST_F(MtThreadTest, AProcessorThatIsNotThereFailsTheAssertionAndIsNotRemembered)
{
    if (getProcessors().contains(31))
        GTEST_SKIP() << "this machine has a processor 31";
    AskedThread thread;
    thread->start();
    EXPECT_EQ(failedAssertion([&] { thread->setProcessorNb(31); }),
              "::SetThreadAffinityMask( _threadHandle, mask )");
    EXPECT_EQ(thread->getProcessorNb(), -1);
}

TEST_F(MtThreadTest, AThreadHasTheProcessorsOfTheProcessAndNotOfItsStarter)
{
    std::set<int> const all = getProcessors();
    AskedThread starter, child;
    starter->setProcessorNb(*all.begin());
    starter->start();
    starter.ask([&] { child->start(); });
    EXPECT_EQ(child->getProcessorNb(), -1);
    EXPECT_EQ(child.getProcessors(), all);
}

TEST_F(MtThreadTest, AStarterThatDoesNotMeetItsThreadFindsItRunning)
{
    std::binary_semaphore go{0};
    bool isNamed = false;
    bool hasQueue = false;
    ObjPtr<MtThread> const thread = makeThread("unmet", [&](TestProtocol &, MtThread *self) {
        go.acquire();
        isNamed = getName() == "unmet";
        hasQueue = LgLog::getRegistry().hasQueue(LgLog::getQueue());
        EXPECT_EQ(self->getThreadId(), LkThreadId(LkThreadId::CURRENT_THREAD));
    });
    for (int round = 0; round != 10; ++round) {
        if (round % 2)
            thread->start();
        else
            startWithoutMeeting(*thread);
        EXPECT_TRUE(thread->isRunning());
        EXPECT_FALSE(thread->getThreadId().isNull());
        go.release();
        thread->join();
        EXPECT_FALSE(thread->isRunning());
        EXPECT_TRUE(std::exchange(isNamed, false));
        EXPECT_TRUE(std::exchange(hasQueue, false));
        EXPECT_FALSE(isMet(*thread)) << "the next starter would not wait for its thread";
    }
}

TEST_F(MtThreadTest, AThreadThatIsPlacedMeetsItsStarterInAnyCase)
{
    if (getProcessors().contains(31))
        GTEST_SKIP() << "this machine has a processor 31";
    int nbRuns = 0;
    ObjPtr<MtThread> const thread =
        makeThread("displaced", [&](TestProtocol &, MtThread *) { ++nbRuns; });
    thread->setProcessorNb(31);
    EXPECT_EQ(failedAssertion([&] { startWithoutMeeting(*thread); }),
              "::SetThreadAffinityMask( _threadHandle, mask )");
    EXPECT_FALSE(thread->isRunning());
    thread->setProcessorNb(-1);
    startWithoutMeeting(*thread);
    thread->join();
    EXPECT_EQ(nbRuns, 1);
}

TEST_F(MtThreadTest, AThreadOfAnotherClassIsStartedAsItsClassDoes)
{
    class Started : public StubThread
    {
    public:
        void start() override { hasStarted = true; }
        bool hasStarted = false;
    };
    Started thread;
    startWithoutMeeting(thread);
    EXPECT_TRUE(thread.hasStarted);
}

TEST_F(MtThreadTest, AThreadThatCannotBePlacedFailsItsStartAndRunsNoBody)
{
    if (getProcessors().contains(31))
        GTEST_SKIP() << "this machine has a processor 31";
    int nbRuns = 0;
    ObjPtr<MtThread> const thread =
        makeThread("displaced", [&](TestProtocol &, MtThread *) { ++nbRuns; });
    thread->setProcessorNb(31);
    for (int round = 0; round != 3; ++round) {
        EXPECT_EQ(failedAssertion([&] { thread->start(); }),
                  "::SetThreadAffinityMask( _threadHandle, mask )");
        EXPECT_FALSE(thread->isRunning());
        EXPECT_TRUE(thread->getThreadId().isNull());
        EXPECT_EQ(thread->getProcessorNb(), 31);
    }
    // Other threads can take its lock, and it can still run.
    std::thread([&] { thread->setProcessorNb(-1); }).join();
    thread->start();
    thread->join();
    EXPECT_EQ(nbRuns, 1);
}

TEST_F(MtThreadTest, AThreadThatHasEndedOnlyRemembersItsProcessor)
{
    std::binary_semaphore known(0);
    HANDLE self = nullptr;
    ObjPtr<MtThread> const thread = makeThread("ended", [&](TestProtocol &, MtThread *) {
        HANDLE const process = ::GetCurrentProcess();
        EXPECT_TRUE(::DuplicateHandle(process, ::GetCurrentThread(), process, &self, 0, FALSE,
                                      DUPLICATE_SAME_ACCESS));
        known.release();
    });
    thread->start();
    known.acquire();
    ASSERT_EQ(::WaitForSingleObject(self, INFINITE), WAIT_OBJECT_0);
    ::CloseHandle(self);
    EXPECT_TRUE(thread->isRunning()); // it is not joined
    thread->setProcessorNb(0);
    EXPECT_EQ(thread->getProcessorNb(), 0);
    thread->join();
}

TEST_F(MtThreadTest, AThreadOfAnotherKindCannotBePlacedByDefault)
{
    StubThread thread;
    EXPECT_FALSE(thread.isProcessorPlaceable());
    EXPECT_EQ(thread.getProcessorNb(), -1);
    try {
        thread.setProcessorNb(0);
        FAIL();
    } catch (MtEx::ExNotImplemented const &failure) {
        EXPECT_STREQ(failure.getReason(), "Feature not implemented: MtThread::setProcessorNb");
    }
}

// ---- stored exceptions, dump

TEST_F(MtThreadTest, StoredExceptionEndsTheProcessIfTheThreadIsCreatedSo)
{
    using Factory = MtThreadFactory;
    auto const isTerminatingThread = [](auto... arguments) {
        ObjPtr<MtThread> const thread =
            Factory::getInstance().createThread("thread", nullptr, arguments...);
        return isTerminating(*thread);
    };
    EXPECT_TRUE(isTerminatingThread());
    EXPECT_TRUE(isTerminatingThread(Factory::StoredException::TERMINATE));
    EXPECT_FALSE(isTerminatingThread(Factory::StoredException::KEEP));
    EXPECT_TRUE(isTerminatingThread(true, 0U));
    EXPECT_FALSE(isTerminatingThread(false, 0U));
}

TEST_F(MtThreadTest, StackSizeIsPassedOnWithTheNamedArguments)
{
    ObjPtr<MtThread> const thread = MtThreadFactory::getInstance().createThread(
        "thread", nullptr, MtThreadFactory::StoredException::KEEP, 0x20000);
    EXPECT_EQ(getStackSize(*thread), 0x20000U);
}

TEST_F(MtThreadTest, JoinRethrowsAStoredExceptionOnce)
{
    ObjPtr<MtThread> const thread = makeWaitingThread();
    thread->start();
    setException(*thread, new MtEx::ExNotImplemented("f", 1, "body"));
    std::ostringstream os;
    thread->dump(os);
    EXPECT_NE(os.str().find(" ex? Feature not implemented: body runon -1"), std::string::npos)
        << os.str();
    // If the exception is still stored when the thread ends, the process ends.
    ExBase * const exception = new MtEx::ExNotImplemented("f", 1, "body");
    setException(*thread, nullptr);
    ObjPtr<MtThread> const tolerant = MtThreadFactory::getInstance().createThread(
        "tolerant",
        ObjPtr<MtThreadProtocol>(
            new TestProtocol([](TestProtocol &protocol, MtThread *) { protocol.waitForStop(); })),
        false, 0);
    tolerant->start();
    setException(*tolerant, exception);
    tolerant->stop();
    try {
        tolerant->join();
        FAIL();
    } catch (MtEx::ExThrownException const &failure) {
        EXPECT_STREQ(failure.getReason(), "Feature not implemented: body");
    }
    EXPECT_FALSE(tolerant->isRunning());
    tolerant->join();
}

TEST_F(MtThreadTest, DumpIsOneLineOfFixedFields)
{
    ObjPtr<MtThread> const thread = makeWaitingThread("dumped");
    thread->setProcessorNb(0);
    std::ostringstream os;
    thread->dump(os);
    EXPECT_EQ(
        os.str(),
        "0x     0              dumped prio   0 NTprio   1 pol RR SYSTEM ex? no exception runon  0");
}

TEST_F(MtThreadTest, DumpWritesWithoutTheLock)
{
    ObjPtr<MtThread> const thread = makeWaitingThread("dumped");
    auto const work = [&thread] { static_cast<void>(thread->getProcessorNb()); };
    EXPECT_EQ(
        writtenDuring(work, [&thread](std::ostream &os) { thread->dump(os); }),
        "0x     0              dumped prio   0 NTprio   1 pol RR SYSTEM ex? no exception runon -1");
}

TEST_F(MtThreadTest, DumpOfARunningThreadHasItsNumber)
{
    ObjPtr<MtThread> const thread = makeWaitingThread("a name of more than twenty bytes");
    thread->start();
    std::ostringstream os, expected;
    thread->dump(os);
    expected << thread->getThreadId()
             << "a name of more than twenty bytes prio   0 NTprio   1 pol RR SYSTEM ex? no "
                "exception runon -1";
    EXPECT_EQ(os.str(), expected.str());
}

// ---- ends of the process

class ThreadEndsDeathTest : public MtThreadWindowsTest
{
protected:
    /// Stores an exception in a thread and joins it.
    static void joinWithAStoredException()
    {
        ObjPtr<MtThread> const thread = makeWaitingThread();
        thread->start();
        setException(*thread, new MtEx::ExNotImplemented("f", 1, "x"));
        thread->stop();
        thread->join();
        std::_Exit(0);
    }
};

TEST_F(ThreadEndsDeathTest, AnExceptionThatLeavesTheBodyEndsTheProcess)
{
    EXPECT_EXIT(
        {
            ObjPtr<MtThread> const thread = makeThread(
                "failing", [](TestProtocol &, MtThread *) { throw std::runtime_error("lost"); });
            thread->start();
            thread->join();
            std::_Exit(0);
        },
        aborted(), "lost");
}

TEST_F(ThreadEndsDeathTest, AStoredExceptionEndsTheProcessAtTheEndOfTheThread)
{
    EXPECT_EXIT(joinWithAStoredException(), aborted(), "");
}

TEST_F(ThreadEndsDeathTest, TheTraceReportsAStoredException)
{
    EXPECT_EXIT(
        {
            ThreadsStatics::threadLevel->setEnabled(true);
            joinWithAStoredException();
        },
        aborted(), "Terminating on unhandled exception\\.\n");
}

TEST_F(ThreadEndsDeathTest, TheLinesOfABodyThatThrowsAreWritten)
{
    EXPECT_EXIT(
        {
            ObjPtr<MtThread> const thread = makeThread("failing", [](TestProtocol &, MtThread *) {
                ZV_TRACE(*Trace::MainTraceLevel, "LAST WORDS");
                throw std::runtime_error("lost");
            });
            thread->start();
            thread->join();
            std::_Exit(0);
        },
        aborted(), "LAST WORDS");
}

// Ten other threads start and end them. Each start and each end waits for the thread, and on a
// loaded machine that thread waits for a processor.
TEST_F(MtThreadTest, ThousandThreadsComeAndGo)
{
    constexpr std::size_t NB_STARTERS = 10;
    constexpr std::size_t NB_THREADS = 1000;
    MtThreadMgr &manager = MtThreadMgr::getInstance();
    unsigned const nbThreads = manager.getNbThreads();
    std::vector<ObjPtr<MtThread>> threads(NB_THREADS);
    auto const forEach = [&threads](auto action) {
        std::vector<std::thread> starters;
        for (std::size_t starter = 0; starter != NB_STARTERS; ++starter)
            starters.emplace_back([&threads, &action, starter] {
                for (std::size_t i = starter; i < NB_THREADS; i += NB_STARTERS)
                    action(threads[i]);
                MtSpecificDataRegistry::getInstance().removeSpecificData();
            });
        for (std::thread &starter : starters)
            starter.join();
    };
    forEach([](ObjPtr<MtThread> &thread) {
        thread = makeWaitingThread();
        thread->start();
    });
    EXPECT_EQ(manager.getNbThreads(), nbThreads + NB_THREADS);
    for (ObjPtr<MtThread> const &thread : threads)
        EXPECT_EQ(manager.findThread(thread->getThreadId()), thread.get());
    forEach([](ObjPtr<MtThread> &thread) { thread = nullptr; });
    EXPECT_EQ(manager.getNbThreads(), nbThreads);
}

} // namespace

} // namespace ZvTest
