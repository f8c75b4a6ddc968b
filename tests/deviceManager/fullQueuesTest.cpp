// Steps and reports of a sequence while the queues of the devices and of the manager are full.
#include "fader.h"
#include "fakeDevices.h"

#include "resmgt/locks/lkSema.h"
#include "testing/asleep.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

constexpr int MANAGER_CAPACITY = 25;

class Marks : public DevMgrPropertyObserver
{
public:
    void update(DevMgrPropertyObserverHint const &) override {}
};

/// Device that finishes each step within the call. A test can make it keep the completion of its
/// lock.
class Hand : public PromptSequence
{
public:
    using PromptSequence::performSync;
    using PromptSequence::PromptSequence;

    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &mark) override
    {
        if (!keepsSync)
            return PromptSequence::performSync(aco, mark);
        kept = aco;
        hasSync.post();
    }
    DtTimeMark getMark() override
    {
        if (inMark)
            inMark();
        return DtTimeMark();
    }

    bool keepsSync = false;
    ObjPtr<DevACO> kept;
    LkUnnamedSema hasSync{"hasSync", 0, LkSemaTypes::Shared()};
    std::function<void()> inMark;
};

class FullQueues : public testing::Test
{
protected:
    ~FullQueues() noexcept override {}

    template <class Device>
    Registered device(char const *name, RCShdPtr<Device> &place)
    {
        return Registered(name, [this, name, &place] {
            if constexpr (std::is_same_v<Device, Hand>)
                place = makeShd<Hand>(name, journal);
            else
                place = makeShd<Device>(name);
            return RCShdPtr<DevMDPrtcl>(place.get());
        });
    }
    void waitFor(char const *name, char const *state)
    {
        while (access->getState(name) != state)
            std::this_thread::yield();
    }

    Journal journal;
    ObjPtr<DevMgr> manager = DevMgr::create();
    ObjPtr<DevMgrSyncSeqAcc> access = manager->createSyncSeqAcc();
    ObjPtr<DevMgrPropertyAcc> properties = manager->createPropertyAcc();
};

// "DevMgr ANO" delivers a step to the device. The device's thread waits for room in the queue that
// "DevMgr ANO" empties.
TEST_F(FullQueues, AStepIsDeliveredWhileTheDeviceWaitsForTheManager)
{
    RCShdPtr<Hand> root;
    RCShdPtr<Fader> fader;
    Registered const theRoot = device("root", root);
    Registered const theFader = device("fader", fader);
    access->configure("( root ( fader ) )");
    DevMgrPropertyObserverUtil::attachObserver(*properties, "fader:level", makeShd<Marks>());
    Turnstile gate;
    root->inMark = [&gate] { gate.pass(); };
    access->start();
    gate.waitForArrival();
    int const toFillBoth = MANAGER_CAPACITY + 1 + DevMDStdFifo::DEFAULT_CAPACITY;
    for (int i = 0; i < toFillBoth; ++i)
        fader->level->set(i);
    waitUntilAsleep(fader->thread);
    gate.open();
    waitFor("fader", "lock");
    access->stop();
    access->wait();
    EXPECT_EQ(access->getState("root"), "final");
}

// A client stops the device under the tree's lock. "DevMgr ANO" waits for that lock, and the
// device's thread waits for "DevMgr ANO".
TEST_F(FullQueues, AClientsStopIsDeliveredWhileTheDeviceWaitsForTheManager)
{
    RCShdPtr<Fader> root;
    RCShdPtr<Fader> fader;
    RCShdPtr<Hand> late;
    Registered const theRoot = device("root", root);
    Registered const theFader = device("fader", fader);
    Registered const theLate = device("late", late);
    access->configure("( root ( fader late ) )");
    late->keepsSync = true;
    access->start();
    late->hasSync.wait();
    waitFor("fader", "lock");
    DevMgrPropertyObserverUtil::attachObserver(*properties, "fader:level", makeShd<Marks>());
    Turnstile gate;
    fader->beforeStop = [&] {
        late->kept->performExecute(); // "DevMgr ANO" waits for the tree's lock with this report
        gate.pass();
    };
    std::thread client([&] { access->stop(); });
    gate.waitForArrival();
    std::atomic<bool> isOver{false};
    std::atomic<long> setting{0};
    std::thread setter([&] {
        setting = threadNumber();
        while (!isOver)
            fader->level->set(1);
    });
    while (!setting)
        std::this_thread::yield();
    do
        waitUntilAsleep(setting);
    while (!isAsleep(fader->thread) || !isAsleep(setting));
    gate.open();
    client.join();
    isOver = true;
    setter.join();
    access->wait();
    EXPECT_EQ(access->getState("root"), "final");
}

// At first the client's thread makes the reports, under the tree's lock. Later "DevMgr ANO" itself
// makes them, when it lets the children lock.
TEST_F(FullQueues, AnyNumberOfDevicesMayFinishTheirStepsInsideTheCalls)
{
    for (int const nbDevices : {MANAGER_CAPACITY + 2, 1000}) {
        std::vector<std::unique_ptr<Registered>> registered;
        std::string config = "( d0 ( ";
        for (int i = 0; i < nbDevices; ++i) {
            std::string const name = "d" + std::to_string(i);
            registered.push_back(std::make_unique<Registered>(name.c_str(), [this, name] {
                return RCShdPtr<DevMDPrtcl>(new PromptSequence(name, journal));
            }));
            if (i > 0)
                config += name + " ";
        }
        manager = DevMgr::create();
        access = manager->createSyncSeqAcc();
        access->configure((config + ") )").c_str());
        access->start();
        for (int i = 0; i < nbDevices; ++i)
            waitFor(("d" + std::to_string(i)).c_str(), "lock");
        access->stop();
        access->wait();
        EXPECT_EQ(access->getState("d0"), "final");
        EXPECT_EQ(journal.take().size(), 3u * static_cast<unsigned>(nbDevices));
    }
}

} // namespace
} // namespace ZvTest
