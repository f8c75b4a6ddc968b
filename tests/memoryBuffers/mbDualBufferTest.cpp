#include "recording.h"

#include "zvbase/failures.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstring>

namespace {

using namespace ZvTest;

/// Loads "abcdefgh…" from a letter on, and counts its calls.
class Letters : public MbProtocol
{
public:
    Letters(char first, int &nbLoads) : _first(first), _nbLoads(nbLoads) {}
    void reload(void *memory, std::uint64_t size) override
    {
        ++_nbLoads;
        for (std::uint64_t i = 0; i < size; ++i)
            static_cast<char *>(memory)[i] = static_cast<char>(_first + static_cast<char>(i));
    }

private:
    char _first;
    int &_nbLoads;
};

class DualBuffer : public testing::Test
{
protected:
    ~DualBuffer() noexcept override {}

    static std::string contentsOf(MbBuffer const &buffer)
    {
        MbBufferRdGuardImp const guard(buffer);
        return {static_cast<char const *>(guard.getMemory()),
                static_cast<std::size_t>(buffer.getSize())};
    }
    std::string assertionOf(int offset1, int size1, int offset2, int size2)
    {
        try {
            static_cast<void>(factory.create(first, offset1, size1, second, offset2, size2));
            return "";
        } catch (AssertionFailed const &failure) {
            return failure.getExpression();
        }
    }

    int nbFirst = 0;
    int nbSecond = 0;
    RCShdPtr<MbManager> sources{new MbHeapManager("sources", 10, makeObj<MbUnloadLRU>(0))};
    RCShdPtr<MbManager> views{new MbHeapManager("views", 100, makeObj<MbUnloadLRU>(0))};
    MbBufferSimpleFactory plain{initialState(), sources};
    MbDualBufferFactory factory{initialState(), views};
    MbBuffer first =
        plain.create("first", makeObj<Letters>('a', nbFirst), 10, MbAlignment(0, 0, 0));
    MbBuffer second =
        plain.create("second", makeObj<Letters>('A', nbSecond), 10, MbAlignment(0, 0, 0));
};

TEST_F(DualBuffer, GluesTwoSlices)
{
    MbBuffer const dual = factory.create(first, 7, 3, second, 0, 4);
    EXPECT_STREQ("first - second", dual.getName());
    EXPECT_EQ(7, dual.getSize());
    EXPECT_EQ(0u, dual.getAlignment().getAlignmentMask());
    EXPECT_EQ(0u, dual.getAlignment().getOffsetMask());
    EXPECT_EQ(0u, dual.getAlignment().getOffsetPattern());
    EXPECT_FALSE(dual.isLoaded());
    EXPECT_EQ("hijABCD", contentsOf(dual));
}

/// The budget has room for one of the sources, so that each is evicted for the other.
TEST_F(DualBuffer, ReadsItsSourcesBackOneAfterTheOther)
{
    MbBuffer dual = factory.create(first, 0, 10, second, 0, 10);
    EXPECT_EQ("abcdefghijABCDEFGHIJ", contentsOf(dual));
    EXPECT_EQ("Unloaded", stateOf(first));
    EXPECT_EQ("Loaded", stateOf(second));
    dual.free();
    EXPECT_EQ("abcdefghijABCDEFGHIJ", contentsOf(dual));
    EXPECT_EQ(2, nbFirst);
    EXPECT_EQ(2, nbSecond);
    // The sources can be used as before.
    EXPECT_EQ("abcdefghij", contentsOf(first));
    EXPECT_EQ(3, nbFirst);
    EXPECT_EQ("Unloaded", stateOf(second));
    EXPECT_EQ("ABCDEFGHIJ", contentsOf(second));
}

TEST_F(DualBuffer, IsReadFromItsSourcesAgainAfterItWasUnloaded)
{
    MbBuffer const dual = factory.create(first, 1, 2, second, 3, 4);
    EXPECT_EQ("bcDEFG", contentsOf(dual));
    {
        MbBufferWrGuardImp const guard(dual);
        std::memset(guard.getMemory(), 'x', 6);
    }
    dual.getImp()->receive(MbEvent::UNLOAD);
    EXPECT_EQ("Unloaded", stateOf(dual));
    // Nothing has been written back.
    EXPECT_EQ("bcDEFG", contentsOf(dual));
    EXPECT_EQ("abcdefghij", contentsOf(first));
}

TEST_F(DualBuffer, KeepsItsSourcesAlive)
{
    MbBuffer const dual = factory.create(first, 1, 1, second, 2, 1);
    EXPECT_FALSE(first.isUniqueOwner());
    first = MbBuffer();
    second = MbBuffer();
    EXPECT_EQ("bC", contentsOf(dual));
}

TEST_F(DualBuffer, MayHaveOneSourceTwiceAndDualBuffersAsSources)
{
    MbBuffer const turned = factory.create(first, 5, 5, first, 0, 5);
    EXPECT_EQ("fghijabcde", contentsOf(turned));
    MbBuffer const nested = factory.create(turned, 4, 2, second, 0, 1);
    EXPECT_EQ("jaA", contentsOf(nested));
}

TEST_F(DualBuffer, IsLoadedAheadLikeAnyOther)
{
    MbBuffer dual = factory.create(first, 0, 1, second, 0, 1);
    dual.prefetch();
    EXPECT_EQ("Loaded", stateOf(dual));
    EXPECT_EQ("aA", contentsOf(dual));
    EXPECT_EQ(1, nbFirst);
}

TEST_F(DualBuffer, CannotBeLargerThanASizeCanSay)
{
    MbBuffer const large = plain.create("large", INT_MAX, MbAlignment(0, 0, 0));
    for (int size : {1, INT_MAX}) {
        std::string expression;
        try {
            static_cast<void>(factory.create(large, 0, INT_MAX, large, 0, size));
        } catch (AssertionFailed const &failure) {
            expression = failure.getExpression();
        }
        EXPECT_EQ("size >= 0", expression);
    }
    EXPECT_EQ(INT_MAX, factory.create(large, 0, INT_MAX - 1, large, 0, 1).getSize());
}

TEST_F(DualBuffer, OfACopiedFactoryIsOfTheSameMachineAndManager)
{
    MbDualBufferFactory copy(factory);
    MbDualBufferFactory assigned(nullptr, RCShdPtr<MbManager>());
    assigned = factory;
    factory = MbDualBufferFactory(nullptr, RCShdPtr<MbManager>());
    for (MbDualBufferFactory *each : {&copy, &assigned}) {
        MbBuffer const dual = each->create(first, 0, 1, second, 0, 1);
        EXPECT_EQ("aA", contentsOf(dual));
        EXPECT_EQ(2u, static_cast<MbHeapManager const &>(*views).getAllocated());
    }
}

TEST_F(DualBuffer, SlicesThatAreEmptyOrReachOutsideFailAssertions)
{
    EXPECT_EQ("offset1 >= 0", assertionOf(-1, 0, -1, 0));
    EXPECT_EQ("offset2 >= 0", assertionOf(0, 0, -1, 0));
    EXPECT_EQ("size1 > 0", assertionOf(0, 0, 0, 0));
    EXPECT_EQ("size2 > 0", assertionOf(0, 11, 0, -1));
    EXPECT_EQ("( offset1 + size1 ) <= buf1.getSize()", assertionOf(1, 10, 1, 10));
    EXPECT_EQ("( offset2 + size2 ) <= buf2.getSize()", assertionOf(0, 10, 1, 10));
    EXPECT_EQ("( offset1 + size1 ) <= buf1.getSize()", assertionOf(INT_MAX, INT_MAX, 0, 1));
    EXPECT_EQ("", assertionOf(0, 10, 9, 1));
}

} // namespace
