#include "fakeDevices.h"

#include "resmgt/deviceManager/access/devMgrPropertyObserverEng.private.h"
#include "resmgt/deviceManager/devMgrMediator.h"
#include "resmgt/deviceProtocol/devMDStdPropertySet.h"
#include "resmgt/locks/lkSema.h"
#include "testing/aborted.h"
#include "testing/allocations.h"
#include "testing/asleep.h"
#include "testing/failures.h"
#include "zvbase/lgLog.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

/// Property that contains its value.
template <class T>
class PlainProperty : public DevMDProperty<T>
{
public:
    PlainProperty(LiString name, T initial, Journal &journal)
        : value(initial), _uuid(LiUuid::CreateEnum()), _name(std::move(name)), _journal(journal)
    {
        _uuid.create();
    }

    LiUuid getUuid() override { return _uuid; }
    LiString getName() override { return _name; }
    LiString getDescription() override { return "a property of the tests"; }
    unsigned int getAttributes() const override { return 3; }
    bool isAvailable() const override { return true; }
    void setObserverAEO(ObjPtr<DevMDPropertyAEO> observer) override
    {
        _journal.add((observer.isNull() ? "cleared " : "observed ") +
                     std::string(_name.getChars()));
        if (failsToSetObserver)
            throw std::runtime_error("no observers today");
        _observer = observer;
    }

    void notify(unsigned events)
    {
        if (!_observer.isNull())
            _observer->performNotify(events);
    }

    T value;
    bool failsToSetObserver = false;

protected:
    void performSet(T const &newValue) override { value = newValue; }
    void performGet(T &result) override { result = value; }

private:
    LiUuid _uuid;
    LiString const _name;
    Journal &_journal;
    ObjPtr<DevMDPropertyAEO> _observer;
};

/// Device with the properties cam : x, cam : lens : focus and cam : lens : motor : speed.
class PropertyDevice : public DevMDStdPropertyPrtcl
{
public:
    explicit PropertyDevice(Journal &journal)
        : DevMDStdPropertyPrtcl("cam"),
          x(new PlainProperty<int>("x", 1, journal)),
          focus(new PlainProperty<double>("focus", 2.5, journal)),
          speed(new PlainProperty<Vector<short>>("speed", {3, 4}, journal))
    {
        ObjPtr<DevMDStdPropertySetBuilder> builder = getPropertySetBuilder();
        builder->addProperty(x);
        builder->pushSet("lens", "the lens");
        builder->addProperty(focus);
        builder->pushSet("motor", "its motor");
        builder->addProperty(speed);
    }

    RCShdPtr<PlainProperty<int>> x;
    RCShdPtr<PlainProperty<double>> focus;
    RCShdPtr<PlainProperty<Vector<short>>> speed;
};

class RecordingObserver : public DevMgrPropertyObserver
{
public:
    RecordingObserver(std::string name, Journal &journal)
        : _name(std::move(name)), _journal(journal)
    {}

    void update(DevMgrPropertyObserverHint const &hint) override
    {
        _journal.add(_name + " " + hint.getProperty()->getName().getChars() + " " +
                     std::to_string(hint.getEvent()));
        _thread = std::this_thread::get_id();
    }

    std::thread::id getThread() const { return _thread; }

private:
    std::string const _name;
    Journal &_journal;
    std::thread::id _thread;
};

class PropertyAccess : public testing::Test
{
protected:
    PropertyAccess()
        : cam("cam", [this] { return RCShdPtr<DevMDPrtcl>(_device = new PropertyDevice(journal)); })
    {}

    ~PropertyAccess() noexcept override {}

    PropertyDevice &device()
    {
        manager->getPrtcl("cam");
        return *_device;
    }

    template <class Failure>
    std::string refusal(char const *config)
    {
        return reasonOf<Failure>([&] { access->getProperty(config); });
    }

    /// Waits until the manager's thread has executed all requests that were queued before.
    void settle()
    {
        LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
        class Post : public DevMgrPropertyObserver
        {
        public:
            explicit Post(LkUnnamedSema &sema) : _sema(sema) {}
            void update(DevMgrPropertyObserverHint const &) override { _sema.post(); }

        private:
            LkUnnamedSema &_sema;
        };
        RCShdPtr<PlainProperty<int>> const fence(new PlainProperty<int>("fence", 0, ignored));
        RCShdPtr<DevMgrPropertyObserver> const post(new Post(done));
        access->attachObserver(fence, post);
        fence->notify(0);
        done.wait();
        access->detachObserver(fence, post);
    }

    Journal journal;
    Journal ignored;
    Registered const cam;
    ObjPtr<DevMgr> manager = DevMgr::create();
    ObjPtr<DevMgrPropertyAcc> access = manager->createPropertyAcc();

private:
    PropertyDevice *_device = nullptr;
};

TEST_F(PropertyAccess, BadStringsAreExplained)
{
    using Failure = DevMgrEx::PropertySyntaxError;
    EXPECT_EQ(refusal<Failure>(""), "[ unexpected end of tokens ]");
    EXPECT_EQ(refusal<Failure>(" \t"), "[ unexpected end of tokens ]");
    EXPECT_EQ(refusal<Failure>(":x"), "[ expected device name ]");
    EXPECT_EQ(refusal<Failure>("a b"), "a [ expected colon after device name ]");
    EXPECT_EQ(refusal<Failure>("a"), "a [ unexpected end of tokens ]");
    EXPECT_EQ(refusal<Failure>("a:"), "a : [ unexpected end of tokens ]");
    EXPECT_EQ(refusal<Failure>("a:b c"), "a : b [ expected colon after property set name ]");
    EXPECT_EQ(refusal<Failure>("a:b:"), "a : b : [ unexpected end of tokens ]");
}

TEST_F(PropertyAccess, ColonCanBeAName)
{
    EXPECT_EQ(refusal<DevMgrEx::NameNotRegistered>("cam::"), "Not a registered object.");
    EXPECT_EQ(refusal<DevMgrEx::NameNotRegistered>("cam:::x"), "Not a registered object.");
}

TEST_F(PropertyAccess, UnknownDeviceIsNotFoundBeforeItsSetsMatter)
{
    EXPECT_EQ(refusal<DevMgrEx::NameNotFound>("nobody:x"), "Named device not found.");
    EXPECT_EQ(refusal<DevMgrEx::NameNotFound>("nobody:no:such:set"), "Named device not found.");
}

TEST_F(PropertyAccess, DeviceThatIsNoLongerRegisteredIsNotFound)
{
    {
        Registered const passing(
            "passing", [this] { return RCShdPtr<DevMDPrtcl>(new PropertyDevice(ignored)); });
        EXPECT_FALSE(access->getProperty("passing:x").isNull());
    }
    EXPECT_FALSE(manager->getPrtcl("passing").isNull());
    EXPECT_EQ(refusal<DevMgrEx::NameNotFound>("passing:x"), "Named device not found.");
}

TEST_F(PropertyAccess, DeviceWithoutPropertiesIsRefused)
{
    Registered const plain(
        "plain", [this] { return RCShdPtr<DevMDPrtcl>(new RecordingAccess("plain", journal)); });
    EXPECT_EQ(refusal<DevMgrEx::BadMDPrtclImp>("plain:x"),
              "Managed device protocol not implemented.");
}

TEST_F(PropertyAccess, UnknownSetsAndPropertiesAreNotRegistered)
{
    char const * const reason = "Not a registered object.";
    EXPECT_EQ(refusal<DevMgrEx::NameNotRegistered>("cam:y"), reason);
    EXPECT_EQ(refusal<DevMgrEx::NameNotRegistered>("cam:lens"), reason);
    EXPECT_EQ(refusal<DevMgrEx::NameNotRegistered>("cam:x:x"), reason);
    EXPECT_EQ(refusal<DevMgrEx::NameNotRegistered>("cam:lens:x"), reason);
    EXPECT_EQ(refusal<DevMgrEx::NameNotRegistered>("cam:motor:speed"), reason);
}

TEST_F(PropertyAccess, FindsPropertiesAtEveryDepth)
{
    EXPECT_TRUE(access->getProperty("cam:x") == device().x);
    EXPECT_TRUE(access->getProperty(" cam : lens : focus ") == device().focus);
    EXPECT_TRUE(access->getProperty("cam:lens:motor:speed") == device().speed);
}

TEST_F(PropertyAccess, ReadsAndWritesTypedValues)
{
    double focus = 0;
    DevMgrPropertyValueUtil<double>::getValue(*access, "cam:lens:focus", focus);
    EXPECT_EQ(focus, 2.5);
    DevMgrPropertyValueUtil<Vector<short>>::setValue(*access, "cam:lens:motor:speed", {7, 8, 9});
    EXPECT_EQ(device().speed->value, (Vector<short>{7, 8, 9}));
}

/// Device with a property of each type, named "0", "1" and so on.
class OfAllTypes : public DevMDStdPropertyPrtcl
{
public:
    explicit OfAllTypes(Journal &journal) : DevMDStdPropertyPrtcl("all")
    {
        ObjPtr<DevMDStdPropertySetBuilder> builder = getPropertySetBuilder();
        int number = 0;
#define ADD(T) builder->addProperty(make<T>(number++, journal));
        ZV_FOR_EACH_PROPERTY_TYPE(ADD)
#undef ADD
    }

private:
    template <class T>
    static RCShdPtr<DevMDPropertyAny> make(int number, Journal &journal)
    {
        return makeShd<PlainProperty<T>>(std::to_string(number).c_str(), T(), journal);
    }
};

template <class T>
T someValue()
{
    if constexpr (requires { typename T::value_type; })
        return T(3, someValue<typename T::value_type>());
    else
        return static_cast<T>(1);
}

TEST_F(PropertyAccess, ReadsAndWritesEachType)
{
    Registered const all("all", [this] { return RCShdPtr<DevMDPrtcl>(new OfAllTypes(ignored)); });
    int number = 0;
    auto const check = [&]<class T>(T value) {
        LiString const config(("all:" + std::to_string(number)).c_str());
        DevMgrPropertyValueUtil<T>::setValue(*access, config, value);
        T read{};
        DevMgrPropertyValueUtil<T>::getValue(*access, config, read);
        EXPECT_EQ(read, value) << number;
        LiString const other(("all:" + std::to_string((number + 1) % 22)).c_str());
        EXPECT_THROW(DevMgrPropertyValueUtil<T>::getValue(*access, other, read),
                     DevMgrEx::PropertyInvalidType)
            << number;
        ++number;
    };
#define CHECK(T) check(someValue<T>());
    ZV_FOR_EACH_PROPERTY_TYPE(CHECK)
#undef CHECK
    EXPECT_EQ(number, 22);
}

TEST_F(PropertyAccess, AnotherTypeIsNoConversion)
{
    int value = 0;
    try {
        DevMgrPropertyValueUtil<int>::getValue(*access, "cam:lens:focus", value);
        FAIL() << "a double was read as an int";
    } catch (DevMgrEx::PropertyInvalidType const &failure) {
        EXPECT_STREQ(failure.getReason(), "Illegal type converion of property focus");
    }
    EXPECT_THROW(DevMgrPropertyValueUtil<float>::setValue(*access, "cam:lens:focus", 1.0F),
                 DevMgrEx::PropertyInvalidType);
    EXPECT_EQ(device().focus->value, 2.5);
}

TEST_F(PropertyAccess, FirstObserverIsSetAndTheLastOneClears)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    RCShdPtr<DevMgrPropertyObserver> const two(new RecordingObserver("two", journal));
    DevMgrPropertyObserverUtil::attachObserver(*access, "cam:x", one);
    EXPECT_EQ(journal.take(), (Lines{"observed x"}));
    DevMgrPropertyObserverUtil::attachObserver(*access, "cam:x", two);
    DevMgrPropertyObserverUtil::attachObserver(*access, "cam:x", two);
    DevMgrPropertyObserverUtil::detachObserver(*access, "cam:x", one);
    EXPECT_EQ(journal.take(), Lines{});
    DevMgrPropertyObserverUtil::detachObserver(*access, "cam:x", two);
    EXPECT_EQ(journal.take(), (Lines{"cleared x"}));
    DevMgrPropertyObserverUtil::attachObserver(*access, "cam:x", one);
    EXPECT_EQ(journal.take(), (Lines{"observed x"}));
}

TEST_F(PropertyAccess, DetachingAStrangerChangesNothing)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    RCShdPtr<DevMgrPropertyObserver> const two(new RecordingObserver("two", journal));
    access->detachObserver(device().x, one);
    access->attachObserver(device().x, one);
    access->detachObserver(device().x, two);
    EXPECT_EQ(journal.take(), (Lines{"observed x"}));
}

TEST_F(PropertyAccess, ChangesReachAllObserversOnTheManagersThread)
{
    auto * const recording = new RecordingObserver("one", journal);
    RCShdPtr<DevMgrPropertyObserver> const one(recording);
    RCShdPtr<DevMgrPropertyObserver> const two(new RecordingObserver("two", journal));
    access->attachObserver(device().x, one);
    access->attachObserver(device().x, two);
    journal.take();
    device().x->notify(5);
    settle();
    Lines const inOrder = one < two ? Lines{"one x 5", "two x 5"} : Lines{"two x 5", "one x 5"};
    EXPECT_EQ(journal.take(), inOrder);
    EXPECT_NE(recording->getThread(), std::this_thread::get_id());
}

/// Observer that holds the manager's thread in an update until a test releases it.
class HoldingObserver : public DevMgrPropertyObserver
{
public:
    HoldingObserver()
        : arrived("arrived", 0, LkSemaTypes::Shared()),
          released("released", 0, LkSemaTypes::Shared())
    {}
    void update(DevMgrPropertyObserverHint const &) override
    {
        arrived.post();
        released.wait();
    }

    LkUnnamedSema arrived;
    LkUnnamedSema released;
};

TEST_F(PropertyAccess, NotificationUnderWayIsDroppedOnceTheLastObserverIsDetached)
{
    ObjPtr<DevMgrPropertyAcc> other = manager->createPropertyAcc();
    RCShdPtr<PlainProperty<int>> const gate(new PlainProperty<int>("gate", 0, ignored));
    auto * const holding = new HoldingObserver;
    other->attachObserver(gate, RCShdPtr<DevMgrPropertyObserver>(holding));
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    access->attachObserver(device().x, one);
    gate->notify(0);
    holding->arrived.wait();
    device().x->notify(1);
    access->detachObserver(device().x, one);
    journal.take();
    holding->released.post();
    settle();
    EXPECT_EQ(journal.take(), Lines{});

    access->attachObserver(device().x, one);
    device().x->notify(2);
    settle();
    EXPECT_EQ(journal.take(), (Lines{"observed x", "one x 2"}));
}

TEST_F(PropertyAccess, DetachingWaitsForAnUpdateThatRuns)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    auto * const holding = new HoldingObserver;
    RCShdPtr<DevMgrPropertyObserver> const held(holding);
    access->attachObserver(device().x, held);
    access->attachObserver(device().focus, one);
    std::vector<std::function<void()>> const operations = {
        [&] { access->detachObserver(device().focus, one); },
        [&] { access->attachObserver(device().focus, one); },
        [&] { access->detachObserver(device().x, held); },
    };
    for (auto const &operation : operations) {
        device().x->notify(1);
        holding->arrived.wait();
        std::atomic<bool> isDone{false};
        std::atomic<long> number{0};
        std::thread other([&] {
            number = threadNumber();
            operation();
            isDone = true;
        });
        while (!number || (!isDone && !isAsleep(number)))
            std::this_thread::yield();
        EXPECT_FALSE(isDone);
        holding->released.post();
        other.join();
    }
}

TEST_F(PropertyAccess, DestructionDetachesAllObservers)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    access->attachObserver(device().x, one);
    access->attachObserver(device().focus, one);
    journal.take();
    access = nullptr;
    auto lines = journal.take();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"cleared focus", "cleared x"}));
}

TEST_F(PropertyAccess, NullPointersAreRefused)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    EXPECT_THROW(access->attachObserver(RCShdPtr<DevMDPropertyAny>(), one), RCEx::ExNullPtr);
    EXPECT_THROW((void)DevMgrPropertyAcc::create(RCShdPtr<DevMgrMediator>()), RCEx::ExNullPtr);
    EXPECT_THROW(access->attachObserver(device().x, RCShdPtr<DevMgrPropertyObserver>()),
                 RCEx::ExNullPtr);
    EXPECT_THROW(access->detachObserver(RCShdPtr<DevMDPropertyAny>(), one), RCEx::ExNullPtr);
    EXPECT_EQ(journal.take(), Lines{});
}

TEST_F(PropertyAccess, AttachingThatFailsCanBeTriedAgain)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    device().x->failsToSetObserver = true;
    EXPECT_THROW(access->attachObserver(device().x, one), std::runtime_error);
    EXPECT_EQ(journal.take(), (Lines{"observed x"}));
    device().x->failsToSetObserver = false;
    access->attachObserver(device().x, one);
    EXPECT_EQ(journal.take(), (Lines{"observed x"}));
    device().x->notify(1);
    settle();
    EXPECT_EQ(journal.take(), (Lines{"one x 1"}));
}

TEST_F(PropertyAccess, AttachingThatRunsOutOfMemoryCanBeTriedAgain)
{
    auto const x = device().x;
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    int const nbFailures = failEachAllocation([&] { access->attachObserver(x, one); }, [] {});
    EXPECT_GT(nbFailures, 2);
    journal.take();
    x->notify(1);
    settle();
    EXPECT_EQ(journal.take(), (Lines{"one x 1"}));
}

TEST_F(PropertyAccess, DestructionDetachesTheOthersIfOneThrows)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    auto const x = device().x;
    auto const focus = device().focus;
    access->attachObserver(x, one);
    access->attachObserver(focus, one);
    x->failsToSetObserver = true;
    focus->failsToSetObserver = true;
    journal.take();
    EXPECT_THROW(access = nullptr, std::runtime_error);
    auto lines = journal.take();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"cleared focus", "cleared x"}));
    x->failsToSetObserver = false;
    focus->failsToSetObserver = false;
    x->setObserverAEO(nullptr); // an observer that could not be removed keeps its property
    focus->setObserverAEO(nullptr);
}

TEST_F(PropertyAccess, ThrowsWhatAnObserversDestructorThrewAfterDetachingAll)
{
    auto const attachFailing = [this](auto const &property, char const *name) {
        access->attachObserver(property, makeShd<FailsToEnd<RecordingObserver>>(name, journal));
    };
    attachFailing(device().x, "one");
    attachFailing(device().x, "two");
    attachFailing(device().focus, "three");
    journal.take();
    EXPECT_THROW(access = nullptr, std::runtime_error);
    Lines lines = journal.take();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"cleared focus", "cleared x", "end one", "end three", "end two"}));
}

TEST_F(PropertyAccess, DetachingThatFailsLetsTheNextObserverBeginAnew)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    auto const x = device().x;
    access->attachObserver(x, one);
    x->failsToSetObserver = true;
    EXPECT_THROW(access->detachObserver(x, one), std::runtime_error);
    x->failsToSetObserver = false;
    journal.take();
    access->attachObserver(x, one);
    EXPECT_EQ(journal.take(), (Lines{"observed x"}));
}

/// Observer that calls a function when it is destroyed.
class RestlessObserver : public RecordingObserver
{
public:
    RestlessObserver(Journal &journal, std::function<void()> atEnd)
        : RecordingObserver("restless", journal), _atEnd(std::move(atEnd))
    {}
    ~RestlessObserver() noexcept(false) override { _atEnd(); }

private:
    std::function<void()> _atEnd;
};

TEST_F(PropertyAccess, ObserversEndWithoutTheLockOfTheAccess)
{
    RCShdPtr<DevMgrPropertyObserver> const one(new RecordingObserver("one", journal));
    auto const x = device().x;
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    RCShdPtr<DevMgrPropertyObserverEng> const engine(new DevMgrPropertyObserverEng(*mediator));
    bool hasEnded = false;
    engine->attach(x, RCShdPtr<DevMgrPropertyObserver>(new RestlessObserver(journal, [&] {
                       engine->detach(x, one); // takes the lock
                       hasEnded = true;
                   })));
    engine->detachAll();
    EXPECT_TRUE(hasEnded);
}

TEST_F(PropertyAccess, ObserversComeAndGoWhileChangesArrive)
{
    std::atomic<bool> stop = false;
    auto const property = device().x;
    RCShdPtr<DevMgrPropertyObserver> const lasting(new RecordingObserver("lasting", ignored));
    access->attachObserver(property, lasting);
    std::thread notifier([&] {
        while (!stop)
            property->notify(1);
    });
    for (int i = 0; i < 500; ++i) {
        RCShdPtr<DevMgrPropertyObserver> const observer(new RecordingObserver("passing", ignored));
        access->attachObserver(property, observer);
        access->detachObserver(property, observer);
    }
    stop = true;
    notifier.join();
    settle();
}

/// Observer that calls a function in each update.
class ActingObserver : public RecordingObserver
{
public:
    ActingObserver(std::string name, Journal &journal, std::function<void()> action)
        : RecordingObserver(std::move(name), journal), _action(std::move(action))
    {}

    void update(DevMgrPropertyObserverHint const &hint) override
    {
        RecordingObserver::update(hint);
        _action();
    }

private:
    std::function<void()> _action;
};

TEST_F(PropertyAccess, ObserverMayDetachItselfFromWithinItsUpdate)
{
    auto const x = device().x;
    RCShdPtr<DevMgrPropertyObserver> once;
    once = makeShd<ActingObserver>("once", journal, [&] { access->detachObserver(x, once); });
    RCShdPtr<DevMgrPropertyObserver> const lasting = makeShd<RecordingObserver>("lasting", journal);
    access->attachObserver(x, once);
    access->attachObserver(x, lasting);
    journal.take();
    x->notify(1);
    settle();
    Lines lines = journal.take();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"lasting x 1", "once x 1"}));
    x->notify(2);
    settle();
    EXPECT_EQ(journal.take(), Lines{"lasting x 2"});
}

TEST_F(PropertyAccess, LastObserverMayDetachItselfFromWithinItsUpdate)
{
    auto const x = device().x;
    RCShdPtr<DevMgrPropertyObserver> once;
    once = makeShd<ActingObserver>("once", journal, [&] { access->detachObserver(x, once); });
    access->attachObserver(x, once);
    x->notify(1);
    settle();
    EXPECT_EQ(journal.take(), (Lines{"observed x", "once x 1", "cleared x"}));
}

TEST_F(PropertyAccess, AnObserverDetachedByAnotherOneIsNoLongerNotified)
{
    auto const x = device().x;
    RCShdPtr<DevMgrPropertyObserver> one;
    RCShdPtr<DevMgrPropertyObserver> two;
    one = makeShd<ActingObserver>("told", journal, [&] { access->detachObserver(x, two); });
    two = makeShd<ActingObserver>("told", journal, [&] { access->detachObserver(x, one); });
    access->attachObserver(x, one);
    access->attachObserver(x, two);
    journal.take();
    x->notify(1);
    settle();
    EXPECT_EQ(journal.take(), Lines{"told x 1"}); // the one that is called first
}

TEST_F(PropertyAccess, AnObserverAttachedInAnUpdateIsNotifiedOfTheNextChange)
{
    auto const x = device().x;
    // In the order of the calls, some are before the attaching observer and some are after it.
    std::vector<RCShdPtr<DevMgrPropertyObserver>> others;
    for (int i = 0; i < 8; ++i)
        others.push_back(makeShd<RecordingObserver>("other", journal));
    auto const attaching = makeShd<ActingObserver>("attaching", journal, [&] {
        for (auto const &other : others)
            access->attachObserver(x, other);
    });
    for (int i = 0; i < 8; ++i)
        others.push_back(makeShd<RecordingObserver>("other", journal));
    access->attachObserver(x, attaching);
    journal.take();
    x->notify(1);
    settle();
    EXPECT_EQ(journal.take(), Lines{"attaching x 1"});
    x->notify(2);
    settle();
    EXPECT_EQ(journal.take().size(), 17u);
}

TEST_F(PropertyAccess, ObserverThatDetachesItselfEndsWithoutTheLockOfTheAccess)
{
    class Ending : public ActingObserver
    {
    public:
        Ending(Journal &lines, std::function<void()> action, std::function<void()> atEnd)
            : ActingObserver("ending", lines, std::move(action)), _atEnd(std::move(atEnd))
        {}
        ~Ending() noexcept(false) override { _atEnd(); }

    private:
        std::function<void()> _atEnd;
    };
    auto const x = device().x;
    auto const focus = device().focus;
    RCShdPtr<DevMgrPropertyObserver> const other = makeShd<RecordingObserver>("other", ignored);
    LkUnnamedSema ended("ended", 0, LkSemaTypes::Shared());
    RCShdPtr<DevMgrPropertyObserver> ending = makeShd<Ending>(
        journal,
        [&] {
            access->detachObserver(x, ending);
            ending = nullptr;
        },
        [&] {
            std::thread([&] { access->attachObserver(focus, other); }).join();
            ended.post();
        });
    access->attachObserver(x, ending);
    x->notify(1);
    ended.wait();
}

/// Handler that logs the failures on the manager's thread.
class WritingHandler : public DevMgrFailureHandler
{
public:
    explicit WritingHandler(Journal &lines) : _lines(lines) {}
    void handle(DevMgrFailure const &failure) override
    {
        std::ostringstream text;
        text << failure;
        _lines.add(text.str());
    }

private:
    Journal &_lines;
};

TEST_F(PropertyAccess, ThrowsWhatTheDestructorOfAnObserverThatDetachesItselfThrows)
{
    auto const x = device().x;
    Journal failures;
    manager->setFailureHandler(makeShd<WritingHandler>(failures));
    RCShdPtr<DevMgrPropertyObserver> ending;
    ending = makeShd<FailsToEnd<ActingObserver>>("ending", journal, [&] {
        access->detachObserver(x, ending);
        ending = nullptr;
    });
    access->attachObserver(x, ending);
    journal.take();
    x->notify(1);
    settle();
    EXPECT_EQ(journal.take(), (Lines{"ending x 1", "cleared x", "end ending"}));
    EXPECT_EQ(failures.take(), Lines{"observer of property x: event \"1\": the end of ending"});
}

TEST_F(PropertyAccess, OtherObserversAreNotifiedIfOneThrowsAndTheFirstExceptionIsThrown)
{
    auto const x = device().x;
    Journal failures;
    manager->setFailureHandler(makeShd<WritingHandler>(failures));
    for (int i = 0; i < 2; ++i)
        access->attachObserver(x, makeShd<ActingObserver>("throwing", journal, [] {
                                   throw std::runtime_error("my update failed");
                               }));
    access->attachObserver(x, makeShd<RecordingObserver>("sound", journal));
    journal.take();
    x->notify(5);
    x->notify(6);
    settle();
    Lines lines = journal.take();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"sound x 5", "sound x 6", "throwing x 5", "throwing x 5",
                            "throwing x 6", "throwing x 6"}));
    EXPECT_EQ(failures.take(), (Lines{"observer of property x: event \"5\": my update failed",
                                      "observer of property x: event \"6\": my update failed"}));
}

TEST_F(PropertyAccess, AccessThatItsObserverDestroysFailsAnAssertionWhenAllAreDetached)
{
    auto const x = device().x;
    ObjPtr<DevMgrPropertyAcc> own = manager->createPropertyAcc();
    std::string failed = "nothing";
    auto const destroying = makeShd<ActingObserver>("destroying", journal, [&] {
        try {
            own = nullptr;
        } catch (AssertionFailed const &failure) {
            failed = failure.getExpression();
        }
    });
    own->attachObserver(x, destroying);
    own->attachObserver(device().focus, destroying);
    journal.take();
    x->notify(1);
    settle();
    EXPECT_EQ(failed, "!isDestroyedByItsOwnObserver");
    Lines lines = journal.take();
    EXPECT_EQ(lines.front(), "destroying x 1");
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"cleared focus", "cleared x", "destroying x 1"}));
}

TEST_F(PropertyAccess, ObserverMayDestroyAnotherAccess)
{
    auto const x = device().x;
    ObjPtr<DevMgrPropertyAcc> other = manager->createPropertyAcc();
    other->attachObserver(device().focus, makeShd<RecordingObserver>("other", journal));
    access->attachObserver(
        x, makeShd<ActingObserver>("destroying", journal, [&] { other = nullptr; }));
    journal.take();
    x->notify(1);
    settle();
    EXPECT_EQ(journal.take(), (Lines{"destroying x 1", "cleared focus"}));
}

using PropertyAccessDeathTest = PropertyAccess;

// Runs in a process of its own, because the device that is left behind is never closed.
TEST_F(PropertyAccessDeathTest, ManagerThatAnObserverDestroysFailsAnAssertionAndDoesNotHang)
{
    EXPECT_EXIT(
        {
            auto const x = device().x;
            LkUnnamedSema done("done", 0, LkSemaTypes::Shared());
            access->attachObserver(x, makeShd<ActingObserver>("letting go", journal, [&] {
                                       manager = nullptr;
                                       EXPECT_THROW(access = nullptr, AssertionFailed);
                                       done.post();
                                   }));
            x->notify(1);
            done.wait();
            LgLog::flush();
            std::_Exit(access.isNull() ? 0 : 1);
        },
        testing::ExitedWithCode(0), "Assertion \"!isDestroyedOnDevMgrANO\" failed");
}

TEST_F(PropertyAccessDeathTest, ObserverThatThrowsEndsTheProcess)
{
    EXPECT_EXIT(
        {
            auto const x = device().x;
            access->attachObserver(x, makeShd<ActingObserver>("throwing", journal, [] {
                                       throw std::runtime_error("my update failed");
                                   }));
            x->notify(5);
            LkUnnamedSema("never", 0, LkSemaTypes::Shared()).wait();
        },
        aborted(), "observer of property x: event \"5\": my update failed");
}

} // namespace
} // namespace ZvTest
