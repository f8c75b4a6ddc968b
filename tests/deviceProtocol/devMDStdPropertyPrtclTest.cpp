#include "recording.h"

#include "testing/failures.h"

#include <gtest/gtest.h>

#include <thread>

namespace ZvTest {
namespace {

class PropertyDevice : public DevMDStdPropertyPrtcl
{
public:
    PropertyDevice() : DevMDStdPropertyPrtcl("camera") {}

    using DevMDStdPropertyPrtcl::getPropertySetBuilder;
};

RCShdPtr<DevMDPropertyAny> property(LiString const &name)
{
    return RCShdPtr<DevMDPropertyAny>(new DevMDStdProperty<int>(
        name, "", DevMDPropertyAny::READABLE, makePropertyANOFactory<int>([](int) {}, [](int &) {}),
        makeShd<DevMDStdFifo>()));
}

template <class Element>
Lines names(ConstIterator<RCShdPtr<Element>> iterator)
{
    Lines found;
    for (; !iterator.atEnd(); ++iterator)
        found.push_back((*iterator)->getName().getChars());
    return found;
}

char const * const readUnavailable = " forbidden while property builders are active.";

class DevMDStdPropertyPrtclTest : public testing::Test
{
protected:
    ~DevMDStdPropertyPrtclTest() noexcept override {} // destructors of members may throw

    RCShdPtr<PropertyDevice> _device = makeShd<PropertyDevice>();
};

TEST_F(DevMDStdPropertyPrtclTest, NoReadIsPossibleWhileABuilderLives)
{
    ObjPtr<DevMDStdPropertySetBuilder> builder(_device->getPropertySetBuilder());
    using Unavailable = DevPrtclEx::ExMDStdPropertiesReadUnavail;
    std::string const sets =
        std::string("Read-only access to camera property sets") + readUnavailable;
    std::string const properties =
        std::string("Read-only access to camera properties") + readUnavailable;
    EXPECT_EQ(reasonOf<Unavailable>([&] { _device->getPropertySetIter(); }), sets);
    EXPECT_EQ(reasonOf<Unavailable>([&] { _device->getPropertySetIterEnd(); }), sets);
    EXPECT_EQ(reasonOf<Unavailable>([&] { _device->getPropertyIter(); }), properties);
    EXPECT_EQ(reasonOf<Unavailable>([&] { _device->getPropertyIterEnd(); }), properties);

    // A refused read does not count as one, so building continues.
    ObjPtr<DevMDStdPropertySetBuilder> another(_device->getPropertySetBuilder());
    EXPECT_FALSE(another.isNull());
}

TEST_F(DevMDStdPropertyPrtclTest, AReadAfterTheBuilderIsAllowedAndLaterBuildersAreRefused)
{
    {
        ObjPtr<DevMDStdPropertySetBuilder> builder(_device->getPropertySetBuilder());
        builder->addProperty(property("gain"));
    }
    EXPECT_EQ(names(_device->getPropertyIter()), Lines{"gain"});
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(reasonOf<DevPrtclEx::ExMDStdPropertiesWriteUnavail>([&] {
                      ObjPtr<DevMDStdPropertySetBuilder>(_device->getPropertySetBuilder());
                  }),
                  "Read-write access to camera properties forbidden after read-only access has "
                  "started.");
    }
    EXPECT_EQ(names(_device->getPropertyIter()), Lines{"gain"});
}

TEST_F(DevMDStdPropertyPrtclTest, EachOfTheFourReadsEndsTheTimeOfBuilding)
{
    using Read = void (*)(PropertyDevice &);
    Read const reads[] = {
        [](PropertyDevice &device) { device.getPropertySetIter(); },
        [](PropertyDevice &device) { device.getPropertySetIterEnd(); },
        [](PropertyDevice &device) { device.getPropertyIter(); },
        [](PropertyDevice &device) { device.getPropertyIterEnd(); },
    };
    for (Read const read : reads) {
        RCShdPtr<PropertyDevice> const device = makeShd<PropertyDevice>();
        read(*device);
        EXPECT_THROW(ObjPtr<DevMDStdPropertySetBuilder>(device->getPropertySetBuilder()),
                     DevPrtclEx::ExMDStdPropertiesWriteUnavail);
    }
}

// Each reader records that reading has started. With a plain flag that would be a data race.
TEST_F(DevMDStdPropertyPrtclTest, AnyThreadReadsATreeThatIsBuilt)
{
    ObjPtr<DevMDStdPropertySetBuilder>(_device->getPropertySetBuilder())
        ->addProperty(property("gain"));
    std::vector<std::thread> readers;
    for (int i = 0; i < 3; ++i)
        readers.emplace_back([this] {
            for (int n = 0; n < 100; ++n)
                EXPECT_EQ(names(_device->getPropertyIter()), Lines{"gain"});
        });
    for (auto &reader : readers)
        reader.join();
}

TEST_F(DevMDStdPropertyPrtclTest, ReadsAreRefusedUntilBothOfTwoBuildersAreGone)
{
    ObjPtr<DevMDStdPropertySetBuilder> first(_device->getPropertySetBuilder());
    ObjPtr<DevMDStdPropertySetBuilder> second(_device->getPropertySetBuilder());
    first->addProperty(property("gain"));
    second->addProperty(property("focus"));
    first = nullptr;
    EXPECT_THROW(_device->getPropertyIter(), DevPrtclEx::ExMDStdPropertiesReadUnavail);
    second = nullptr;
    EXPECT_EQ(names(_device->getPropertyIter()), (Lines{"gain", "focus"}));
}

TEST_F(DevMDStdPropertyPrtclTest, PushingANameThatIsThereEntersTheSameSet)
{
    ObjPtr<DevMDStdPropertySetBuilder> builder(_device->getPropertySetBuilder());
    builder->pushSet("lens", "The lens");
    builder->addProperty(property("focus"));
    builder->popSet();
    builder->pushSet("lens", "Another text");
    builder->addProperty(property("zoom"));
    EXPECT_EQ(names(builder->getCurrentPropertyIter()), (Lines{"focus", "zoom"}));
    builder = nullptr;

    auto sets = _device->getPropertySetIter();
    EXPECT_EQ(sets.getCardinality(), 1u);
    EXPECT_EQ((*sets)->getDescription(), "The lens");
    EXPECT_EQ(names((*sets)->getPropertyIter()), (Lines{"focus", "zoom"}));
    EXPECT_EQ(names(_device->getPropertyIter()), Lines{});
}

TEST_F(DevMDStdPropertyPrtclTest, SetsNest)
{
    ObjPtr<DevMDStdPropertySetBuilder> builder(_device->getPropertySetBuilder());
    builder->pushSet("lens", "");
    builder->pushSet("motor", "");
    EXPECT_EQ(builder->getCurrentSetName(), "motor");
    builder->addProperty(property("speed"));
    builder->popSet();
    EXPECT_EQ(builder->getCurrentSetName(), "lens");
    EXPECT_EQ(names(builder->getCurrentPropertySetIter()), Lines{"motor"});
    EXPECT_EQ(names(builder->getCurrentPropertyIter()), Lines{});
    builder = nullptr;

    RCShdPtr<DevMDPropertySet> const lens = *_device->getPropertySetIter();
    EXPECT_EQ(names(lens->getPropertySetIter()), Lines{"motor"});
    RCShdPtr<DevMDPropertySet> const motor = *lens->getPropertySetIter();
    EXPECT_EQ(names(motor->getPropertyIter()), Lines{"speed"});
    EXPECT_TRUE(motor->getPropertySetIter().atEnd());
    EXPECT_TRUE(motor->getPropertyIterEnd().atEnd());
    EXPECT_TRUE(lens->getPropertySetIterEnd().atEnd());
    EXPECT_TRUE(_device->getPropertySetIterEnd().atEnd());
    EXPECT_TRUE(_device->getPropertyIterEnd().atEnd());
}

TEST_F(DevMDStdPropertyPrtclTest, PoppingAtTheRootThrowsAndTheStackStaysEmpty)
{
    ObjPtr<DevMDStdPropertySetBuilder> builder(_device->getPropertySetBuilder());
    for (int i = 0; i < 2; ++i) {
        EXPECT_EQ(reasonOf<DevPrtclEx::ExMDStdPropertySetBuilderPop>([&] { builder->popSet(); }),
                  "Trying to pop the builder's property stack when it is empty.");
        EXPECT_EQ(builder->getCurrentSetName(), "");
    }
    builder->addProperty(property("gain"));
    EXPECT_EQ(names(builder->getCurrentPropertyIter()), Lines{"gain"});
}

TEST_F(DevMDStdPropertyPrtclTest, TheCurrentSetAtTheRootHasTheEmptyName)
{
    ObjPtr<DevMDStdPropertySetBuilder> builder(_device->getPropertySetBuilder());
    EXPECT_EQ(builder->getCurrentSetName(), "");
    EXPECT_EQ(builder->getCurrentSetName().getLength(), 0);
}

TEST_F(DevMDStdPropertyPrtclTest, APropertysNameIsUniqueInItsSetOnly)
{
    ObjPtr<DevMDStdPropertySetBuilder> builder(_device->getPropertySetBuilder());
    builder->addProperty(property("gain"));
    EXPECT_EQ(
        reasonOf<DevPrtclEx::ExNameNotUnique>([&] { builder->addProperty(property("gain")); }),
        "Not a unique name.");
    EXPECT_EQ(names(builder->getCurrentPropertyIter()), Lines{"gain"});
    builder->pushSet("lens", "");
    builder->addProperty(property("gain"));
    EXPECT_EQ(names(builder->getCurrentPropertyIter()), Lines{"gain"});
}

TEST_F(DevMDStdPropertyPrtclTest, ThrowsWhatAPropertysDestructorThrewAfterDestroyingAll)
{
    class Failing : public DevMDStdProperty<int>
    {
    public:
        Failing(Journal &log, char const *name)
            : DevMDStdProperty(name, "", READABLE, makePropertyANOFactory<int>([](int &) {}),
                               makeShd<DevMDStdFifo>()),
              _end(log, name)
        {}

    private:
        FailingEnd _end;
    };
    Journal log;
    {
        ObjPtr<DevMDStdPropertySetBuilder> const builder(_device->getPropertySetBuilder());
        builder->addProperty(makeShd<Failing>(log, "gain"));
        builder->addProperty(makeShd<Failing>(log, "offset"));
        for (char const * const set : {"lens", "sensor"}) {
            builder->pushSet(set, "");
            builder->addProperty(makeShd<Failing>(log, "focus"));
            builder->addProperty(makeShd<Failing>(log, "zoom"));
            builder->popSet();
        }
    }
    EXPECT_EQ(whatFails([&] { _device = nullptr; }), "focus");
    EXPECT_EQ(log.getLines(), (Lines{"~focus", "~zoom", "~focus", "~zoom", "~gain", "~offset"}));
}

TEST(DevMDStdPropertySetBuilder, OnlyItsDestructorDecrementsTheCount)
{
    Vector<RCShdPtr<DevMDPropertySet>> sets;
    Vector<RCShdPtr<DevMDPropertyAny>> properties;
    int count = 2;
    {
        DevMDStdPropertySetBuilder builder(sets, properties, count);
        EXPECT_EQ(count, 2);
        builder.pushSet("lens", "The lens");
    }
    EXPECT_EQ(count, 1);
    ASSERT_EQ(sets.size(), 1u);
    EXPECT_EQ(sets[0]->getName(), "lens");
}

class ForeignSet : public DevMDPropertySet
{
public:
    LiString getName() override { return "lens"; }
    LiString getDescription() override { return ""; }
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() override { return {}; }
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() override { return {}; }
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() override { return {}; }
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() override { return {}; }
};

TEST(DevMDStdPropertySetBuilder, DoesNotEnterASetThatIsNoStandardOne)
{
    Vector<RCShdPtr<DevMDPropertySet>> sets{RCShdPtr<DevMDPropertySet>(new ForeignSet)};
    Vector<RCShdPtr<DevMDPropertyAny>> properties;
    int count = 1;
    DevMDStdPropertySetBuilder builder(sets, properties, count);
    EXPECT_THROW(builder.pushSet("lens", ""), AssertionFailed);
    EXPECT_EQ(builder.getCurrentSetName(), "");
}

} // namespace
} // namespace ZvTest
