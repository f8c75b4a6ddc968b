#include "fakeDevices.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ZvTest {

using namespace Zv;

namespace {

class CountedEntry : public DevRegistryEntry
{
public:
    CountedEntry(char const *name, char const *description, int &destroyed)
        : DevRegistryEntry(name, description), _destroyed(destroyed)
    {}
    ~CountedEntry() override { ++_destroyed; }

    RCShdPtr<DevMDPrtcl> createPrtcl() override { return RCShdPtr<DevMDPrtcl>(); }

private:
    int &_destroyed;
};

TEST(Registry, EmptyRegistryGivesNoNames)
{
    auto &registry = DevRegistry::getInstance();
    ObjPtr<Vector<LiString>> const names = registry.getNames();
    EXPECT_TRUE(names->empty());
    EXPECT_EQ(registry.getCount(), 0);
}

TEST(Registry, KeepsEntriesByName)
{
    auto &registry = DevRegistry::getInstance();
    int destroyed = 0;
    registry.add(ObjPtr<DevRegistryEntry>(new CountedEntry("one", "the first", destroyed)));
    registry.add(ObjPtr<DevRegistryEntry>(new CountedEntry("two", "the second", destroyed)));

    EXPECT_EQ(registry.getCount(), 2);
    EXPECT_TRUE(registry.isRegistered("one"));
    EXPECT_FALSE(registry.isRegistered("three"));
    EXPECT_EQ(registry.getDescription("two"), "the second");
    ObjPtr<Vector<LiString>> const names = registry.getNames();
    std::sort(names->begin(), names->end());
    EXPECT_EQ(*names, (Vector<LiString>{"one", "two"}));

    registry.remove("one");
    EXPECT_EQ(destroyed, 1);
    EXPECT_FALSE(registry.isRegistered("one"));
    registry.remove("two");
    EXPECT_EQ(destroyed, 2);
    EXPECT_EQ(registry.getCount(), 0);
}

TEST(Registry, SecondEntryUnderANameIsDestroyedAndTheFirstStays)
{
    auto &registry = DevRegistry::getInstance();
    int first = 0;
    int second = 0;
    registry.add(ObjPtr<DevRegistryEntry>(new CountedEntry("name", "the first", first)));
    try {
        registry.add(ObjPtr<DevRegistryEntry>(new CountedEntry("name", "the second", second)));
        FAIL() << "the name was accepted twice";
    } catch (DevPrtclEx::ExNameNotUnique const &failure) {
        EXPECT_STREQ(failure.getReason(), "Not a unique name.");
    }
    EXPECT_EQ(first, 0);
    EXPECT_EQ(second, 1);
    EXPECT_EQ(registry.getDescription("name"), "the first");
    registry.remove("name");
}

TEST(Registry, EntryMadeFromAFunctionCallsItWithItsName)
{
    auto &registry = DevRegistry::getInstance();
    std::vector<std::string> made;
    Journal journal;
    registry.add(makeRegistryEntry("camera", "takes pictures", [&](LiString const &name) {
        made.push_back(name.getChars());
        return RCShdPtr<RecordingAccess>(new RecordingAccess("a", journal));
    }));
    EXPECT_EQ(registry.getDescription("camera"), "takes pictures");
    EXPECT_TRUE(made.empty());
    RCShdPtr<DevMDPrtcl> const one = registry.createPrtcl("camera");
    RCShdPtr<DevMDPrtcl> const other = registry.createPrtcl("camera");
    EXPECT_FALSE(one == other);
    EXPECT_EQ(made, (std::vector<std::string>{"camera", "camera"}));
    registry.remove("camera");
}

TEST(Registry, UnknownNamesAreRefused)
{
    auto &registry = DevRegistry::getInstance();
    auto const refuses = [](auto operation) {
        try {
            operation();
            ADD_FAILURE() << "an unknown name was accepted";
        } catch (DevPrtclEx::ExNameNotRegistered const &failure) {
            EXPECT_STREQ(failure.getReason(), "Device name not found in the registry.");
        }
    };
    refuses([&] { registry.remove("nobody"); });
    refuses([&] { registry.getDescription("nobody"); });
    refuses([&] { registry.createPrtcl("nobody"); });
}

} // namespace
} // namespace ZvTest
