#include "resmgt/threads/mtSpecificData.h"

#include "resmgt/threads/mtEx.h"
#include "threads/threadTesting.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>
#include <thread>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

int nbMade = 0;
int nbDeleted = 0;

struct Counted
{
    Counted() { ++nbMade; }
    ~Counted() { ++nbDeleted; }
    int value = 0;
};

class EmptyData : public MtOpaqueData
{
public:
    EmptyData() : MtOpaqueData("name", [](void *) {}) {}

protected:
    void *performCreate() const override { return nullptr; }
};

class MtSpecificDataTest : public testing::Test, protected TestAccess<MtSpecificDataRegistry>
{
protected:
    void SetUp() override { nbMade = nbDeleted = 0; }
};

TEST_F(MtSpecificDataTest, SecondUseInAThreadGivesTheSameObjectAndMakesNothing)
{
    MtSpecificData<Counted> const data("data");
    EXPECT_STREQ(data.getName(), "data");
    EXPECT_TRUE(data.isNull());
    Counted * const first = data.getPointee();
    EXPECT_FALSE(data.isNull());
    EXPECT_EQ(data.getPointee(), first);
    EXPECT_EQ(&*data, first);
    data->value = 7;
    EXPECT_EQ(first->value, 7);
    EXPECT_EQ(nbMade, 1);
    EXPECT_EQ(countEntries(&data), 1u);
}

TEST_F(MtSpecificDataTest, TwoThreadsHaveTwoValuesAndTwoEntries)
{
    MtSpecificData<Counted> const data("data");
    Counted * const mine = data.getPointee();
    std::thread([&] {
        EXPECT_TRUE(data.isNull());
        EXPECT_NE(data.getPointee(), mine);
        EXPECT_EQ(countEntries(&data), 2u);
        MtSpecificDataRegistry::getInstance().removeSpecificData();
        EXPECT_TRUE(data.isNull());
        EXPECT_EQ(nbDeleted, 1);
        EXPECT_EQ(countEntries(&data), 1u);
    }).join();
    EXPECT_EQ(data.getPointee(), mine);
    EXPECT_EQ(nbMade, 2);
}

TEST_F(MtSpecificDataTest, RemovalWithoutEntriesDoesNothing)
{
    std::thread([] { MtSpecificDataRegistry::getInstance().removeSpecificData(); }).join();
    EXPECT_EQ(nbDeleted, 0);
}

TEST_F(MtSpecificDataTest, UseAfterRemovalMakesANewValue)
{
    std::thread([] {
        MtSpecificData<Counted> const data("data");
        data->value = 3;
        MtSpecificDataRegistry::getInstance().removeSpecificData();
        EXPECT_TRUE(data.isNull());
        EXPECT_EQ(data->value, 0);
        EXPECT_EQ(nbMade, 2);
        EXPECT_EQ(nbDeleted, 1);
    }).join();
    EXPECT_EQ(nbDeleted, 2);
}

TEST_F(MtSpecificDataTest, NothingMadeIsNoContent)
{
    EmptyData const data;
    try {
        data.getPointee();
        FAIL();
    } catch (MtEx::ExNoContent const &failure) {
        EXPECT_STREQ(failure.getReason(), "MtOpaqueData(\"name\") has no content");
    }
    EXPECT_TRUE(data.isNull());
}

TEST_F(MtSpecificDataTest, DeletionTakesTheEntryAlong)
{
    MtSpecificData<Counted> const data("data");
    data.performDelete();
    EXPECT_EQ(nbDeleted, 0);
    data.getPointee();
    data.performDelete();
    EXPECT_TRUE(data.isNull());
    EXPECT_EQ(nbDeleted, 1);
    EXPECT_EQ(countEntries(&data), 0u);
    data.getPointee();
    EXPECT_EQ(countEntries(&data), 1u);
}

TEST_F(MtSpecificDataTest, DestructionDeletesTheCallersValueAndLeavesThoseOfOthers)
{
    ObjPtr<MtSpecificData<Counted>> data(new MtSpecificData<Counted>("data"));
    MtOpaqueData const * const place = data.get();
    data->getPointee();
    ObjPtr<Counted> others;
    std::thread([&] { others.reset(data->getPointee()); }).join();
    EXPECT_EQ(countEntries(place), 2u);
    data.reset();
    EXPECT_EQ(nbDeleted, 1);
    EXPECT_EQ(countEntries(place), 0u); // no entry refers to the destroyed object
}

TEST_F(MtSpecificDataTest, AThreadIsNotTakenForAFormerOneOfItsNumber)
{
    MtSpecificData<Counted> const data("data");
    std::vector<ObjPtr<Counted>> left(20);
    for (ObjPtr<Counted> &value : left) // each thread may get the number of the previous one
        std::thread([&] { value.reset(data.getPointee()); }).join();
    for (int i = 0; i != 20; ++i)
        std::thread([&] {
            if (i % 2)
                data.getPointee();
            MtSpecificDataRegistry::getInstance().removeSpecificData();
        }).join();
    EXPECT_EQ(nbDeleted, 10);
}

TEST_F(MtSpecificDataTest, AddingNothingFailsTheAssertion)
{
    EXPECT_EQ(
        failedAssertion([] { MtSpecificDataRegistry::getInstance().addSpecificData(nullptr); }),
        "data");
}

TEST_F(MtSpecificDataTest, AnEntryWithoutValueFailsTheAssertion)
{
    runStranger([] {
        MtSpecificData<Counted> const data("data");
        MtSpecificDataRegistry::getInstance().addSpecificData(&data);
        EXPECT_EQ(
            failedAssertion([] { MtSpecificDataRegistry::getInstance().removeSpecificData(); }),
            "!data->isNull()");
        EXPECT_EQ(
            failedAssertion([] { MtSpecificDataRegistry::getInstance().removeSpecificData(); }), "")
            << "the entry has gone";
    });
}

/// Searches for itself while it is deleted. Throws if the test wants that.
struct Looking
{
    ~Looking() noexcept(false)
    {
        isSeen = data && !data->isNull() && data->getPointee() == this;
        if (throws)
            throw std::runtime_error("deleted");
    }
    static bool isSeen;
    MtSpecificData<Looking> const *data = nullptr;
    bool throws = false;
};

bool Looking::isSeen = false;

TEST_F(MtSpecificDataTest, ADeleterStillFindsTheValue)
{
    MtSpecificData<Looking> const data("data");
    data->data = &data;
    Looking::isSeen = false;
    data.performDelete();
    EXPECT_TRUE(Looking::isSeen);
    EXPECT_TRUE(data.isNull());
}

TEST_F(MtSpecificDataTest, AValueIsRemovedEvenIfItsDeleterThrows)
{
    {
        MtSpecificData<Looking> const data("data");
        data->data = &data;
        data->throws = true;
        EXPECT_THROW(data.performDelete(), std::runtime_error);
        EXPECT_TRUE(data.isNull());
        EXPECT_EQ(countEntries(&data), 0u);
        EXPECT_FALSE(data->throws) << "another one";
    }
    runStranger([] {
        MtSpecificData<Looking> const first("first");
        MtSpecificData<Counted> const second("second");
        first->data = &first;
        first->throws = true;
        second.getPointee();
        EXPECT_THROW(MtSpecificDataRegistry::getInstance().removeSpecificData(),
                     std::runtime_error);
        EXPECT_TRUE(first.isNull());
        EXPECT_FALSE(second.isNull()) << "for the next removal";
    });
    EXPECT_EQ(nbDeleted, 1);
}

/// Uses other data while it is deleted.
struct Reviving
{
    ~Reviving()
    {
        if (next)
            next->getPointee();
    }
    MtSpecificData<Counted> const *next = nullptr;
};

TEST_F(MtSpecificDataTest, ValuesThatADeleterMakesAreRemovedToo)
{
    std::thread([] {
        MtSpecificData<Counted> const late("late");
        MtSpecificData<Reviving> const data("data");
        data->next = &late;
        MtSpecificDataRegistry::getInstance().removeSpecificData();
        EXPECT_TRUE(data.isNull());
        EXPECT_TRUE(late.isNull());
        EXPECT_EQ(nbMade, 1);
        EXPECT_EQ(nbDeleted, 1);
    }).join();
}

struct NeverMade
{
    NeverMade() { throw MtEx::ExNotImplemented("f", 1, "NeverMade"); }
};

TEST_F(MtSpecificDataTest, AValueThatCannotBeMadeLeavesNothing)
{
    MtSpecificData<NeverMade> const data("data");
    EXPECT_THROW(data.getPointee(), MtEx::ExNotImplemented);
    EXPECT_TRUE(data.isNull());
    EXPECT_EQ(countEntries(&data), 0u);
}

std::array<int, 2> deleted;
std::size_t nbOrdered = 0;

template <int N>
struct Ordered
{
    ~Ordered() { deleted.at(nbOrdered++) = N; }
};

TEST_F(MtSpecificDataTest, ValuesGoInTheOrderOfTheirMaking)
{
    nbOrdered = 0;
    std::thread([] {
        MtSpecificData<Ordered<1>> const first("first");
        MtSpecificData<Ordered<2>> const second("second");
        second.getPointee();
        first.getPointee();
        MtSpecificDataRegistry::getInstance().removeSpecificData();
    }).join();
    EXPECT_EQ(deleted, (std::array{2, 1}));
}

class MtSpecificDataThreadTest : public MtSpecificDataTest
{
protected:
    void SetUp() override
    {
        MtSpecificDataTest::SetUp();
        TestAccess<MtThread>::setCanStart(true);
    }
};

TEST_F(MtSpecificDataThreadTest, AThreadThatEndsFreesItsValues)
{
    MtSpecificData<Counted> const data("data");
    ObjPtr<MtThread> const thread =
        makeThread("user", [&](TestProtocol &, MtThread *) { data->value = 1; });
    thread->start();
    thread->join();
    EXPECT_EQ(nbMade, 1);
    EXPECT_EQ(nbDeleted, 1);
    EXPECT_EQ(countEntries(&data), 0u);
}

} // namespace

} // namespace ZvTest
