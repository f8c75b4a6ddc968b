#include "zvbase/objPtr.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <type_traits>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

int nbAlive = 0;

struct Thing
{
    explicit Thing(int n = 0) : number(n) { ++nbAlive; }
    Thing(Thing const &) = delete;
    virtual ~Thing() { --nbAlive; }
    int number;
};

struct SpecialThing : Thing
{
    using Thing::Thing;
};

void take(ObjPtr<Thing> thing)
{
    EXPECT_FALSE(thing.isNull());
}

ObjPtrRet<Thing> make(int number)
{
    ObjPtr<SpecialThing> thing(new SpecialThing(number));
    return thing;
}

class ObjPtrTest : public testing::Test
{
protected:
    ~ObjPtrTest() override { EXPECT_EQ(nbAlive, 0); }
};

TEST_F(ObjPtrTest, PassedByValueItIsNullInTheCaller)
{
    ObjPtr<Thing> thing(new Thing);
    take(thing);
    EXPECT_TRUE(thing.isNull());
    EXPECT_EQ(nbAlive, 0);
}

TEST_F(ObjPtrTest, CopyingAndAssigningMove)
{
    ObjPtr<Thing> first(new Thing(1));
    ObjPtr<Thing> second(first);
    EXPECT_TRUE(first.isNull());
    ObjPtr<Thing> third(new Thing(3));
    third = second;
    EXPECT_TRUE(second.isNull());
    EXPECT_EQ(third->number, 1);
    EXPECT_EQ(nbAlive, 1);
    third = ObjPtr<Thing>(new Thing(4));
    EXPECT_EQ((*third).number, 4);
    EXPECT_EQ(nbAlive, 1);
    third = nullptr;
    EXPECT_EQ(nbAlive, 0);
}

TEST_F(ObjPtrTest, AssignedToItselfItKeepsItsObject)
{
    ObjPtr<Thing> thing(new Thing(1));
    ObjPtr<Thing> &same = thing;
    thing = same;
    ASSERT_FALSE(thing.isNull());
    thing.reset(thing.get());
    EXPECT_EQ(thing->number, 1);
    EXPECT_EQ(nbAlive, 1);
}

TEST_F(ObjPtrTest, AnOwnerOfADerivedObjectGivesItUp)
{
    ObjPtr<SpecialThing> special(new SpecialThing(1));
    ObjPtr<Thing> thing(special);
    EXPECT_TRUE(special.isNull());
    thing = ObjPtr<Thing>(ObjPtr<SpecialThing>(new SpecialThing(2)));
    EXPECT_EQ(thing->number, 2);
    static_assert(!std::is_constructible_v<ObjPtr<SpecialThing>, ObjPtr<Thing> &>);
    static_assert(!std::is_constructible_v<ArrayPtr<Thing>, ArrayPtr<SpecialThing> &>);
    static_assert(!std::is_constructible_v<ArrayPtr<Thing>, ObjPtr<Thing> &>);
    static_assert(!std::is_convertible_v<Thing *, ObjPtr<Thing>>);
}

struct PlainBase
{};
struct PlainDerived : PlainBase
{};

TEST_F(ObjPtrTest, AnObjectIsGivenUpToABaseOnlyIfThatDestroysAllOfIt)
{
    static_assert(!std::is_constructible_v<ObjPtr<PlainBase>, ObjPtr<PlainDerived> &>);
    static_assert(!std::is_constructible_v<ObjPtr<PlainBase>, ObjPtrRet<PlainDerived>>);
    static_assert(!std::is_constructible_v<ObjPtrRet<PlainBase>, ObjPtr<PlainDerived>>);
    static_assert(!std::is_constructible_v<ObjPtrRet<PlainBase>, ObjPtrRet<PlainDerived>>);
    static_assert(std::is_constructible_v<ObjPtr<Thing>, ObjPtr<SpecialThing> &>);
    ObjPtr<PlainBase> owner(new PlainBase);
    ObjPtr<PlainBase const> const constant = owner;
    EXPECT_TRUE(owner.isNull());
}

TEST_F(ObjPtrTest, AReturnedObjectFindsItsOwner)
{
    ObjPtr<Thing> const thing(make(5));
    EXPECT_EQ(thing->number, 5);
    EXPECT_EQ(nbAlive, 1);
    static_cast<void>(make(6));
    EXPECT_EQ(nbAlive, 1);
    ObjPtr<Thing> const made(makeObj<SpecialThing>(7));
    EXPECT_EQ(made->number, 7);
    static_assert(!std::is_copy_constructible_v<ObjPtrRet<Thing>>);
}

TEST_F(ObjPtrTest, AReturnedObjectCanBeTakenRaw)
{
    ObjPtrRet<Thing> returned = make(5);
    EXPECT_FALSE(returned.isNull());
    Thing * const raw = returned.release();
    EXPECT_TRUE(returned.isNull());
    delete raw;
}

TEST_F(ObjPtrTest, ReleaseHandsTheObjectBack)
{
    ObjPtr<Thing> thing(new Thing);
    Thing * const raw = thing.release();
    EXPECT_TRUE(thing.isNull());
    EXPECT_EQ(nbAlive, 1);
    delete raw;
}

TEST_F(ObjPtrTest, ResetAndSwapChangeTheObject)
{
    ObjPtr<Thing> first(new Thing(1));
    ObjPtr<Thing> second;
    first.swap(second);
    EXPECT_TRUE(first == nullptr);
    EXPECT_EQ(second.get()->number, 1);
    second.reset(new Thing(2));
    EXPECT_EQ(nbAlive, 1);
    second.reset();
    EXPECT_FALSE(second);
}

TEST_F(ObjPtrTest, ANullPointerIsNotUsed)
{
    ObjPtr<Thing> const null;
    try {
        static_cast<void>(*null);
        FAIL();
    } catch (RCEx::ExNullPtr const &failure) {
        EXPECT_STREQ(failure.getReason(), "Dereferencing a null pointer");
        EXPECT_STREQ(failure.what(), "Dereferencing a null pointer");
        EXPECT_STREQ(failure.getFile(), "../src/zvbase/rcEx.cpp");
    }
    EXPECT_THROW(static_cast<void>(null->number), std::domain_error);
    EXPECT_THROW(static_cast<void>(null->number), RCEx);
    EXPECT_THROW(static_cast<void>(ArrayPtr<int>()[0]), ExBase);
}

TEST_F(ObjPtrTest, AnArrayIsDeletedAsOne)
{
    ArrayPtr<Thing> things(new Thing[3]);
    EXPECT_EQ(nbAlive, 3);
    things[2].number = 9;
    EXPECT_EQ(things[2].number, 9);
    ArrayPtr<Thing> const others(things);
    EXPECT_TRUE(things.isNull());
}

TEST_F(ObjPtrTest, StandardContainersHoldOwners)
{
    std::vector<ObjPtr<Thing>> things;
    for (int i = 0; i < 10; ++i)
        things.emplace_back(new Thing(i));
    things.erase(things.begin());
    EXPECT_EQ(things.back()->number, 9);
    EXPECT_EQ(nbAlive, 9);
}

struct Stubborn
{
    ~Stubborn() noexcept(false) { throw std::runtime_error("stays"); }
};

TEST_F(ObjPtrTest, LetsTheExceptionOfADestructorPass)
{
    ObjPtr<Stubborn> stubborn(new Stubborn);
    EXPECT_THROW(stubborn.reset(), std::runtime_error);
    EXPECT_TRUE(stubborn.isNull());
    auto const destroy = [] { ObjPtr<Stubborn> const another(new Stubborn); };
    EXPECT_THROW(destroy(), std::runtime_error);
}

} // namespace
} // namespace ZvTest
