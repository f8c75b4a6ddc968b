#include "fakeDevices.h"

#include "resmgt/deviceProtocol/devMDStdStream.h"
#include "resmgt/locks/lkSema.h"
#include "testing/allocations.h"
#include "testing/asleep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

class Format : public DevMDStreamFormat
{
public:
    explicit Format(int samplesPerSecond) : rate(samplesPerSecond) {}
    int const rate;
};

/// Standard stream that logs its calls.
template <class Base>
class Recorded : public Base
{
public:
    Recorded(std::string streamName, Journal &lines)
        : Base(streamName.c_str(), "a stream"), journal(lines), name(std::move(streamName))
    {}
    int getKind() override { return 0; }
    void start() override
    {
        journal.add("start " + name);
        if (failsToStart)
            throw std::runtime_error("stuck");
        Base::start();
        if (whenStarted)
            whenStarted();
    }
    void stop() override
    {
        journal.add("stop " + name);
        Base::stop();
        if (failsToStop)
            throw std::runtime_error("runs on: " + name);
    }

    Journal &journal;
    std::string const name;
    int rate = 48000;
    bool failsToStart = false;
    bool failsToStop = false;
    std::function<void()> whenStarted;
};

template <class Base>
class Source : public Recorded<Base>
{
public:
    using Recorded<Base>::Recorded;
    RCShdPtr<DevMDStreamFormat> getFormat() override
    {
        return RCShdPtr<DevMDStreamFormat>(new Format(this->rate));
    }
};

template <class Base>
class Sink : public Recorded<Base>
{
public:
    using Recorded<Base>::Recorded;
    bool isCompatible(RCShdPtr<DevMDStreamFormat> const &format) override
    {
        return rcDynamicCast<Format>(format)->rate == this->rate;
    }
};

class ActiveSource : public Source<DevMDStdStreamActiveSource>
{
public:
    using Source::Source;
    void connect(RCShdPtr<DevMDStreamPassiveSink> sink) override
    {
        journal.add("connect " + name + " to " + sink->getName().getChars());
        if (failsToConnect)
            throw std::runtime_error("no contact");
    }
    bool failsToConnect = false;
};

class PassiveSource : public Source<DevMDStdStreamPassiveSource>
{
public:
    using Source::Source;
    ObjPtrRet<DevMDStreamElem> pull() override { return nullptr; }
};

class ActiveSink : public Sink<DevMDStdStreamActiveSink>
{
public:
    using Sink::Sink;
    void connect(RCShdPtr<DevMDStreamPassiveSource> source) override
    {
        journal.add("connect " + name + " to " + source->getName().getChars());
    }
};

class PassiveSinkBase : public DevMDStdStreamPassiveSink
{
public:
    PassiveSinkBase(LiString name, LiString description)
        : DevMDStdStreamPassiveSink(name, description, RCShdPtr<DevMDStdFifo>(), nullptr)
    {}
};

using PassiveSink = Sink<PassiveSinkBase>;

/// Device with one stream of each kind: out (active source), lend (passive source), fetch (active
/// sink) and in (passive sink).
class StreamDevice : public DevMDStdStreamPrtcl
{
public:
    StreamDevice(std::string const &name, Journal &journal) : DevMDStdStreamPrtcl(name.c_str())
    {
        out = add<ActiveSource>(name + ".out", journal);
        lend = add<PassiveSource>(name + ".lend", journal);
        fetch = add<ActiveSink>(name + ".fetch", journal);
        in = add<PassiveSink>(name + ".in", journal);
    }

    ActiveSource *out;
    PassiveSource *lend;
    ActiveSink *fetch;
    PassiveSink *in;

private:
    template <class Stream>
    Stream *add(std::string const &name, Journal &journal)
    {
        auto * const stream = new Stream(name, journal);
        addStream(RCShdPtr<DevMDStream>(stream));
        return stream;
    }
};

class StreamAccess : public testing::Test
{
protected:
    StreamAccess()
        : a("a", [this] { return RCShdPtr<DevMDPrtcl>(_a = new StreamDevice("a", journal)); }),
          b("b", [this] { return RCShdPtr<DevMDPrtcl>(_b = new StreamDevice("b", journal)); })
    {}

    ~StreamAccess() noexcept override {}

    StreamDevice &deviceA()
    {
        manager->getPrtcl("a");
        return *_a;
    }
    StreamDevice &deviceB()
    {
        manager->getPrtcl("b");
        return *_b;
    }

    bool isDeviceMade() const { return _a || _b; }

    /// Returns the reason of the exception that `connect` throws.
    template <class Failure>
    std::string refusal(char const *config)
    {
        try {
            access->connect(config);
        } catch (Failure const &failure) {
            return failure.getReason();
        }
        return "no failure";
    }

    std::string syntaxError(char const *config)
    {
        try {
            access->parseConfig(config);
        } catch (DevMgrEx::ConfigSyntaxError const &failure) {
            return failure.getReason();
        }
        return "no failure";
    }

    Journal journal;
    Registered const a;
    Registered const b;
    ObjPtr<DevMgr> manager = DevMgr::create();
    ObjPtr<DevMgrStreamAcc> access = manager->createStreamAcc();

private:
    StreamDevice *_a = nullptr;
    StreamDevice *_b = nullptr;
};

TEST_F(StreamAccess, BadStringsAreExplained)
{
    EXPECT_EQ(syntaxError(""), "[ unexpected end of tokens ]");
    EXPECT_EQ(syntaxError("a"), "a [ unexpected end of tokens ]");
    EXPECT_EQ(syntaxError("a:x"), "a : x [ unexpected end of tokens ]");
    EXPECT_EQ(syntaxError("a:x push b"), "a : x push b [ unexpected end of tokens ]");
    EXPECT_EQ(syntaxError("a:x push b:"), "a : x push b : [ unexpected end of tokens ]");
    EXPECT_EQ(syntaxError("a x"), "a [ expected first colon ]");
    EXPECT_EQ(syntaxError("a:x shove b:y"), "a : x [ expected pull/push verb ]");
    EXPECT_EQ(syntaxError("a:x:push b:y"), "a : x [ expected pull/push verb ]");
    EXPECT_EQ(syntaxError("a:x push b y"), "a : x push b [ expected second colon ]");
    EXPECT_EQ(syntaxError("a:x push b:y z"), "a : x push b : y [ more tokens than expected ]");
    EXPECT_EQ(syntaxError("a:x push b:y:"), "a : x push b : y [ more tokens than expected ]");
    EXPECT_EQ(syntaxError(":x pushb:y"), ": x [ expected pull/push verb ]");
}

TEST_F(StreamAccess, GoodStringsParse)
{
    for (char const *config : {"a:x push b:y", " a : x\tpull\nb : y ", ":x push :y",
                               "a:: push b::", "a:push push push:pull"})
        EXPECT_EQ(syntaxError(config), "no failure") << config;
    // Devices are created by connecting only.
    EXPECT_FALSE(isDeviceMade());
    access->connect("a:a.out push b:b.in");
    EXPECT_TRUE(isDeviceMade());
}

TEST_F(StreamAccess, LongNamesAreCutInTheReasonNotOverrun)
{
    std::string const longName(5000, 'n');
    std::string const reason = syntaxError((longName + " x").c_str());
    EXPECT_EQ(reason, longName.substr(0, ExBase::REASON_CAPACITY));
}

TEST_F(StreamAccess, PushJoinsAnActiveSourceWithAPassiveSink)
{
    access->connect("a:a.out push b:b.in");
    EXPECT_EQ(journal.take(), (Lines{"connect a.out to b.in", "start b.in", "start a.out"}));
    EXPECT_FALSE(deviceA().out->isAvailable());
    EXPECT_FALSE(deviceB().in->isAvailable());
}

TEST_F(StreamAccess, PullJoinsAnActiveSinkWithAPassiveSource)
{
    access->connect("a:a.lend pull b:b.fetch");
    EXPECT_EQ(journal.take(),
              (Lines{"connect b.fetch to a.lend", "start a.lend", "start b.fetch"}));
}

TEST_F(StreamAccess, DestructionStopsInReverseOrder)
{
    access->connect("a:a.out push b:b.in");
    access->connect("b:b.lend pull a:a.fetch");
    journal.take();
    access = nullptr;
    EXPECT_EQ(journal.take(), (Lines{"stop a.fetch", "stop b.lend", "stop a.out", "stop b.in"}));
    EXPECT_TRUE(deviceA().out->isAvailable());
}

TEST_F(StreamAccess, StreamOfAnUnknownNameIsNotFound)
{
    EXPECT_EQ(refusal<DevMgrEx::NameNotFound>("a:x push b:b.in"), "Named device not found.");
}

TEST_F(StreamAccess, BareNameMustBeRegistered)
{
    EXPECT_EQ(refusal<DevMgrEx::NameNotRegistered>(":x push :y"), "Not a registered object.");
}

TEST_F(StreamAccess, BareNamesConnectOnceRegistered)
{
    using Id = DevMgrStreamAcc::StreamId;
    access->registerStream(Id("x"), RCShdPtr<DevMDStream>(deviceA().out));
    access->registerStream(Id("y"), RCShdPtr<DevMDStream>(deviceB().in));
    EXPECT_TRUE(access->isRegistered(Id("x")));
    EXPECT_FALSE(access->isRegistered(Id("z")));
    access->connect(":x push :y");
    EXPECT_EQ(journal.take(), (Lines{"connect a.out to b.in", "start b.in", "start a.out"}));
}

TEST_F(StreamAccess, AnIdIsWrittenWithoutSpace)
{
    using Id = DevMgrStreamAcc::StreamId;
    EXPECT_EQ(Id(" camera\t1 ", " out").getId(), LiString("camera1:out"));
    EXPECT_EQ(Id(" out ").getId(), LiString(":out"));
}

TEST_F(StreamAccess, RegisteredIdOfADeviceIsUsedWithoutTheDevice)
{
    auto const source = makeShd<ActiveSource>("source", journal);
    access->registerStream({"x", "y"}, source); // there is no such device
    access->connect("x:y push b:b.in");
    EXPECT_EQ(journal.take(), (Lines{"connect source to b.in", "start b.in", "start source"}));
}

TEST_F(StreamAccess, ConnectsUnderTheConfigurationLockThroughout)
{
    LkUnnamedSema arrived("arrived", 0, LkSemaTypes::Shared());
    LkUnnamedSema released("released", 0, LkSemaTypes::Shared());
    deviceA().out->whenStarted = [&] { // the last step of connecting
        arrived.post();
        released.wait();
    };
    std::thread connecting([&] { access->connect("a:a.out push b:b.in"); });
    arrived.wait();
    std::atomic<bool> isDone{false};
    std::atomic<long> number{0};
    std::thread other([&] {
        number = threadNumber();
        access->isRegistered({"x"});
        isDone = true;
    });
    while (!number || (!isDone && !isAsleep(number)))
        std::this_thread::yield();
    EXPECT_FALSE(isDone);
    released.post();
    connecting.join();
    other.join();
}

TEST_F(StreamAccess, TakenIdIsRefused)
{
    DevMgrStreamAcc::StreamId const id("x");
    access->registerStream(id, RCShdPtr<DevMDStream>(deviceA().out));
    try {
        access->registerStream(id, RCShdPtr<DevMDStream>(deviceA().in));
        FAIL() << "the id was taken twice";
    } catch (DevMgrEx::NameNotUnique const &failure) {
        EXPECT_STREQ(failure.getReason(), "Not a unique name.");
    }
}

TEST_F(StreamAccess, StreamInUseIsNotAvailable)
{
    access->connect("a:a.out push b:b.in");
    EXPECT_EQ(refusal<DevMgrEx::StreamNotAvailable>("a:a.out push b:b.in"), "a:a.out");
}

TEST_F(StreamAccess, SinkInUseIsReportedByTheSourcesName)
{
    access->connect("a:a.out push b:b.in");
    EXPECT_EQ(refusal<DevMgrEx::StreamNotAvailable>("b:b.out push b:b.in"), "b:b.out");
}

TEST_F(StreamAccess, IncompatibleStreamsAreReportedWithTheWholeString)
{
    deviceA().out->rate = 44100;
    EXPECT_EQ(refusal<DevMgrEx::StreamsNotCompatible>("a:a.out  push b:b.in"),
              "a:a.out  push b:b.in");
    EXPECT_EQ(journal.take(), Lines{});
}

TEST_F(StreamAccess, EndsThatDoNotFitTheVerbAreRefused)
{
    char const * const reason = "Managed device protocol not implemented.";
    EXPECT_EQ(refusal<DevMgrEx::BadMDPrtclImp>("a:a.lend push b:b.in"), reason);
    EXPECT_EQ(refusal<DevMgrEx::BadMDPrtclImp>("a:a.out push b:b.fetch"), reason);
    EXPECT_EQ(refusal<DevMgrEx::BadMDPrtclImp>("a:a.out pull b:b.fetch"), reason);
    EXPECT_EQ(refusal<DevMgrEx::BadMDPrtclImp>("a:a.lend pull b:b.in"), reason);
    EXPECT_EQ(refusal<DevMgrEx::BadMDPrtclImp>("a:a.lend pull b:b.out"), reason);
    EXPECT_EQ(refusal<DevMgrEx::BadMDPrtclImp>("a:a.in push b:b.in"), reason);
    EXPECT_EQ(refusal<DevMgrEx::BadMDPrtclImp>("a:a.out push b:b.out"), reason);
    EXPECT_EQ(journal.take(), Lines{});
}

TEST_F(StreamAccess, DeviceWithoutStreamsIsRefused)
{
    Registered const c("c",
                       [this] { return RCShdPtr<DevMDPrtcl>(new PromptSequence("c", journal)); });
    EXPECT_THROW(access->connect("c:x push b:b.in"), DevMgrEx::BadMDPrtclImp);
}

TEST_F(StreamAccess, UnknownDeviceIsRefused)
{
    EXPECT_THROW(access->connect("nobody:x push b:b.in"), DevPrtclEx::ExNameNotRegistered);
}

TEST_F(StreamAccess, RegistrationsSurviveAFailedConnection)
{
    EXPECT_THROW(access->connect("a:a.out push b:x"), DevMgrEx::NameNotFound);
    EXPECT_TRUE(access->isRegistered({"a", "a.out"}));
    EXPECT_TRUE(deviceA().out->isAvailable());
}

TEST_F(StreamAccess, StreamInUseIsReportedBeforeEndsThatDoNotFit)
{
    access->connect("a:a.out push b:b.in");
    EXPECT_EQ(refusal<DevMgrEx::StreamNotAvailable>("a:a.out push b:b.out"), "a:a.out");
}

TEST_F(StreamAccess, IncompatibleStreamsComeBeforeTheVerb)
{
    deviceA().lend->rate = 44100;
    EXPECT_EQ(refusal<DevMgrEx::StreamsNotCompatible>("a:a.lend push b:b.in"),
              "a:a.lend push b:b.in");
}

TEST_F(StreamAccess, NothingStartsIfConnectingFails)
{
    deviceA().out->failsToConnect = true;
    EXPECT_THROW(access->connect("a:a.out push b:b.in"), std::runtime_error);
    access = nullptr;
    EXPECT_EQ(journal.take(), (Lines{"connect a.out to b.in"}));
}

TEST_F(StreamAccess, StreamThatFailsToStartIsNotStopped)
{
    deviceB().in->failsToStart = true;
    EXPECT_THROW(access->connect("a:a.out push b:b.in"), std::runtime_error);
    access = nullptr;
    EXPECT_EQ(journal.take(), (Lines{"connect a.out to b.in", "start b.in"}));
}

TEST_F(StreamAccess, StreamStartedBeforeAFailureIsStoppedAtTheEnd)
{
    deviceA().out->failsToStart = true;
    deviceB().fetch->failsToStart = true;
    EXPECT_THROW(access->connect("a:a.out push b:b.in"), std::runtime_error);
    EXPECT_THROW(access->connect("a:a.lend pull b:b.fetch"), std::runtime_error);
    journal.take();
    access = nullptr;
    EXPECT_EQ(journal.take(), (Lines{"stop a.lend", "stop b.in"}));
}

TEST_F(StreamAccess, StreamThatFailsToStopDoesNotKeepTheOthersRunning)
{
    access->connect("a:a.out push b:b.in");
    access->connect("b:b.lend pull a:a.fetch");
    deviceB().lend->failsToStop = deviceB().in->failsToStop = true;
    journal.take();
    try {
        access = nullptr;
        FAIL() << "nothing was said of it";
    } catch (std::runtime_error const &failure) {
        EXPECT_STREQ(failure.what(), "runs on: b.lend");
    }
    EXPECT_EQ(journal.take(), (Lines{"stop a.fetch", "stop b.lend", "stop a.out", "stop b.in"}));
}

TEST_F(StreamAccess, StreamStartedByAnotherOnesStartIsStoppedAfterIt)
{
    StreamDevice &deviceOfIn = deviceB();
    deviceOfIn.in->whenStarted = [&] { access->connect("b:b.lend pull a:a.fetch"); };
    access->connect("a:a.out push b:b.in");
    journal.take();
    access = nullptr;
    EXPECT_EQ(journal.take(), (Lines{"stop a.out", "stop b.in", "stop a.fetch", "stop b.lend"}));
}

TEST_F(StreamAccess, ThrowsWhatAStreamsDestructorThrewAfterDestroyingAll)
{
    for (char const * const name : {"x", "y"})
        access->registerStream({name}, makeShd<FailsToEnd<ActiveSource>>(name, journal));
    EXPECT_THROW(access = nullptr, std::runtime_error);
    Lines lines = journal.take();
    std::sort(lines.begin(), lines.end());
    EXPECT_EQ(lines, (Lines{"end x", "end y"}));
}

TEST_F(StreamAccess, NullStreamIsFoundOutWhenItIsConnected)
{
    access->registerStream({"x"}, RCShdPtr<DevMDStream>());
    EXPECT_THROW(access->connect(":x push b:b.in"), RCEx::ExNullPtr);
}

TEST(StreamAccessByItself, NeedsAMediator)
{
    ObjPtr<DevMgrStreamAcc> const orphan = DevMgrStreamAcc::create(RCShdPtr<DevMgrMediator>());
    EXPECT_THROW(orphan->connect("a:x push b:y"), RCEx::ExNullPtr);
    EXPECT_THROW(orphan->isRegistered({"x"}), RCEx::ExNullPtr);
}

TEST(StreamAccessByItself, TakesNoLockInTheNoGuardFormsNorWhenItGoes)
{
    Journal journal;
    auto * const stream = new ActiveSource("x", journal);
    RCShdPtr<DevMgrMediator> const mediator(new DevMgrMediator);
    ObjPtr<DevMgrStreamAcc> access = DevMgrStreamAcc::create(mediator);
    LkGuard<LkLock const> const guard(mediator->getLock());
    // This thread holds the lock, so the other one would wait forever if it needed the lock.
    std::thread([&] {
        access->registerNoGuard({"x"}, RCShdPtr<DevMDStream>(stream));
        EXPECT_TRUE(access->isRegisteredNoGuard({"x"}));
        EXPECT_FALSE(access->isRegisteredNoGuard({"y"}));
        EXPECT_THROW(access->registerNoGuard({"x"}, RCShdPtr<DevMDStream>(stream)),
                     DevMgrEx::NameNotUnique);
        access = nullptr;
    }).join();
}

TEST_F(StreamAccess, AStartedStreamIsStoppedIfAnyAllocationFails)
{
    auto &out = *deviceA().out;
    auto &in = *deviceB().in;
    LiString const config("a:a.out push b:b.in");
    int const nbFailures = failEachAllocation([&] { access->connect(config); },
                                              [&] {
                                                  access = nullptr;
                                                  EXPECT_TRUE(out.isAvailable());
                                                  EXPECT_TRUE(in.isAvailable());
                                                  access = manager->createStreamAcc();
                                              });
    EXPECT_GT(nbFailures, 5);
    EXPECT_FALSE(out.isAvailable());
}

TEST_F(StreamAccess, IdsAreCanonical)
{
    using Id = DevMgrStreamAcc::StreamId;
    EXPECT_EQ(Id().getId(), "");
    EXPECT_EQ(Id("c").getId(), ":c");
    EXPECT_EQ(Id("a b", "c").getId(), "ab:c");
    EXPECT_EQ(Id(" a\t", "\nc ").getId(), "a:c");
}

} // namespace
} // namespace ZvTest
