// Tests of forked children: what a child may do, and what happens to the library's threads.
#include "resmgt/locks/lkCondVar.h"
#include "resmgt/locks/lkEvent.h"
#include "resmgt/locks/lkMutex.h"
#include "resmgt/locks/lkNamedSema.h"
#include "resmgt/locks/lkRecLock.h"
#include "resmgt/locks/lkRwLock.h"
#include "threads/threadTesting.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

constexpr unsigned LONG_TIME = 60; // seconds

template <class Body>
void expectGoodChild(Body const &body)
{
    pid_t const child = fork();
    if (child == 0) {
        alarm(LONG_TIME);
        body();
        _exit(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
}

void useNewLocks()
{
    LkMutex const mutex("mutex");
    LkLock const lock("lock");
    LkRecLock const recLock("recLock");
    {
        LkGuard<LkMutex const> const first(mutex);
        LkGuard<LkLock const> const second(lock);
        LkGuard<LkRecLock const> const third(recLock);
    }
    LkEvent event("event", false);
    event.set();
    event.wait();
    LkUnnamedSema sema("sema", 1, LkSemaTypes::PRIVATE);
    sema.wait();
    sema.post();
    LkRwLock rwLock("rwLock");
    rwLock.readLock();
    rwLock.unlock();
}

using ThreadsAndForks = ThreadTest;

TEST_F(ThreadsAndForks, AChildMakesLocksWhileTheParentsThreadsUseThem)
{
    std::atomic<bool> isOver{false};
    std::vector<ObjPtr<MtThread>> busy;
    for (int i = 0; i != 2; ++i) {
        busy.emplace_back(makeThread("busy", [&](TestProtocol &, MtThread *) {
            while (!isOver)
                useNewLocks();
        }));
        busy.back()->start();
    }
    for (int round = 0; round != 50; ++round)
        expectGoodChild(useNewLocks);
    isOver = true;
}

TEST_F(ThreadsAndForks, AMutexOfAThreadIsAbandonedForTheChild)
{
    LkMutex const mutex("mutex"), own("own");
    LkEvent held("held", false);
    ObjPtr<MtThread> const thread = makeThread("holding", [&](TestProtocol &protocol, MtThread *) {
        LkGuard<LkMutex const> const guard(mutex);
        held.set();
        protocol.waitForStop();
    });
    thread->start();
    held.wait();
    LkGuard<LkMutex const> const guard(own);
    expectGoodChild([&] {
        if (failedAssertion([&] { mutex.lock(); }).empty() || !own.isLocked())
            _exit(1);
        own.unlock();
        LkGuard<LkMutex const> const again(own);
    });
    thread->stop();
}

} // namespace

} // namespace ZvTest
