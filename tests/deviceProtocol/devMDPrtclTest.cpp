#include "recording.h"

#include "testing/failures.h"

#include <gtest/gtest.h>

#include <cstdint>

namespace ZvTest {
namespace {

/// Device with access and properties, without the standard classes.
class PlainDevice : public DevMDAccessPrtcl, public DevMDPropertyPrtcl
{
public:
    explicit PlainDevice(bool &destroyed) : _destroyed(destroyed) {}
    ~PlainDevice() override { _destroyed = true; }

    void performOpen() override {}
    void performClose() override {}
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() override { return {}; }
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() override { return {}; }
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() override { return {}; }
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() override { return {}; }

private:
    bool &_destroyed;
};

TEST(DevMDPrtcl, ADeviceOfTwoFacesHasOneCountAndACastFindsEither)
{
    bool destroyed = false;
    RCShdPtr<DevMDPrtcl> device(new PlainDevice(destroyed));
    EXPECT_TRUE(device.isUnique());

    RCShdPtr<DevMDAccessPrtcl> access(dynamic_cast<DevMDAccessPrtcl *>(device.get()));
    ASSERT_FALSE(access.isNull());
    EXPECT_FALSE(device.isUnique());
    RCShdPtr<DevMDPropertyPrtcl> properties(dynamic_cast<DevMDPropertyPrtcl *>(device.get()));
    ASSERT_FALSE(properties.isNull());
    EXPECT_EQ(dynamic_cast<DevMDStreamPrtcl *>(device.get()), nullptr);
    EXPECT_EQ(dynamic_cast<DevMDSyncSeqPrtcl *>(device.get()), nullptr);

    device = nullptr;
    access = nullptr;
    EXPECT_FALSE(destroyed);
    EXPECT_TRUE(properties.isUnique());
    properties = nullptr;
    EXPECT_TRUE(destroyed);
}

template <class T>
class PlainProperty : public DevMDProperty<T>
{
public:
    explicit PlainProperty(unsigned int attributes) : _attributes(attributes) {}

    LiUuid getUuid() override { return LiUuid(); }
    LiString getName() override { return "gain"; }
    LiString getDescription() override { return "none"; }
    unsigned int getAttributes() const override { return _attributes; }
    bool isAvailable() const override { return true; }
    void setObserverAEO(ObjPtr<DevMDPropertyAEO>) override {}

    int sets = 0;
    int gets = 0;
    T held{};

protected:
    void performSet(T const &value) override
    {
        ++sets;
        held = value;
    }
    void performGet(T &value) override
    {
        ++gets;
        value = held;
    }

private:
    unsigned int _attributes;
};

TEST(DevMDProperty, SetWithoutItsBitThrowsAndNeverReachesTheDevice)
{
    RCShdPtr<PlainProperty<int>> property(new PlainProperty<int>(DevMDPropertyAny::READABLE));
    EXPECT_EQ(reasonOf<DevPrtclEx::ExMDPropertyIllegalOp>([&] { property->set(1); }),
              "\"set\" is not available for property gain\".");
    EXPECT_EQ(property->sets, 0);
    int value = 7;
    property->get(value);
    EXPECT_EQ(value, 0);
}

TEST(DevMDProperty, GetWithoutItsBitThrowsAndNeverReachesTheDevice)
{
    RCShdPtr<PlainProperty<int>> property(new PlainProperty<int>(DevMDPropertyAny::WRITABLE));
    int value = 7;
    EXPECT_EQ(reasonOf<DevPrtclEx::ExMDPropertyIllegalOp>([&] { property->get(value); }),
              "\"get\" is not available for property gain\".");
    EXPECT_EQ(property->gets, 0);
    EXPECT_EQ(value, 7);
    property->set(3);
    EXPECT_EQ(property->held, 3);
}

TEST(DevMDProperty, TheBitsAreOneForReadingAndTwoForWriting)
{
    EXPECT_EQ(DevMDPropertyAny::READABLE, 1u);
    EXPECT_EQ(DevMDPropertyAny::WRITABLE, 2u);
}

template <class T>
class DevMDPropertyOf : public testing::Test
{};

using ValueTypes =
    testing::Types<bool, signed char, unsigned char, short, unsigned short, int, unsigned int,
                   std::int64_t, std::uint64_t, float, double, Vector<bool>, Vector<signed char>,
                   Vector<unsigned char>, Vector<short>, Vector<unsigned short>, Vector<int>,
                   Vector<unsigned int>, Vector<std::int64_t>, Vector<std::uint64_t>, Vector<float>,
                   Vector<double>>;
TYPED_TEST_SUITE(DevMDPropertyOf, ValueTypes);

template <class T>
T sample(T const &)
{
    return T(1);
}

template <class T>
Vector<T> sample(Vector<T> const &)
{
    return {T(1), T(0), T(1)};
}

TYPED_TEST(DevMDPropertyOf, KeepsItsValueAndIsFoundByItsTypeAlone)
{
    static_assert(DevMDPropertyValue<TypeParam>);
    RCShdPtr<DevMDPropertyAny> property(new PlainProperty<TypeParam>(3));
    auto * const typed = dynamic_cast<DevMDProperty<TypeParam> *>(property.get());
    ASSERT_NE(typed, nullptr);
    TypeParam const written = sample(TypeParam());
    typed->set(written);
    TypeParam read{};
    typed->get(read);
    EXPECT_EQ(read, written);
    if constexpr (!std::is_same_v<TypeParam, int>) {
        EXPECT_EQ(dynamic_cast<DevMDProperty<int> *>(property.get()), nullptr);
    }
}

static_assert(!DevMDPropertyValue<char>);
static_assert(!DevMDPropertyValue<LiString>);
static_assert(!DevMDPropertyValue<Vector<char>>);
static_assert(!DevMDPropertyValue<Vector<Vector<int>>>);

TEST(DevMDPropertyAEO, ExecutedItPassesEveryEvent)
{
    struct Observer : DevMDPropertyAEO
    {
        void performNotify(unsigned int events) override { last = events; }
        unsigned int last = 0;
    };
    Observer observer;
    static_cast<DevAEO &>(observer).performExecute();
    EXPECT_EQ(observer.last, 0xFFFFFFFFu);
}

} // namespace
} // namespace ZvTest
