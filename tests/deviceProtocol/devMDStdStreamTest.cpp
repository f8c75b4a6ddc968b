#include "recording.h"

#include <gtest/gtest.h>

#include <thread>
#include <type_traits>

namespace ZvTest {
namespace {

struct Format : DevMDStreamFormat
{};

class ActiveSink : public DevMDStdStreamActiveSink
{
public:
    using DevMDStdStreamActiveSink::DevMDStdStreamActiveSink;
    int getKind() override { return 1; }
    bool isCompatible(RCShdPtr<DevMDStreamFormat> const &) override { return true; }
    void connect(RCShdPtr<DevMDStreamPassiveSource>) override {}
};

class ActiveSource : public DevMDStdStreamActiveSource
{
public:
    using DevMDStdStreamActiveSource::DevMDStdStreamActiveSource;
    int getKind() override { return 2; }
    RCShdPtr<DevMDStreamFormat> getFormat() override { return makeShd<Format>(); }
    void connect(RCShdPtr<DevMDStreamPassiveSink>) override {}
};

class PassiveSource : public DevMDStdStreamPassiveSource
{
public:
    using DevMDStdStreamPassiveSource::DevMDStdStreamPassiveSource;
    int getKind() override { return 3; }
    RCShdPtr<DevMDStreamFormat> getFormat() override { return makeShd<Format>(); }
    ObjPtrRet<DevMDStreamElem> pull() override { return nullptr; }
};

class PassiveSink : public DevMDStdStreamPassiveSink
{
public:
    using DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink;
    int getKind() override { return 4; }
    bool isCompatible(RCShdPtr<DevMDStreamFormat> const &format) override
    {
        return !rcDynamicCast<Format>(format).isNull();
    }
};

class StreamDevice : public DevMDStdStreamPrtcl
{
public:
    StreamDevice() : DevMDStdStreamPrtcl("camera") {}

    using DevMDStdStreamPrtcl::addStream;
};

struct Payload : DevMDStreamBuf
{
    explicit Payload(int n) : number(n) {}
    int number;
};

ObjPtr<DevMDStreamElem> element(int number)
{
    return ObjPtr<DevMDStreamElem>(
        new DevMDStreamElem(makeShd<Payload>(number), DevMDStreamElem::Ev{number}));
}

Vector<RCShdPtr<DevMDStream>> allKinds()
{
    auto const fifo = makeShd<DevMDStdFifo>();
    return {
        makeShd<ActiveSink>("name", "description"),
        makeShd<ActiveSource>("name", "description"),
        makeShd<PassiveSource>("name", "description"),
        makeShd<PassiveSink>("name", "description", fifo,
                             makePushANOFactory([](ObjPtr<DevMDStreamElem>) {})),
    };
}

TEST(DevMDStdStream, IsAvailableUntilStartedAndAgainAfterStop)
{
    for (auto const &stream : allKinds()) {
        EXPECT_TRUE(stream->isAvailable());
        stream->start();
        EXPECT_FALSE(stream->isAvailable());
        stream->stop();
        EXPECT_TRUE(stream->isAvailable());
    }
}

// A connection stops its streams without a lock. With a plain flag that would be a data race.
TEST(DevMDStdStream, AnyThreadMayAskWhetherItIsAvailable)
{
    for (auto const &stream : allKinds()) {
        std::thread connection([&] {
            for (int i = 0; i < 100; ++i) {
                stream->start();
                stream->stop();
            }
        });
        for (int i = 0; i < 100; ++i)
            (void)stream->isAvailable();
        connection.join();
        EXPECT_TRUE(stream->isAvailable());
    }
}

TEST(DevMDStdStreamPrtcl, AnyThreadMayAskForTheStreams)
{
    RCShdPtr<StreamDevice> const device = makeShd<StreamDevice>();
    device->addStream(makeShd<ActiveSource>("video", ""));
    std::thread other([&] {
        for (int i = 0; i < 100; ++i)
            EXPECT_FALSE(device->performGetStreams().atEnd());
    });
    for (int i = 0; i < 100; ++i)
        EXPECT_FALSE(device->performGetStreams().atEnd());
    other.join();
}

TEST(DevMDStdStream, KnowsNameAndDescription)
{
    for (auto const &stream : allKinds()) {
        EXPECT_EQ(stream->getName(), "name");
        EXPECT_EQ(stream->getDescription(), "description");
    }
}

TEST(DevMDStdStreamPrtcl, GivesItsStreamsInTheirOrder)
{
    RCShdPtr<StreamDevice> const device = makeShd<StreamDevice>();
    device->addStream(makeShd<ActiveSource>("video", ""));
    device->addStream(makeShd<ActiveSource>("audio", ""));
    Lines names;
    auto streams = device->performGetStreams();
    EXPECT_EQ(streams.getCardinality(), 2u);
    for (; !streams.atEnd(); ++streams)
        names.push_back((*streams)->getName().getChars());
    EXPECT_EQ(names, (Lines{"video", "audio"}));
}

TEST(DevMDStdStreamPrtcl, AddStreamAfterTheFirstIteratorThrows)
{
    RCShdPtr<StreamDevice> const device = makeShd<StreamDevice>();
    EXPECT_TRUE(device->performGetStreams().atEnd());
    try {
        device->addStream(makeShd<ActiveSource>("video", ""));
        FAIL();
    } catch (DevPrtclEx::ExMDStdAddStream &failure) {
        EXPECT_STREQ(failure.getReason(), "Attempt to add stream after iterator created.");
    }
    EXPECT_TRUE(device->performGetStreams().atEnd());
}

TEST(DevMDStreamElem, CopiesShareThePayload)
{
    ObjPtr<DevMDStreamElem> const elem = element(7);
    DevMDStreamElem const copy(*elem);
    EXPECT_EQ(copy.getBuf(), elem->getBuf());
    EXPECT_EQ(copy.getEv(), DevMDStreamElem::Ev{7});
}

class DevMDStdStreamPassiveSinkTest : public testing::Test
{
protected:
    ~DevMDStdStreamPassiveSinkTest() noexcept override {} // destructors of members may throw

    RCShdPtr<DevMDStdFifo> _fifo = makeShd<DevMDStdFifo>(2);
    std::vector<int> _taken;
    RCShdPtr<PassiveSink> _sink = makeShd<PassiveSink>(
        "in", "", _fifo, makePushANOFactory([this](ObjPtr<DevMDStreamElem> elem) {
            _taken.push_back(rcDynamicCast<Payload>(elem->getBuf())->number);
        }));
};

TEST_F(DevMDStdStreamPassiveSinkTest, PushReturnsWhenTheRequestIsQueued)
{
    ObjPtr<DevMDStreamElem> elem = element(1);
    _sink->push(elem);
    EXPECT_TRUE(elem.isNull());
    _sink->push(element(2));
    EXPECT_TRUE(_taken.empty());
    drain(*_fifo);
    EXPECT_EQ(_taken, (std::vector<int>{1, 2}));
}

TEST_F(DevMDStdStreamPassiveSinkTest, APushedRequestHasNoACO)
{
    _sink->push(element(1));
    ObjPtr<DevANO> ano(_fifo->consume().release());
    ObjPtr<DevACO> aco(ano->releaseACO());
    aco->performExecute(); // does nothing
    EXPECT_TRUE(_taken.empty());
}

TEST_F(DevMDStdStreamPassiveSinkTest, AFullFifoHoldsThePusher)
{
    constexpr int nbElements = 200;
    std::thread pusher([&] {
        for (int i = 0; i < nbElements; ++i)
            _sink->push(element(i));
    });
    while (_taken.size() < nbElements)
        ObjPtr<DevANO>(_fifo->consume().release())->performExecute();
    pusher.join();
    for (int i = 0; i < nbElements; ++i)
        EXPECT_EQ(_taken[static_cast<std::size_t>(i)], i);
}

TEST_F(DevMDStdStreamPassiveSinkTest, AnElementIsDestroyedIfItsRequestIsNotExecuted)
{
    ObjPtr<DevMDStreamElem> elem = element(1);
    RCShdPtr<DevMDStreamBuf> const payload = elem->getBuf();
    _sink->push(elem);
    EXPECT_FALSE(payload.isUnique());
    _fifo->close();
    EXPECT_TRUE(payload.isUnique());
    EXPECT_TRUE(_taken.empty());
}

TEST_F(DevMDStdStreamPassiveSinkTest, CopyingMovesTheFactory)
{
    static_assert(!std::is_constructible_v<PassiveSink, PassiveSink const &>);
    RCShdPtr<PassiveSink> const copy(new PassiveSink(*_sink));
    EXPECT_THROW(_sink->push(element(1)), RCEx::ExNullPtr);
    copy->push(element(2));
    *_sink = *copy;
    EXPECT_THROW(copy->push(element(3)), RCEx::ExNullPtr);
    _sink->push(element(4));
    drain(*_fifo);
    EXPECT_EQ(_taken, (std::vector<int>{2, 4}));
}

TEST_F(DevMDStdStreamPassiveSinkTest, NullFifoAndNullFactoryAreNullPointerFailures)
{
    auto const withoutFifo = makeShd<PassiveSink>(
        "in", "", RCShdPtr<DevMDStdFifo>(), makePushANOFactory([](ObjPtr<DevMDStreamElem>) {}));
    EXPECT_THROW(withoutFifo->push(element(1)), RCEx::ExNullPtr);
    auto const withoutFactory =
        makeShd<PassiveSink>("in", "", _fifo, ObjPtr<DevMDStdStreamPassiveSinkANOFactory>());
    EXPECT_THROW(withoutFactory->push(element(1)), RCEx::ExNullPtr);
}

TEST(DevMDStdStreamPrtcl, ThrowsWhatAStreamsDestructorThrewAfterDestroyingAll)
{
    class Failing : public PassiveSource
    {
    public:
        Failing(Journal &log, char const *name) : PassiveSource(name, ""), _end(log, name) {}

    private:
        FailingEnd _end;
    };
    Journal log;
    RCShdPtr<StreamDevice> device = makeShd<StreamDevice>();
    device->addStream(makeShd<Failing>(log, "first"));
    device->addStream(makeShd<Failing>(log, "second"));
    EXPECT_EQ(whatFails([&] { device = nullptr; }), "first");
    EXPECT_EQ(log.getLines(), (Lines{"~first", "~second"}));
}

} // namespace
} // namespace ZvTest
